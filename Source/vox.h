// Everything that users of libvox reach, in one include.
#pragma once

#include "vox/DSDebugging.h"
#include "vox/drivers/ScanRecords.h"
