// BusProcess is an emulated bus in a process of its own, which this program's libusb sees while the
// object lives; the program itself runs with umockdev's library preloaded.
//
// Errors: a command that the bus refuses throws std::runtime_error.
// Thread rule: commands from any thread; made and destroyed while no other thread uses USB.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"

namespace vox::test {

struct Plugged {
  int bus = 1;
  std::string ports = "4";
  std::uint16_t vendor = 0x1209, product = 0xbeef;
  std::optional<std::string> manufacturer = "Veltronix", product_name = "Model 1",
                             serial = "VX0001";
  std::string shape = "scanner";  // or "printer", "both" (printer first), "driven" (has a driver)
};

class BusProcess {
 public:
  BusProcess();
  ~BusProcess();
  BusProcess(const BusProcess&) = delete;
  BusProcess& operator=(const BusProcess&) = delete;

  std::string Plug(const Plugged& plugged);  // gives its name
  void Unplug(const std::string& name) { Tell("unplug " + name); }
  void SetMode(const std::string& name, const std::string& octal);
  bool HasDriver(const std::string& name, int interface);

  void Send(const std::string& name, const std::string& message);
  void SendPattern(const std::string& name, std::size_t length);
  void Accept(const std::string& name, std::size_t packets);
  void Stall(const std::string& name, std::uint8_t endpoint);
  bool ReceivedPattern(const std::string& name, std::size_t length);
  std::string Lengths(const std::string& name) { return Tell("lengths " + name); }
  int Claims(const std::string& name) { return std::stoi(Tell("claims " + name)); }
  int ClearedHalts(const std::string& name) { return std::stoi(Tell("cleared " + name)); }
  // Tell sends a command as BusServer.cpp reads it, such as BusScanners.h's, and gives the answer.
  std::string Tell(const std::string& line) VOX_EXCLUDES(mutex_);
  std::size_t Unsent(const std::string& name) { return std::stoul(Tell("unsent " + name)); }

 private:
  std::string ReadLine();

  Mutex mutex_;
  pid_t process_ = -1;
  FileDescriptor to_, from_;
};

}  // namespace vox::test
