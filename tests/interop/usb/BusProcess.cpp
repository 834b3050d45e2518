#include "tests/interop/usb/BusProcess.h"

#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

namespace vox::test {
namespace {

constexpr int kLongestAnswerMs = 60000;

std::string Words(const std::optional<std::string>& text) {
  if (!text) return " -";
  std::string hex = " x";
  for (const char letter : *text) {
    char digits[3];
    std::snprintf(digits, sizeof digits, "%02x", static_cast<unsigned char>(letter));
    hex += digits;
  }
  return hex;
}

std::string Hex(unsigned number) {
  char digits[16];
  std::snprintf(digits, sizeof digits, " %x", number);
  return digits;
}

}  // namespace

BusProcess::BusProcess() {
  int to[2], from[2];
  if (::pipe2(to, O_CLOEXEC) != 0 || ::pipe2(from, O_CLOEXEC) != 0) {
    throw std::runtime_error("no pipe");
  }
  process_ = ::fork();
  if (process_ == 0) {
    ::dup2(to[0], 0);
    ::dup2(from[1], 1);
    ::unsetenv("UMOCKDEV_DIR");
    // GLib, which is not instrumented, hands things over to its threads unseen.
    ::setenv("TSAN_OPTIONS", "report_bugs=0", 1);
    ::execl(VOX_USB_BUS_SERVER, VOX_USB_BUS_SERVER, nullptr);
    ::_exit(127);
  }
  to_.Reset(to[1]);
  from_.Reset(from[0]);
  ::close(to[0]);
  ::close(from[1]);
  ::setenv("UMOCKDEV_DIR", ReadLine().c_str(), 1);
}

BusProcess::~BusProcess() {
  to_.Reset();
  ::waitpid(process_, nullptr, 0);
  ::unsetenv("UMOCKDEV_DIR");
}

std::string BusProcess::ReadLine() {
  std::string line;
  while (true) {
    pollfd wait{from_.Get(), POLLIN, 0};
    char letter = 0;
    if (::poll(&wait, 1, kLongestAnswerMs) != 1 || ::read(from_.Get(), &letter, 1) != 1) {
      throw std::runtime_error("the emulated bus does not answer");
    }
    if (letter == '\n') return line;
    line += letter;
  }
}

std::string BusProcess::Tell(const std::string& line) {
  const MutexLock lock(mutex_);
  const std::string whole = line + "\n";
  if (::write(to_.Get(), whole.data(), whole.size()) != static_cast<ssize_t>(whole.size())) {
    throw std::runtime_error("the emulated bus is gone");
  }
  const std::string answer = ReadLine();
  if (answer.starts_with("error: ")) throw std::runtime_error(line + ": " + answer);
  return answer;
}

std::string BusProcess::Plug(const Plugged& plugged) {
  return Tell("plug " + std::to_string(plugged.bus) + " " + plugged.ports + Hex(plugged.vendor) +
              Hex(plugged.product) + Words(plugged.manufacturer) + Words(plugged.product_name) +
              Words(plugged.serial) + " " + plugged.shape);
}

void BusProcess::SetMode(const std::string& name, const std::string& octal) {
  Tell("mode " + name + " " + octal);
}

bool BusProcess::HasDriver(const std::string& name, int interface) {
  return Tell("driver " + name + " " + std::to_string(interface)) == "1";
}

void BusProcess::Send(const std::string& name, const std::string& message) {
  Tell("send " + name + Words(message));
}

void BusProcess::SendPattern(const std::string& name, std::size_t length) {
  Tell("pattern " + name + " " + std::to_string(length));
}

void BusProcess::Accept(const std::string& name, std::size_t packets) {
  Tell("accept " + name + " " + std::to_string(packets));
}

void BusProcess::Stall(const std::string& name, std::uint8_t endpoint) {
  Tell("stall " + name + Hex(endpoint));
}

bool BusProcess::ReceivedPattern(const std::string& name, std::size_t length) {
  return Tell("received " + name + " " + std::to_string(length)) == "same";
}

}  // namespace vox::test
