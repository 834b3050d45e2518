// Everything that users of libvox reach, in one include.
#pragma once

#include "vox/DSDebugging.h"
#include "vox/drivers/ScanRecords.h"
#include "vox/drivers/TwainImageIF.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udpsnmp.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/net/bonjour.h"
#include "vox/drivers/net/search.h"
