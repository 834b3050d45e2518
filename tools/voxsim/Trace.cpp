#include <cstdio>
#include <string>

#include "tools/voxsim/DeviceArguments.h"

namespace vox {

// One line an event: what, page, sequence id, byte count, the first bytes, the text.
void TraceEvent(const sim::Event& event) {
  std::string line = sim::EventName(event.kind);
  if (event.page != 0) line.append(" page ").append(std::to_string(event.page));
  if (event.count != 0) line.append(" ").append(std::to_string(event.count)).append(" bytes");
  char hex[4];
  for (std::size_t i = 0; i < event.bytes.size() && i < 32; ++i) {
    std::snprintf(hex, sizeof hex, " %02x", event.bytes[i]);
    line += hex;
  }
  if (event.bytes.size() > 32) line.append(" ... ").append(std::to_string(event.bytes.size()));
  if (!event.text.empty()) line.append(" (").append(event.text).append(")");
  std::fprintf(stderr, "%s\n", line.c_str());
}

}  // namespace vox
