// Datagrams that reach the virtual device. The first byte chooses the port. Properties: an SNMP
// answer is itself a message that the same rules read, and asking the same again gives the same
// answer; a command's reply carries the command's sequence id, application code and a true size.
#include <cstdint>
#include <cstdlib>
#include <span>

#include "sim/CommandResponder.h"
#include "sim/DeviceMib.h"

namespace {

using namespace vox::sim;

void Expect(bool holds) {
  if (!holds) std::abort();
}

void AskAgent(std::span<const std::uint8_t> datagram) {
  static const DeviceOptions options;
  SnmpAgent agent("public");
  AddDeviceObjects(agent, options, {});
  agent.Add("1.3.6.1.2.1.1.3.0", {[] { return IntegerValue(0); }, nullptr, nullptr});  // no clock
  const auto answer = agent.Answer(datagram);
  if (!answer) return;
  vox::ByteReader reader(answer->data(), answer->size());
  Expect(TakeBerContents(reader, kBerSequence).has_value() && reader.Left() == 0);
  Expect(!agent.Answer(*answer));  // a response is no request
  Expect(agent.Answer(datagram) == answer);
}

void AskResponder(std::span<const std::uint8_t> datagram) {
  DeviceOptions options;
  SettleOptions(options);
  EventLog events;
  FaultBox faults{Faults{}};
  JobDesk desk(options, events);
  CommandResponder responder(desk, faults, events);
  for (const OutgoingReply& reply : responder.Handle(datagram, 0x7F000001)) {
    const auto command = ParseCommand(datagram);
    const auto parsed = ParseCommand(reply.bytes);
    Expect(command && parsed);
    Expect(parsed->sequence_id == command->sequence_id);
    Expect(parsed->application == command->application);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::span<const std::uint8_t> datagram(data + 1, size - 1);
  data[0] % 2 == 0 ? AskAgent(datagram) : AskResponder(datagram);
  return 0;
}
