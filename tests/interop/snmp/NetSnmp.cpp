#include "tests/interop/snmp/NetSnmp.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/UdpPeer.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"

namespace vox::test {
namespace {

std::uint16_t FreePort() {
  return UdpPeer(Silent()).Port();
}

// Output gives what a shell command prints, without its last line end.
std::string Output(const std::string& command) {
  FILE* const pipe = ::popen(command.c_str(), "r");
  if (!pipe) throw std::runtime_error(command);
  std::string text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
  ::pclose(pipe);
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

}  // namespace

Snmpd::Snmpd(const std::string& objects) {
  char folder[] = "/tmp/vox-snmpd-XXXXXX";
  if (!::mkdtemp(folder)) throw std::runtime_error("no folder for snmpd");
  folder_ = folder;
  // Somebody may take the port before the agent does; then another is tried.
  for (int attempt = 0; attempt < 5; ++attempt) {
    if (Start(objects)) return;
    Stop();
  }
  const std::string log = Output("cat '" + folder_ + "/log'");
  std::filesystem::remove_all(folder_);
  throw std::runtime_error("snmpd (Debian package snmpd) does not come up:\n" + log);
}

Snmpd::~Snmpd() {
  Stop();
  std::filesystem::remove_all(folder_);
}

bool Snmpd::Start(const std::string& objects) {
  port_ = FreePort();
  const std::string address = "udp:127.0.0.1:" + std::to_string(port_);
  const std::string configuration = folder_ + "/agent.conf", log = folder_ + "/log";
  std::ofstream(configuration) << "rocommunity public 127.0.0.1\nrwcommunity private 127.0.0.1\n"
                               << objects;
  const pid_t parent = ::getpid();
  process_ = ::fork();
  if (process_ == 0) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    if (::getppid() != parent) ::_exit(1);
    ::setenv("MIBS", "", 1);
    ::setenv("SNMP_PERSISTENT_DIR", folder_.c_str(), 1);
    ::setenv("SNMPCONFPATH", folder_.c_str(), 1);
    ::setenv("PATH", "/usr/sbin:/usr/bin:/sbin:/bin", 1);
    ::execlp("snmpd", "snmpd", "-f", "-r", "-C", "-c", configuration.c_str(), "-Lf", log.c_str(),
             "-p", (folder_ + "/pid").c_str(), address.c_str(), nullptr);
    ::_exit(127);
  }
  return process_ > 0 && IsAnswering();
}

bool Snmpd::IsAnswering() {
  const NetSettings settings(port_, 50);
  for (int attempt = 0; attempt < 100; ++attempt) {
    if (::waitpid(process_, nullptr, WNOHANG) != 0) {
      process_ = -1;
      return false;
    }
    std::uint8_t name[256];
    _tagMIBREQ request{"1.3.6.1.2.1.1.5.0", 0, sizeof name, name};
    if (SnmpGet("127.0.0.1", nullptr, &request) == 0) return true;
  }
  return false;
}

void Snmpd::Stop() {
  if (process_ <= 0) return;
  ::kill(process_, SIGTERM);
  ::waitpid(process_, nullptr, 0);
  process_ = -1;
}

std::string RunTool(const std::string& tool, std::uint16_t port, const std::string& arguments) {
  return Output("MIBS= SNMPCONFPATH=/nonexistent timeout 20 " + tool +
                " -v1 -On -r0 -t5 127.0.0.1:" + std::to_string(port) + " " + arguments + " 2>&1");
}

std::string Translated(const std::string& oid) {
  return Output("MIBS= SNMPCONFPATH=/nonexistent timeout 20 snmptranslate -On " + oid + " 2>&1");
}

}  // namespace vox::test
