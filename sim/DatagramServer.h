// DatagramServer is the thread behind a device's two UDP ports: it hands datagrams to the SNMP
// agent and the command responder and sends their answers when their time has come.
//
// Thread rule: Open and Run from one thread each, in this order; Stop from any.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "sim/CommandResponder.h"
#include "sim/DeviceOptions.h"
#include "sim/Events.h"
#include "sim/FaultBox.h"
#include "sim/SnmpAgent.h"
#include "sim/Sockets.h"

namespace vox::sim {

class DatagramServer {
 public:
  DatagramServer(const SnmpAgent& agent, CommandResponder& responder, FaultBox& faults,
                 EventLog& events)
      : agent_(agent), responder_(responder), faults_(faults), events_(events) {}

  // Open binds the ports that a device is to have; an empty text, or what failed.
  std::string Open(std::uint32_t address, const DeviceOptions& options);
  std::uint16_t SnmpPort() const { return PortOf(snmp_); }
  std::uint16_t CommandPort() const { return PortOf(command_); }
  void Run();
  void Stop() { stop_.Raise(); }

 private:
  using Clock = std::chrono::steady_clock;
  enum class From : std::uint8_t { kSnmp, kCommand, kOther };
  struct Waiting {
    Bytes bytes;
    Endpoint to;
    From from;
  };

  std::string OpenOther(std::uint32_t address, const std::string& other);
  void TakeSnmp(const FileDescriptor& socket, From own);
  void QueueSnmp(Bytes answer, const Endpoint& to, From own);
  void TakeCommand();
  void Queue(Waiting datagram, std::chrono::milliseconds delay);
  void SendDue();
  int NextWait() const;

  const SnmpAgent& agent_;
  CommandResponder& responder_;
  FaultBox& faults_;
  EventLog& events_;
  EventFd stop_;
  FileDescriptor snmp_, command_, broadcast_;
  FileDescriptor other_;      // where what is to come from elsewhere comes from
  bool asked_there_ = false;  // whether other_ is a second address, with an SNMP port
  std::multimap<Clock::time_point, Waiting> queue_;  // equal times keep their order
};

}  // namespace vox::sim
