// The instruction sets that no vector code of lines is compiled for. Included before any other
// header of libhwy.
#pragma once

#include <hwy/detect_compiler_arch.h>

#if HWY_ARCH_ARM_V7
#define HWY_DISABLED_TARGETS HWY_NEON  // has no division that rounds as it should
#endif
