// Failure ends a command: one line for the user, which says what failed, with what, and what can be
// done about it, and the status with which the program exits. The statuses are SANE's numbers,
// which scripts of this field know already.
//
// Thread rule: values; thrown and caught on one thread.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>

#include "tools/vox/CleanText.h"

namespace vox::cli {

enum class ExitStatus : int {
  kDone = 0,
  kCancelled = 2,
  kBusy = 3,
  kCannot = 4,  // a request that the device cannot do, or a name that nobody bears
  kNoDocument = 7,
  kIoError = 9,  // a lost, silent or refusing device, or a file that cannot be written
  kNoMemory = 10,
  kNoPermission = 11,
  kUsage = 64,
};

class Failure : public std::runtime_error {
 public:
  Failure(ExitStatus status, const std::string& line) : std::runtime_error(line), status_(status) {}
  ExitStatus Status() const { return status_; }

 private:
  ExitStatus status_;
};

// FileFailure describes a failed file operation: "cannot write scan.png: No space left on device;
// free some space or ...". `what` is the verb ("write"), `error` an errno.
// Returns: a Failure with status 11 where permission is missing, 10 without memory, else 9.
Failure FileFailure(const std::string& what, const std::string& path, int error);

// SpoolFailure is the same for what lies in the folder of temporary files ("write a temporary file
// in"), which nobody has named: the advice is TMPDIR.
Failure SpoolFailure(const std::string& what, int error);

// TemporaryFolder is where temporary files go: TMPDIR, else /var/tmp, as pages may be large.
std::string TemporaryFolder();

// DeviceFailure describes a failed scan step: `what` ("scan the page"), the device as the user
// named it, and the interface error status 0 to 8 of the scan interface. Returns: a Failure with
// the exit status that design and scripts give that kind of error.
Failure DeviceFailure(const std::string& what, const std::string& device, std::uint32_t status);

// UsageFailure is a mistake in the command line.
Failure UsageFailure(const std::string& line);

// CancelledFailure is what Ctrl-C and SIGTERM end with.
Failure CancelledFailure();

}  // namespace vox::cli
