#include "tools/vox/TwainTrace.h"

#include <algorithm>
#include <array>
#include <exception>

#include "tools/vox/Json.h"
#include "tools/vox/TwainCodes.h"
#include "vox/DSDebugging.h"

namespace vox::cli {

namespace {

constexpr std::uint32_t kStripBytes = 1U << 20;  // what the source would call its preferred size

// One for each interface error status.
constexpr std::array<std::uint16_t, 9> kConditions = {
    kBummer,         kBummer, kLowMemory,      kCheckDeviceOnline, kDenied,
    kOperationError, kBummer, kOperationError, kNoMedia,
};

std::uint16_t ConditionOf(std::uint32_t status) {
  return status < kConditions.size() ? kConditions[status] : std::uint16_t{kBummer};
}

}  // namespace

struct TwainTrace::Operation {
  std::uint32_t group = kControl;
  std::uint16_t attribute = 0, message = 0;
  std::uint16_t capability = 0;  // of kCapability
  std::uint16_t result = kSuccess, condition = kNoCondition;
};

void TwainTrace::Do(const Operation& operation) {
  DS_LogTriplet(operation.group, operation.attribute, operation.message, &operation.capability);
  DS_LogResult(operation.result, operation.condition);
  if (!sink_) return;
  Json json = {{"group", operation.group},
               {"attribute", operation.attribute},
               {"message", operation.message}};
  if (operation.attribute == kCapability) json["capability"] = operation.capability;
  json["result"] = operation.result;
  json["condition"] = operation.condition;
  sink_(JsonLine(json));
}

std::uint32_t TwainTrace::LinesOfStrip() const {
  return std::max<std::uint32_t>(1, kStripBytes / line_size_);
}

void TwainTrace::Begin(const ScanPlan& plan) {
  if (!on_ || begun_) return;
  begun_ = true;
  line_size_ = std::max<std::uint32_t>(1, plan.request.dwLineSize);
  DS_DebugInitialize();
  Do({kControl, kIdentity, kOpenSource});
  SetCapabilities(plan);
  Do({kImage, kImageLayout, kSet});
  Do({kControl, kUserInterface, kEnableSource});
}

void TwainTrace::SetCapabilities(const ScanPlan& plan) {
  for (const std::uint16_t capability :
       {kTransferCount, kTransferMechanism, kUnits, kPixelType, kBitDepth, kXResolution,
        kYResolution, kBrightness, kContrast})
    Do({kControl, kCapability, kSet, capability});
  if (plan.request.wBitsPerPixel == 1) Do({kControl, kCapability, kSet, kThreshold});
  if (plan.request.dwDuplex != 0) Do({kControl, kCapability, kSet, kDuplexEnabled});
}

void TwainTrace::Page() {
  if (!begun_) return;
  page_ = true;
  lines_told_ = 0;
  Do({kImage, kImageInfo, kGet});
  Do({kControl, kSetUpMemoryTransfer, kGet});
}

void TwainTrace::Lines(std::uint32_t lines, bool whole) {
  if (!begun_ || (!whole && lines - lines_told_ < LinesOfStrip())) return;
  lines_told_ = lines;
  Do({kImage, kImageMemoryTransfer, kGet, 0,
      whole ? std::uint16_t{kTransferDone} : std::uint16_t{kSuccess}});
}

void TwainTrace::EndPage() {
  if (!begun_) return;
  page_ = false;
  Do({kControl, kPendingTransfers, kEndTransfer});
}

void TwainTrace::Fail(std::uint32_t status) {
  if (!begun_) return;
  page_ = true;  // what waits is dropped by End
  Do({kImage, kImageMemoryTransfer, kGet, 0, kFailure, ConditionOf(status)});
}

void TwainTrace::Cancel() {
  if (!begun_) return;
  page_ = true;
  Do({kImage, kImageMemoryTransfer, kGet, 0, kCancelled});
}

TwainTrace::~TwainTrace() {
  try {
    End();
  } catch (const std::exception&) {  // another failure may be on its way out
    begun_ = false;
  }
}

void TwainTrace::End() {
  if (!begun_) return;
  begun_ = false;
  if (page_) Do({kControl, kPendingTransfers, kReset});
  Do({kControl, kUserInterface, kDisableSource});
  Do({kControl, kIdentity, kCloseSource});
  DS_DebugTerminate();
}

}  // namespace vox::cli
