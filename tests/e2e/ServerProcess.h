// ServerProcess is the job server in a process of its own, to be killed.
//
// Thread rule: the owner's thread.
#pragma once

#include <cstdint>

#include <sys/types.h>

namespace vox::test {

class ServerProcess {
 public:
  ServerProcess();
  ~ServerProcess() { Kill(); }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  std::uint16_t DevicePort() const { return device_port_; }
  pid_t Process() const { return process_; }
  void Kill();  // at once

 private:
  pid_t process_ = -1;
  std::uint16_t device_port_ = 0;
};

}  // namespace vox::test
