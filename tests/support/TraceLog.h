// TraceLog keeps what the library traces while it lives: the texts that DS_LogText is given and
// discards. The test program is linked with --wrap for that function; else nothing is kept.
//
// Thread rule: one TraceLog at a time; the library may trace from any thread.
#pragma once

#include <string>
#include <vector>

namespace vox::test {

class TraceLog {
 public:
  TraceLog();
  ~TraceLog();
  TraceLog(const TraceLog&) = delete;
  TraceLog& operator=(const TraceLog&) = delete;

  std::vector<std::string> Lines() const;  // formatted, in their order
};

}  // namespace vox::test
