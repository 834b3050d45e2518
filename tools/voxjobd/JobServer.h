// JobServer is the rendezvous of scans and devices: a scan registers a job at the client door
// (127.0.0.1, a free port that the lock file names), the device connects to the device door (TCP
// port 3893) and says which job it means, and from then on bytes flow between the two until both
// have closed. docs/wire/job-server.md describes what is sent.
//
//   client ── registration ──► waiting ──┐
//                                        ├─ same address, job, sequence ──► relay ──► both closed
//   device ──── notice ──────► waiting ──┘
//
// Everything runs on one thread: the one that calls Run, or the one that Start makes. Sockets are
// non-blocking; every buffer, queue and wait is bounded.
//
// Thread rule: Open, Run, Start, Stop from the owner's thread; RequestStop from any thread and from
// a signal handler; Ports and Error after Open or Start.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

namespace vox {

inline constexpr std::uint16_t kDefaultDevicePort = 3893;

struct JobServerTimes {
  std::chrono::milliseconds registration{10'000};  // from a client's connection to its 15 bytes
  std::chrono::milliseconds notice{10'000};        // from a device's connection to its 28 bytes
  std::chrono::milliseconds meeting{10'000};    // from a notice to the registration that it is for
  std::chrono::milliseconds idle{10'000};       // with nobody there, until exit_when_idle acts
  std::chrono::milliseconds drain{2'000};       // from RequestStop to the end
  std::chrono::milliseconds accept_pause{100};  // after running out of descriptors
  std::chrono::milliseconds half_closed{120'000};  // silence of a relay that one side has left
};

struct JobServerLimits {
  std::size_t waiting_registrations = 64;
  std::size_t unregistered_clients = 256;  // connections that have not sent their 15 bytes
  std::size_t waiting_devices = 256;       // before and after their notice together
  std::size_t relays = 256;
};

struct JobServerOptions {
  std::uint16_t device_port = kDefaultDevicePort;  // 0: any free port
  std::string device_address = "0.0.0.0";          // of the interface that the device door is on
  bool exit_when_idle = false;                     // Run returns after times.idle with nobody there
  JobServerTimes times;
  JobServerLimits limits;
};

struct JobServerPorts {
  std::uint16_t client = 0;  // on 127.0.0.1
  std::uint16_t device = 0;
};

class JobServer {
 public:
  enum class Failure {
    kNone,
    kRunsAlready,  // another server holds the lock file
    kPortInUse,
    kPermission,
    kOther,
  };
  struct FailureReport {
    Failure kind = Failure::kNone;
    std::string text;
  };

  JobServer();
  ~JobServer();  // Stop
  JobServer(const JobServer&) = delete;
  JobServer& operator=(const JobServer&) = delete;

  // Open opens both doors and takes the lock file. On false nothing stays open, and Error and
  // FailureKind say why.
  bool Open(const JobServerOptions& options);

  // Run serves until RequestStop or, with exit_when_idle, until nobody is left. Then it takes no
  // new work, passes on what it holds for times.drain at most, and releases the lock.
  void Run();

  // Start is Open, and Run on a thread of its own.
  bool Start(const JobServerOptions& options);

  // Stop is RequestStop and the wait for the thread of Start. Harmless twice.
  void Stop();

  void RequestStop();  // async-signal-safe

  JobServerPorts Ports() const;
  Failure FailureKind() const;
  const std::string& Error() const;  // one line without a newline

 private:
  class Loop;
  std::unique_ptr<Loop> loop_;
  std::thread thread_;  // of Start
  FailureReport failure_;
};

}  // namespace vox
