#include "tools/voxjobd/Messages.h"

#include <algorithm>
#include <string_view>

#include "vox/platform/Bytes.h"

namespace vox {
namespace {

// Offsets of the registration.
constexpr std::size_t kType = 0, kAddress = 1, kRegisteredJob = 5, kRegisteredSequence = 13;

// Offsets of the notice: the header of a UDP command, then the job id.
constexpr std::size_t kSequence = 12, kAppCode = 14, kCommand = 15, kParamSize = 16, kJobId = 20;
constexpr std::string_view kHeaderText = "MFPP0200ML01";
constexpr std::uint8_t kScanApplication = 0x32;

}  // namespace

Registration ParseRegistration(std::span<const std::uint8_t, kRegistrationSize> bytes) {
  Registration registration;
  registration.type = bytes[kType];
  registration.key.device_address = LoadBe32(&bytes[kAddress]);
  std::copy_n(&bytes[kRegisteredJob], kJobIdSize, registration.key.job_id.begin());
  registration.key.sequence_id = LoadBe16(&bytes[kRegisteredSequence]);
  return registration;
}

std::array<std::uint8_t, kRegistrationSize> BuildRegistration(const Registration& registration) {
  std::array<std::uint8_t, kRegistrationSize> bytes{};
  bytes[kType] = registration.type;
  StoreBe32(&bytes[kAddress], registration.key.device_address);
  std::copy_n(registration.key.job_id.begin(), kJobIdSize, &bytes[kRegisteredJob]);
  StoreBe16(&bytes[kRegisteredSequence], registration.key.sequence_id);
  return bytes;
}

std::optional<Notice> ParseNotice(std::span<const std::uint8_t, kNoticeSize> bytes) {
  if (!std::equal(kHeaderText.begin(), kHeaderText.end(), bytes.begin())) return std::nullopt;
  if (bytes[kAppCode] != kScanApplication || bytes[kParamSize] != kJobIdSize) return std::nullopt;
  Notice notice;
  notice.sequence_id = LoadBe16(&bytes[kSequence]);
  notice.command = bytes[kCommand];
  std::copy_n(&bytes[kJobId], kJobIdSize, notice.job_id.begin());
  return notice;
}

std::array<std::uint8_t, kNoticeSize> BuildNotice(const Notice& notice) {
  std::array<std::uint8_t, kNoticeSize> bytes{};
  std::copy(kHeaderText.begin(), kHeaderText.end(), bytes.begin());
  StoreBe16(&bytes[kSequence], notice.sequence_id);
  bytes[kAppCode] = kScanApplication;
  bytes[kCommand] = notice.command;
  bytes[kParamSize] = kJobIdSize;
  std::copy_n(notice.job_id.begin(), kJobIdSize, &bytes[kJobId]);
  return bytes;
}

}  // namespace vox
