// The two messages that the job server understands, as pure functions between bytes and records.
// The layouts are in docs/wire/job-server.md; all numbers are big-endian.
//
// Thread rule: values.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

namespace vox {

inline constexpr std::size_t kRegistrationSize = 15;
inline constexpr std::size_t kNoticeSize = 28;
inline constexpr std::size_t kJobIdSize = 8;
inline constexpr std::uint8_t kScanRegistration = 0;  // the one type that is served
inline constexpr std::uint8_t kRegistrationAccepted = 0;
inline constexpr std::uint8_t kRegistrationRefused = 1;
inline constexpr std::uint8_t kPageNotice = 0x80;  // a data channel; other codes: an end channel

// JobKey says whose channel a connection is; both sides must name the same one.
struct JobKey {
  std::uint32_t device_address = 0;               // IPv4, host order
  std::array<std::uint8_t, kJobIdSize> job_id{};  // opaque
  std::uint16_t sequence_id = 0;                  // of the request that the channel answers
  bool operator==(const JobKey&) const = default;
};

struct Registration {
  std::uint8_t type = kScanRegistration;
  JobKey key;
};

struct Notice {
  std::array<std::uint8_t, kJobIdSize> job_id{};
  std::uint16_t sequence_id = 0;
  std::uint8_t command = 0;
};

Registration ParseRegistration(std::span<const std::uint8_t, kRegistrationSize> bytes);
std::array<std::uint8_t, kRegistrationSize> BuildRegistration(const Registration& registration);

// ParseNotice gives nothing when the text at the front, the application code or the parameter size
// is not that of a notice. The byte behind the parameter size and the reserved two are not looked
// at.
std::optional<Notice> ParseNotice(std::span<const std::uint8_t, kNoticeSize> bytes);
std::array<std::uint8_t, kNoticeSize> BuildNotice(const Notice& notice);

}  // namespace vox
