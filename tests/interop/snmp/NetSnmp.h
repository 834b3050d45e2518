// net-snmp as the peer: its agent, started on a free port of loopback, and its command line tools.
#pragma once

#include <cstdint>
#include <string>

#include <sys/types.h>

namespace vox::test {

// Snmpd runs an agent with a configuration of its own for the object's lifetime. Community
// "public" reads, "private" writes.
class Snmpd {
 public:
  // `objects` are "override" lines of the configuration. Throws when the agent does not come up.
  explicit Snmpd(const std::string& objects);
  ~Snmpd();
  Snmpd(const Snmpd&) = delete;
  Snmpd& operator=(const Snmpd&) = delete;
  std::uint16_t Port() const { return port_; }

 private:
  bool Start(const std::string& objects);
  bool IsAnswering();
  void Stop();

  std::string folder_;
  std::uint16_t port_ = 0;
  pid_t process_ = -1;
};

// RunTool runs a net-snmp tool, "snmpget -c public", for version 1 with numeric OIDs against a
// port of loopback and gives what it prints.
std::string RunTool(const std::string& tool, std::uint16_t port, const std::string& arguments);

// Translated gives what snmptranslate makes of an OID's text.
std::string Translated(const std::string& oid);

}  // namespace vox::test
