// vox: scanners from the command line. See docs/vox.md.
#include <csignal>
#include <new>
#include <string>
#include <vector>

#include <unistd.h>

#include "tools/vox/Failure.h"
#include "tools/vox/Options.h"
#include "tools/vox/Output.h"
#include "tools/vox/ScanJob.h"
#include "tools/vox/Verbs.h"
#include "vox/platform/DescriptorLimit.h"

namespace {

using namespace vox::cli;

void Execute(const ScanOptions& options) {
  RunScan(options);
}
void Execute(const InfoOptions& options) {
  RunInfo(options);
}
void Execute(const DiscoverOptions& options) {
  RunDiscover(options);
}
void Execute(const ListOptions& options) {
  RunList(options);
}
void Execute(const AddOptions& options) {
  RunAdd(options);
}
void Execute(const RemoveOptions& options) {
  RunRemove(options);
}
void Execute(const RegisterOptions& options) {
  RunRegister(options);
}
void Execute(const SettingsOptions& options) {
  RunSettings(options);
}
void Execute(const TextAnswer& answer) {
  PrintOut(answer.text);
}

int Say(ExitStatus status, const std::string& line) {
  PrintError(line);
  return static_cast<int>(status);
}

}  // namespace

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);  // a reader that goes away is an error of the write
  KeepStandardOutput();
  vox::RaiseDescriptorLimit();  // 64 devices are asked at once, four questions each
  try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    const bool terminal = ::isatty(STDOUT_FILENO) == 1;
    std::visit([](const auto& command) { Execute(command); },
               ParseCommandLine(arguments, terminal));
    return static_cast<int>(ExitStatus::kDone);
  } catch (const Failure& failure) {
    return Say(failure.Status(), failure.what());
  } catch (const std::bad_alloc&) {
    return Say(ExitStatus::kNoMemory,
               "not enough memory; close other programs, or ask for a smaller area or "
               "resolution of a scan");
  } catch (const std::exception& error) {
    return Say(ExitStatus::kIoError, error.what());
  }
}
