#include "cli.h"

namespace vexatool {

int stabilizeCommand(const QStringList&) { return 1; }

} // namespace vexatool
