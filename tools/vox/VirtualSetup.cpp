#include "tools/vox/VirtualSetup.h"

#include <cerrno>
#include <cstdlib>

#include "sim/PaperTray.h"
#include "tools/vox/Failure.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"

namespace vox::cli {

namespace {

// In the private folder.
constexpr char kTemporary[] = "var/tmp";  // the lock file lies there too
constexpr char kShared[] = "var/lib/Veltronix Vox";
constexpr char kOfTheUser[] = "config";

Failure CannotStart(const std::string& what, const std::string& error) {
  return Failure(ExitStatus::kIoError, "cannot start " + what + ": " + CleanText(error));
}

Failure BadPage(const sim::PaperProblem& problem) {
  const bool forbidden = problem.error_number == EACCES || problem.error_number == EPERM;
  return Failure(forbidden ? ExitStatus::kNoPermission : ExitStatus::kIoError,
                 "cannot read a page: " + CleanText(problem.text) +
                     "; name PNM, PNG or TIFF files that you may read");
}

// A device with a flatbed and a feeder that turns sheets, and the paper that was asked for.
sim::DeviceOptions Describe(const VirtualOptions& options, bool both_sides) {
  sim::DeviceOptions device;
  device.duplex = 1;
  device.feeder = sim::UnitOptions{};
  if (!options.faults.empty()) {
    const std::string wrong = sim::ParseFault(options.faults, device.faults);
    if (!wrong.empty()) throw UsageFailure("--virtual-fault: " + wrong);
  }
  sim::PaperWish wish{options.page_files, {}, {}, both_sides};
  if (options.feeder) wish.sheets = *options.feeder;
  const sim::PaperProblem problem = sim::LayPaper(wish, device);
  if (!problem.text.empty()) throw BadPage(problem);
  return device;
}

}  // namespace

VirtualSetup::VirtualSetup(const VirtualOptions& options, bool both_sides)
    : root_({kTemporary, kShared, kOfTheUser}), device_(Describe(options, both_sides)) {
  ::setenv("VOX_ROOT", root_.Path().c_str(), 1);
  ::setenv("XDG_CONFIG_HOME", (root_.Path() + "/" + kOfTheUser).c_str(), 1);
  ::setenv("TMPDIR", (root_.Path() + "/" + kTemporary).c_str(), 1);
  JobServerOptions doors;
  doors.device_port = 0;
  doors.device_address = device_.Address();
  if (!job_server_.Start(doors)) throw CannotStart("the virtual job server", job_server_.Error());
  device_.SetJobServerPort(job_server_.Ports().device);
  if (!device_.Start()) throw CannotStart("the virtual device", device_.Error());
  snmpPort = device_.SnmpPort();
  SetUdpCommandPort(device_.CommandPort());
}

}  // namespace vox::cli
