// The order in which the tool and the application take files named by a camera or a shell pattern.
#pragma once

#include <QString>

namespace vexatool {

// Names compared with their runs of digits as numbers: shot_2 before shot_10.
bool naturalLess(const QString& a, const QString& b);

} // namespace vexatool
