// Numbers of the TWAIN standard (version 2.4, chapters 7, 8, 10 and 11) that a trace uses.
//
// Thread rule: constants.
#pragma once

#include <cstdint>

namespace vox::cli {

enum TwainGroup : std::uint32_t { kControl = 1, kImage = 2 };

enum TwainAttribute : std::uint16_t {
  kCapability = 0x0001,
  kIdentity = 0x0003,
  kPendingTransfers = 0x0005,
  kSetUpMemoryTransfer = 0x0006,
  kUserInterface = 0x0009,
  kImageInfo = 0x0101,
  kImageLayout = 0x0102,
  kImageMemoryTransfer = 0x0103,
};

enum TwainMessage : std::uint16_t {
  kGet = 0x0001,
  kSet = 0x0006,
  kReset = 0x0007,
  kTransferReady = 0x0101,
  kOpenSource = 0x0401,
  kCloseSource = 0x0402,
  kDisableSource = 0x0501,
  kEnableSource = 0x0502,
  kEndTransfer = 0x0701,
};

enum TwainCapability : std::uint16_t {
  kTransferCount = 0x0001,
  kPixelType = 0x0101,
  kUnits = 0x0102,
  kTransferMechanism = 0x0103,
  kDuplexEnabled = 0x1013,
  kBrightness = 0x1101,
  kContrast = 0x1103,
  kXResolution = 0x1118,
  kYResolution = 0x1119,
  kThreshold = 0x1123,
  kBitDepth = 0x112B,
};

enum TwainReturn : std::uint16_t {
  kSuccess = 0,
  kFailure = 1,
  kCancelled = 3,
  kTransferDone = 6,
};

enum TwainCondition : std::uint16_t {
  kNoCondition = 0,
  kBummer = 1,
  kLowMemory = 2,
  kOperationError = 5,
  kDenied = 16,
  kCheckDeviceOnline = 23,
  kNoMedia = 29,
};

}  // namespace vox::cli
