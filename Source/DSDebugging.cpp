#include "vox/DSDebugging.h"

namespace vox {

void DS_LogText(const char* /*format*/, ...) {}

}  // namespace vox
