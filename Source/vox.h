// Everything that users of libvox reach, in one include.
#pragma once

#include "vox/DSDebugging.h"
#include "vox/DupImgFile.h"
#include "vox/Environment.h"
#include "vox/drivers/LineKernels.h"
#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/TwainImageIF.h"
#include "vox/drivers/libjbig3/codec32s.h"
#include "vox/drivers/libjbig3/jbig2rf.h"
#include "vox/drivers/libjbig3/jbigtbl.h"
#include "vox/drivers/libjbig3/rf2jbig.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udpsnmp.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/net/bonjour.h"
#include "vox/drivers/net/search.h"
