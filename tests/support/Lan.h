// Lan is several machines on one Ethernet switch, with real broadcasts: each machine is a network
// namespace of the kernel with an interface "eth0", and a bridge in a namespace of its own joins
// them.
//
//   Lan lan(3);  // 10.77.0.1, 10.77.0.2 and 10.77.0.3
//   if (!lan.Error().empty()) GTEST_SKIP() << lan.Error();
//   {
//     const Inside inside(lan[0]);
//     ... sockets, threads and processes that are made here belong to the first machine ...
//   }
//
// Nothing of it has a name outside this process, so any number may run at once, and the kernel
// takes all of it away with the last descriptor, socket and thread in it, however the process ends.
// It needs CAP_SYS_ADMIN, or user namespaces and a process that has no second thread yet.
//
// Thread rule: a Lan and its machines belong to one thread; Inside may be used by any.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "vox/platform/FileDescriptor.h"

namespace vox::test {

class Machine {
 public:
  const std::string& Address() const { return address_; }
  std::array<std::uint8_t, 6> Mac() const;

  // SetAddress gives the machine another address on the same network instead of its own.
  void SetAddress(const std::string& dotted);
  // AddAddress gives it a second one.
  void AddAddress(const std::string& dotted) const;
  // Unplug pulls the network cable: its address does not even answer ping. Plug puts it back, and
  // returns when it carries.
  void Unplug() const;
  void Plug() const;
  // AdmitToPing says which groups may open datagram sockets for ping, as in "0 0"; "1 0" is nobody,
  // with which a machine begins.
  void AdmitToPing(const std::string& groups) const;

 private:
  friend class Lan;
  friend class Inside;

  FileDescriptor network_;
  const FileDescriptor* switch_ = nullptr;
  std::string port_;  // of the switch
  std::string address_;
};

class Inside {
 public:
  explicit Inside(const Machine& machine);
  explicit Inside(const FileDescriptor& network);
  ~Inside();
  Inside(const Inside&) = delete;
  Inside& operator=(const Inside&) = delete;

 private:
  FileDescriptor before_;
};

class Lan {
 public:
  // Sets `machines` of them up; at most 250.
  explicit Lan(std::size_t machines);
  // Error says why there is no network; empty when there is one.
  Lan(const Lan&) = delete;
  Lan& operator=(const Lan&) = delete;
  const std::string& Error() const { return error_; }
  Machine& operator[](std::size_t machine) { return machines_[machine]; }
  std::size_t Size() const { return machines_.size(); }

 private:
  std::string Join();

  std::string error_;
  FileDescriptor switch_;
  std::vector<Machine> machines_;
};

}  // namespace vox::test
