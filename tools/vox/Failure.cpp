#include "tools/vox/Failure.h"

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "vox/drivers/ScanRecords.h"

namespace vox::cli {

namespace {

struct ErrnoAdvice {
  int error;
  ExitStatus status;
  const char* advice;
};

constexpr std::array<ErrnoAdvice, 10> kErrnoAdvice{{
    {EACCES, ExitStatus::kNoPermission, "choose a folder and a file that you may write"},
    {EPERM, ExitStatus::kNoPermission, "choose a folder and a file that you may write"},
    {EROFS, ExitStatus::kNoPermission, "choose a folder that is not read-only"},
    {ENOSPC, ExitStatus::kIoError, "free some space or name another place"},
    {EDQUOT, ExitStatus::kIoError, "your quota is used up: free some space or name another place"},
    {EFBIG, ExitStatus::kIoError, "the file would be too large: ask for less, or for other pages"},
    {ENOENT, ExitStatus::kIoError, "create the folder first"},
    {ENOTDIR, ExitStatus::kIoError, "name a folder that exists"},
    {ENAMETOOLONG, ExitStatus::kIoError, "give it a shorter name"},
    {ENOMEM, ExitStatus::kNoMemory, "close other programs and try again"},
}};

struct StatusAdvice {
  ExitStatus exit;
  const char* reason;
};

// One row for each interface error status; IfErrorText's words are for logs, these for people.
constexpr std::array<StatusAdvice, 9> kStatusAdvice{{
    {ExitStatus::kIoError, "it did not say why; try again"},
    {ExitStatus::kIoError, "no semaphores or threads are left on this machine; see ipcs -s"},
    {ExitStatus::kNoMemory, "not enough memory; ask for a smaller area or a lower resolution"},
    {ExitStatus::kIoError,
     "it does not answer, or what it sends arrives broken; check that it is on and reachable"},
    {ExitStatus::kBusy, "it is busy; try again when it has finished"},
    {ExitStatus::kIoError, "it refused; look at its panel"},
    {ExitStatus::kCancelled, "the job was cancelled at the device"},
    {ExitStatus::kIoError, "it reports a fault; look at its panel"},
    {ExitStatus::kNoDocument, "there is no document; put one in the feeder or on the glass"},
}};

ErrnoAdvice AdviceFor(int error) {
  for (const ErrnoAdvice& row : kErrnoAdvice) {
    if (row.error == error) return row;
  }
  return {error, ExitStatus::kIoError, nullptr};
}

std::string FileLine(const std::string& what, const std::string& path, int error) {
  return "cannot " + what + " " + CleanText(path) + ": " + std::generic_category().message(error);
}

}  // namespace

Failure FileFailure(const std::string& what, const std::string& path, int error) {
  const ErrnoAdvice row = AdviceFor(error);
  const std::string line = FileLine(what, path, error);
  return Failure(row.status, row.advice != nullptr ? line + "; " + row.advice : line);
}

Failure SpoolFailure(const std::string& what, int error) {
  return Failure(AdviceFor(error).status, FileLine(what, TemporaryFolder(), error) +
                                              "; set TMPDIR to a folder with room that you may" +
                                              " write");
}

std::string TemporaryFolder() {
  const char* wanted = std::getenv("TMPDIR");
  return wanted != nullptr && *wanted != '\0' ? wanted : "/var/tmp";
}

Failure DeviceFailure(const std::string& what, const std::string& device, std::uint32_t status) {
  const StatusAdvice& row = kStatusAdvice[status < kStatusAdvice.size() ? status : 0];
  return Failure(row.exit, "cannot " + what + " on " + CleanText(device) + ": " + row.reason);
}

Failure UsageFailure(const std::string& line) {
  return Failure(ExitStatus::kUsage, CleanText(line));
}

Failure CancelledFailure() {
  return Failure(ExitStatus::kCancelled, "cancelled; the device was told to stop");
}

}  // namespace vox::cli
