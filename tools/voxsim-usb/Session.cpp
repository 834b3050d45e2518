#include "tools/voxsim-usb/Session.h"

#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <utility>

#include <poll.h>
#include <spawn.h>
#include <sys/signalfd.h>
#include <sys/wait.h>
#include <unistd.h>

#include "sim/UsbDevice.h"
#include "sim/usbbus/UsbBus.h"
#include "sim/usbbus/UsbScannerModel.h"
#include "vox/platform/FileDescriptor.h"

namespace vox {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kSignalled = 128;
constexpr int kCannotRun = 127;  // as shells say it

sigset_t Signals() {
  sigset_t signals;
  sigemptyset(&signals);
  for (const int signal : {SIGCHLD, SIGTERM, SIGINT, SIGHUP, SIGUSR1, SIGUSR2}) {
    sigaddset(&signals, signal);
  }
  return signals;
}

// A scanner, in its port or out of it.
class Scanner {
 public:
  Scanner(sim::UsbBus& bus, sim::DeviceOptions options, int port)
      : bus_(bus), device_(std::move(options)), model_(device_), port_(port) {}

  sim::UsbDevice& Device() { return device_; }
  int GoneFd() { return model_.Gone().Get(); }

  void Plug() {
    replug_.reset();
    if (!name_.empty()) return;
    device_.Scanner().Plug();
    name_ = bus_.Plug(model_.Description(port_), model_);
  }
  void Unplug() {
    if (name_.empty()) return;
    device_.Scanner().Unplug();
    bus_.Unplug(std::exchange(name_, {}));
    model_.Gone().Clear();
  }
  // A fault took it off the bus; what the bus still asked meanwhile says so again.
  void Vanished(std::optional<std::chrono::milliseconds> replug) {
    model_.Gone().Clear();
    if (name_.empty() || device_.Scanner().IsPlugged()) return;
    Unplug();
    if (replug) replug_ = Clock::now() + *replug;
  }
  std::optional<Clock::time_point> ReplugAt() const { return replug_; }

 private:
  sim::UsbBus& bus_;
  sim::UsbDevice device_;
  sim::UsbScannerModel model_;
  const int port_;
  std::string name_;  // on the bus; empty: not there
  std::optional<Clock::time_point> replug_;
};

class Session {
 public:
  explicit Session(const UsbArguments& arguments) : arguments_(arguments) {
    const sigset_t signals = Signals();
    signals_ = FileDescriptor(::signalfd(-1, &signals, SFD_CLOEXEC | SFD_NONBLOCK));
  }

  // The models outlive the bus.
  ~Session() {
    for (const auto& scanner : scanners_) scanner->Unplug();
    bus_.reset();
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  std::string Plug() {
    for (const std::string& serial : arguments_.serials) {
      sim::DeviceOptions options = arguments_.sim.device;
      options.usb.serial = serial;
      const int port = static_cast<int>(scanners_.size()) + 1;
      auto scanner = std::make_unique<Scanner>(*bus_, std::move(options), port);
      if (!scanner->Device().Error().empty()) return scanner->Device().Error();
      if (arguments_.sim.trace) scanner->Device().Events().SetListener(TraceEvent);
      scanner->Plug();
      scanners_.push_back(std::move(scanner));
    }
    return {};
  }

  int Run() {
    const int error = Spawn();
    if (error != 0) {
      std::fprintf(stderr, "voxsim-usb: %s: %s\n", arguments_.program[0].c_str(),
                   std::strerror(error));
      return kCannotRun;
    }
    while (true) {
      if (const auto status = Ended()) return *status;
      Wait();
    }
  }

 private:
  // The program gets every signal as this one got it.
  int Spawn() {
    std::vector<char*> words;
    for (const std::string& word : arguments_.program)
      words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    ::setenv("VOXSIM_USB_PID", std::to_string(::getpid()).c_str(), 1);
    posix_spawnattr_t attributes;
    ::posix_spawnattr_init(&attributes);
    sigset_t none;
    sigemptyset(&none);
    ::posix_spawnattr_setsigmask(&attributes, &none);
    ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK);
    const int error =
        ::posix_spawnp(&program_, words[0], nullptr, &attributes, words.data(), environ);
    ::posix_spawnattr_destroy(&attributes);
    return error;
  }

  std::optional<int> Ended() const {
    int status = 0;
    if (::waitpid(program_, &status, WNOHANG) != program_) return std::nullopt;
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
  }

  int Patience() const {
    std::optional<Clock::time_point> first;
    for (const auto& scanner : scanners_) {
      const auto at = scanner->ReplugAt();
      if (at && (!first || *at < *first)) first = at;
    }
    if (!first) return -1;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(*first - Clock::now());
    return static_cast<int>(std::max<std::int64_t>(left.count(), 0));
  }

  void Wait() {
    std::vector<pollfd> fds = {{signals_.Get(), POLLIN, 0}};
    for (const auto& scanner : scanners_) fds.push_back({scanner->GoneFd(), POLLIN, 0});
    ::poll(fds.data(), fds.size(), Patience());
    for (std::size_t i = 0; i < scanners_.size(); ++i) {
      if ((fds[i + 1].revents & POLLIN) != 0) scanners_[i]->Vanished(arguments_.replug);
      const auto at = scanners_[i]->ReplugAt();
      if (at && *at <= Clock::now()) scanners_[i]->Plug();
    }
    signalfd_siginfo signal{};
    while (::read(signals_.Get(), &signal, sizeof signal) == sizeof signal) Take(signal.ssi_signo);
  }

  // Ctrl-C at a terminal reaches the program by itself.
  void Take(std::uint32_t signal) {
    for (const auto& scanner : scanners_) {
      if (signal == SIGUSR1) scanner->Unplug();
      if (signal == SIGUSR2) scanner->Plug();
    }
    if (signal == SIGTERM || signal == SIGHUP) ::kill(program_, static_cast<int>(signal));
  }

  const UsbArguments& arguments_;
  FileDescriptor signals_;
  std::optional<sim::UsbBus> bus_{std::in_place};
  std::vector<std::unique_ptr<Scanner>> scanners_;
  pid_t program_ = -1;
};

}  // namespace

void BlockSignals() {
  const sigset_t signals = Signals();
  ::pthread_sigmask(SIG_BLOCK, &signals, nullptr);
}

int RunSession(UsbArguments& arguments) {
  Session session(arguments);
  const std::string error = session.Plug();
  if (!error.empty()) {
    std::fprintf(stderr, "voxsim-usb: %s\n", error.c_str());
    return kUsageError;
  }
  return session.Run();
}

}  // namespace vox
