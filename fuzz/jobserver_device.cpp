// Bytes to the job server's device door, where a registration waits. Property: they meet exactly
// when the first 28 bytes are a notice of that job, however they are cut into pieces; what follows
// the notice stays for the relay; what is read builds again to the same bytes, the unread ones
// zero.
#include <algorithm>
#include <cstdlib>

#include "fuzz/DoorHarness.h"
#include "tools/voxjobd/Messages.h"

namespace {

using namespace vox;

constexpr JobKey kWaiting{
    kVisitorAddress, {0x11, 0x22, 0x33, 0x44, 0x55, 0x66, 0x77, 0x88}, 0x1234};
constexpr std::size_t kUnread = 17;  // three bytes of the header that are not looked at

bool ShouldMeet(std::span<const std::uint8_t> sent) {
  if (sent.size() < kNoticeSize) return false;
  std::array<std::uint8_t, kNoticeSize> message;
  std::copy_n(sent.begin(), kNoticeSize, message.begin());
  const auto notice = ParseNotice(message);
  if (!notice) return false;
  std::fill_n(message.begin() + kUnread, 3, std::uint8_t{0});
  if (BuildNotice(*notice) != message) std::abort();
  return JobKey{kVisitorAddress, notice->job_id, notice->sequence_id} == kWaiting;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto input = DoorInput::From(data, size);
  if (!input) return 0;
  DoorHarness harness;
  const FileDescriptor client = harness.Visit(Visitor::Kind::kClient);
  const FileDescriptor device = harness.Visit(Visitor::Kind::kDevice);
  if (!client || !device) return 0;
  harness.Send(client, BuildRegistration({kScanRegistration, kWaiting}), kRegistrationSize);
  harness.Send(device, input->sent, input->piece);
  if ((harness.meetings == 1) != ShouldMeet(input->sent)) std::abort();
  if (harness.meetings == 0) return 0;
  const std::string rest = DoorHarness::Answer(harness.last.device);
  const auto behind = input->sent.subspan(kNoticeSize);
  if (rest.size() != std::min<std::size_t>(behind.size(), 64)) std::abort();
  if (!std::equal(rest.begin(), rest.end(), behind.begin(),
                  [](char a, std::uint8_t b) { return static_cast<std::uint8_t>(a) == b; })) {
    std::abort();
  }
  return 0;
}
