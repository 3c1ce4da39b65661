#include "cli.h"

namespace vexatool {

int panoramaCommand(const QStringList&) { return 1; }

} // namespace vexatool
