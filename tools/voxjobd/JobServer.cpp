#include "tools/voxjobd/JobServer.h"

#include <cerrno>
#include <initializer_list>
#include <optional>
#include <system_error>
#include <utility>

#include "tools/voxjobd/CloseLog.h"
#include "tools/voxjobd/Door.h"
#include "tools/voxjobd/Poller.h"
#include "tools/voxjobd/Reception.h"
#include "tools/voxjobd/RelayPool.h"
#include "vox/drivers/net/bonjour.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

using TimePoint = Poller::Clock::time_point;
using Deadline = std::optional<TimePoint>;

Deadline Earliest(std::initializer_list<Deadline> deadlines) {
  Deadline earliest;
  for (const Deadline& deadline : deadlines) {
    if (deadline && (!earliest || *deadline < *earliest)) earliest = deadline;
  }
  return earliest;
}

constexpr char kLoopback[] = "127.0.0.1";
constexpr char kServerName[] = "voxjobd";

JobServer::Failure KindOf(int error) {
  if (error == EADDRINUSE) return JobServer::Failure::kPortInUse;
  if (error == EACCES || error == EPERM) return JobServer::Failure::kPermission;
  return JobServer::Failure::kOther;
}

// EWOULDBLOCK is how bonjour_register says that another server holds the lock.
JobServer::FailureReport ReportOf(int error, const std::string& what) {
  if (error == EWOULDBLOCK) {
    return {JobServer::Failure::kRunsAlready, "a job server runs already"};
  }
  return {KindOf(error), what + ": " + std::generic_category().message(error)};
}

}  // namespace

class JobServer::Loop final : private Watched {
 public:
  explicit Loop(JobServerOptions options);
  ~Loop() { bonjour_unregister(lock_); }

  FailureReport Open();
  void Run();
  void RequestStop() { stop_.Raise(); }
  JobServerPorts Ports() const { return {client_door_.Port(), device_door_.Port()}; }

 private:
  void OnReady(std::uint32_t events) override;
  FailureReport OpenDoors();
  FailureReport TakeLock();
  void OnVisit(Visitor::Kind kind, FileDescriptor socket, std::uint32_t address);
  void ServeUntilTold();
  void DrainRelays();
  void Step(Deadline deadline);
  void Tick(TimePoint now);
  bool IsIdle(TimePoint now);
  bool MayLeave();
  void CloseDoors();

  const JobServerOptions options_;
  Poller poller_;
  EventFd stop_;
  bool told_to_stop_ = false;
  bool busy_relays_ = false;  // some relay can go on without any event
  TimePoint last_busy_{};
  CloseLog log_;
  RelayPool relays_;
  Reception reception_;
  Door client_door_, device_door_;
  int lock_ = -1;  // of bonjour_register
};

JobServer::Loop::Loop(JobServerOptions options)
    : options_(std::move(options)),
      relays_(poller_, options_.limits.relays, options_.times.half_closed),
      reception_(
          poller_, options_, log_, [this] { return relays_.HasRoom(); },
          [this](Reception::Meeting meeting) {
            relays_.Add(std::move(meeting));
            busy_relays_ = true;
          }),
      client_door_(poller_, options_.times.accept_pause,
                   [this](FileDescriptor socket, std::uint32_t address) {
                     OnVisit(Visitor::Kind::kClient, std::move(socket), address);
                   }),
      device_door_(poller_, options_.times.accept_pause,
                   [this](FileDescriptor socket, std::uint32_t address) {
                     OnVisit(Visitor::Kind::kDevice, std::move(socket), address);
                   }) {}

// The lock comes last: whoever finds it held finds open doors.
JobServer::FailureReport JobServer::Loop::Open() {
  if (!poller_.IsOpen() || !poller_.Add(stop_.Get(), EPOLLIN, this)) {
    return ReportOf(errno, "cannot wait for connections");
  }
  const FailureReport doors = OpenDoors();
  return doors.kind == Failure::kNone ? TakeLock() : doors;
}

JobServer::FailureReport JobServer::Loop::OpenDoors() {
  if (!client_door_.Open(kLoopback, 0)) return ReportOf(errno, "cannot listen on 127.0.0.1");
  if (device_door_.Open(options_.device_address, options_.device_port)) return {};
  FailureReport report = ReportOf(
      errno, "cannot listen on port " + std::to_string(options_.device_port) + " for devices");
  unsigned short other = 0;
  if (bonjour_resolve(kServerName, kScannerServiceType, &other) != 0) return report;
  return ReportOf(EWOULDBLOCK, {});
}

JobServer::FailureReport JobServer::Loop::TakeLock() {
  lock_ = bonjour_register(kServerName, kScannerServiceType, client_door_.Port());
  const int error = errno;
  return lock_ >= 0 ? FailureReport{} : ReportOf(error, "cannot lock " + bonjour_lock_file());
}

void JobServer::Loop::OnReady(std::uint32_t /*events*/) {
  stop_.Clear();
  told_to_stop_ = true;
}

void JobServer::Loop::OnVisit(Visitor::Kind kind, FileDescriptor socket, std::uint32_t address) {
  last_busy_ = Poller::Clock::now();
  reception_.Receive(kind, std::move(socket), address);
}

void JobServer::Loop::Run() {
  last_busy_ = Poller::Clock::now();
  ServeUntilTold();
  CloseDoors();
  reception_.SendAllAway();
  DrainRelays();
  relays_.CutAll();
  log_.Flush();
  bonjour_unregister(std::exchange(lock_, -1));
}

void JobServer::Loop::ServeUntilTold() {
  while (!told_to_stop_) {
    const Deadline idle_end = options_.exit_when_idle && !busy_relays_
                                  ? Deadline(last_busy_ + options_.times.idle)
                                  : std::nullopt;
    Step(idle_end);
    if (IsIdle(Poller::Clock::now()) && MayLeave()) return;
  }
}

void JobServer::Loop::DrainRelays() {
  const TimePoint end = Poller::Clock::now() + options_.times.drain;
  while (!relays_.IsEmpty() && Poller::Clock::now() < end) Step(end);
}

void JobServer::Loop::Step(Deadline deadline) {
  const TimePoint at_once = Poller::Clock::now();
  poller_.Wait(busy_relays_
                   ? Deadline(at_once)
                   : Earliest({deadline, reception_.Deadline(), relays_.Deadline(), log_.Deadline(),
                               client_door_.Deadline(), device_door_.Deadline()}));
  const bool was_full = !relays_.HasRoom();
  busy_relays_ = relays_.Turn();
  Tick(Poller::Clock::now());
  if (was_full && relays_.HasRoom()) reception_.MeetAgain();
}

void JobServer::Loop::Tick(TimePoint now) {
  reception_.Tick(now);
  relays_.Tick(now);
  log_.Tick(now);
  client_door_.Tick(now);
  device_door_.Tick(now);
}

bool JobServer::Loop::IsIdle(TimePoint now) {
  if (!reception_.IsEmpty() || !relays_.IsEmpty()) last_busy_ = now;
  return options_.exit_when_idle && now - last_busy_ >= options_.times.idle;
}

// Once the lock is released no client finds this server any more; one that found it just before is
// served all the same.
bool JobServer::Loop::MayLeave() {
  bonjour_unregister(std::exchange(lock_, -1));
  if (!client_door_.SomebodyKnocks()) return true;
  lock_ = bonjour_register(kServerName, kScannerServiceType, client_door_.Port());
  return lock_ < 0;
}

void JobServer::Loop::CloseDoors() {
  client_door_.Close();
  device_door_.Close();
}

JobServer::JobServer() = default;

JobServer::~JobServer() {
  Stop();
}

bool JobServer::Open(const JobServerOptions& options) {
  loop_ = std::make_unique<Loop>(options);
  failure_ = loop_->Open();
  if (failure_.kind == Failure::kNone) return true;
  loop_.reset();
  return false;
}

void JobServer::Run() {
  loop_->Run();
}

bool JobServer::Start(const JobServerOptions& options) {
  if (!Open(options)) return false;
  try {
    thread_ = std::thread([this] { loop_->Run(); });
  } catch (const std::system_error& exception) {
    failure_ = {Failure::kOther, exception.what()};
    loop_.reset();
    return false;
  }
  return true;
}

void JobServer::Stop() {
  if (!thread_.joinable()) return;
  loop_->RequestStop();
  thread_.join();
}

void JobServer::RequestStop() {
  loop_->RequestStop();
}

JobServerPorts JobServer::Ports() const {
  return loop_->Ports();
}

JobServer::Failure JobServer::FailureKind() const {
  return failure_.kind;
}

const std::string& JobServer::Error() const {
  return failure_.text;
}

}  // namespace vox
