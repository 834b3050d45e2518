// Bytes to the job server's client door. Property: the answer depends on the first 15 bytes alone,
// however they are cut into pieces; what is read builds again to the same bytes.
#include <algorithm>
#include <cstdlib>

#include "fuzz/DoorHarness.h"
#include "tools/voxjobd/Messages.h"

namespace {

using namespace vox;

std::string ExpectedAnswer(std::span<const std::uint8_t> sent) {
  if (sent.size() < kRegistrationSize) return {};
  const auto message = sent.first<kRegistrationSize>();
  const Registration registration = ParseRegistration(message);
  const auto built = BuildRegistration(registration);
  if (!std::equal(built.begin(), built.end(), message.begin())) std::abort();
  return std::string(1, registration.type == kScanRegistration ? '\0' : '\1');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto input = DoorInput::From(data, size);
  if (!input) return 0;
  DoorHarness harness;
  const FileDescriptor client = harness.Visit(Visitor::Kind::kClient);
  if (!client) return 0;
  harness.Send(client, input->sent, input->piece);
  if (DoorHarness::Answer(client) != ExpectedAnswer(input->sent)) std::abort();
  return 0;
}
