// voxjobd: the job server as a program. It stays in the foreground and ends on SIGTERM, SIGINT or
// SIGHUP, or when it is idle and was asked to.
#include <csignal>
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "tools/voxjobd/JobServer.h"
#include "vox/platform/DescriptorLimit.h"

namespace vox {
namespace {

constexpr int kUsageError = 64;
constexpr int kOutOfMemory = 10;  // what else is thrown here

constexpr int kStopSignals[] = {SIGTERM, SIGINT, SIGHUP};

JobServer* running_server = nullptr;  // for the signal handler; set before it is installed

void OnStopSignal(int /*signal*/) {
  running_server->RequestStop();
}

void ListenToSignals(JobServer& server) {
  running_server = &server;
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  for (const int signal : kStopSignals) ::sigaction(signal, &action, nullptr);
  ::signal(SIGPIPE, SIG_IGN);
}

// A server that has ended is not asked to end: in a moment it is not there to be asked.
void IgnoreStopSignals() {
  for (const int signal : kStopSignals) ::signal(signal, SIG_IGN);
}

// The exit statuses are those of SANE where they fit: 3 busy, 9 I/O error, 11 no permission.
int StatusOf(JobServer::Failure failure) {
  switch (failure) {
    case JobServer::Failure::kNone:
      return 0;
    case JobServer::Failure::kRunsAlready:
      return 1;
    case JobServer::Failure::kPortInUse:
      return 3;
    case JobServer::Failure::kPermission:
      return 11;
    case JobServer::Failure::kOther:
      break;
  }
  return 9;
}

int Serve(const JobServerOptions& options) {
  RaiseDescriptorLimit();  // 256 relays need two each
  JobServer server;
  if (!server.Open(options)) {
    std::fprintf(stderr, "voxjobd: %s\n", server.Error().c_str());
    return StatusOf(server.FailureKind());
  }
  ListenToSignals(server);
  if (options.device_port == 0) {
    std::printf("device port %d\n", server.Ports().device);
    std::fflush(stdout);
  }
  server.Run();
  IgnoreStopSignals();
  return 0;
}

int Run(int argc, char** argv) {
  CLI::App app{
      "The job server of Vox: brings network scans and the devices that answer them together."};
  JobServerOptions options;
  app.set_version_flag("--version", "voxjobd " VOX_VERSION);
  app.add_option("--device-port", options.device_port,
                 "TCP port that devices connect to; 0 takes a free one and prints it")
      ->capture_default_str();
  app.add_flag("--exit-when-idle", options.exit_when_idle,
               "End after 10 seconds without a registration or connection");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kUsageError;
  }
  return Serve(options);
}

}  // namespace
}  // namespace vox

int main(int argc, char** argv) {
  try {
    return vox::Run(argc, argv);
  } catch (const std::exception& exception) {
    std::fprintf(stderr, "voxjobd: %s\n", exception.what());
    return vox::kOutOfMemory;
  }
}
