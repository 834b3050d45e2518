#include "frontends/sane/Status.h"

#include <array>

#include "vox/drivers/ScanRecords.h"

namespace vox::sane {

namespace {

constexpr std::array<SANE_Status, 9> kStatuses{{
    SANE_STATUS_IO_ERROR,  // the device did not say why
    SANE_STATUS_NO_MEM,    // no semaphores or threads are left
    SANE_STATUS_NO_MEM,
    SANE_STATUS_IO_ERROR,  // lost or silent
    SANE_STATUS_DEVICE_BUSY,
    SANE_STATUS_IO_ERROR,   // refused
    SANE_STATUS_CANCELLED,  // at the device
    SANE_STATUS_IO_ERROR,   // a fault
    SANE_STATUS_NO_DOCS,
}};

constexpr std::array<const char*, 12> kTexts{{
    "Success",
    "Operation not supported",
    "Operation was canceled",
    "Device busy",
    "Invalid argument",
    "End of file reached",
    "Document feeder jammed",
    "Document feeder out of documents",
    "Scanner cover is open",
    "Error during device I/O",
    "Out of memory",
    "Access to resource has been denied",
}};

}  // namespace

SANE_Status StatusOf(const cli::Failure& failure) {
  const int status = static_cast<int>(failure.Status());
  const bool known = status > SANE_STATUS_GOOD && status <= SANE_STATUS_ACCESS_DENIED;
  return known ? static_cast<SANE_Status>(status) : SANE_STATUS_INVAL;
}

SANE_Status StatusOfScan(std::uint32_t status, bool feeder) {
  if (status == IF_ERR_STS_CHECK_ERROR && feeder) return SANE_STATUS_JAMMED;
  return status < kStatuses.size() ? kStatuses[status] : SANE_STATUS_IO_ERROR;
}

const char* StatusText(SANE_Word status) {
  const auto row = static_cast<std::size_t>(status);
  return row < kTexts.size() ? kTexts[row] : "Unknown SANE status code";
}

}  // namespace vox::sane
