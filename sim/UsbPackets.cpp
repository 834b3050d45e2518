#include "sim/UsbPackets.h"

#include <initializer_list>
#include <optional>

#include "sim/CommandPacket.h"
#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

constexpr std::uint32_t kFlatbedSource = 5, kFeederSource = 3;
constexpr std::uint32_t kTenThousandthsOfInches = 3;  // RFC 3805, PrtMediaUnitTC
constexpr std::uint32_t kUsbResolutionUnits = 10000;  // in one dpi
constexpr std::uint32_t kOneSheet = 1, kSheetsOfFeeder = 50;
constexpr std::uint32_t kFormatBilevel = 1, kFormatGrey = 0x16, kFormatColour = 0x3D;
constexpr std::uint32_t kExtraTable = 2;    // bit 1: there is a table of what else can be asked
constexpr std::uint32_t kExtraMargins = 1;  // bit 0 of the table's first word
constexpr std::uint32_t kOneSide = 1, kBothSides = 3;
constexpr std::size_t kExtraWords = 9, kProductWords = 17, kMarginWords = 4, kSourceWords = 13;

void Append(Bytes& bytes, std::initializer_list<std::uint32_t> words) {
  for (const std::uint32_t word : words) {
    bytes.resize(bytes.size() + 4);
    StoreLe32(&bytes[bytes.size() - 4], word);
  }
}

void PadTo(Bytes& bytes, std::size_t words) {
  bytes.resize(words * 4);
}

void AppendSource(Bytes& bytes, const UnitOptions& unit, bool is_feeder) {
  const auto preview = [](std::optional<std::uint32_t> dpi) {
    return dpi.value_or(0) * kUsbResolutionUnits;
  };
  Append(bytes,
         {is_feeder ? kFeederSource : kFlatbedSource, kTenThousandthsOfInches, unit.physical_width,
          unit.physical_height, is_feeder ? kSheetsOfFeeder : kOneSheet,
          unit.y_resolution_max * kUsbResolutionUnits, unit.x_resolution_max * kUsbResolutionUnits,
          unit.y_resolution_min * kUsbResolutionUnits, unit.x_resolution_min * kUsbResolutionUnits,
          preview(unit.preview_high), preview(unit.preview_high), preview(unit.preview_low),
          preview(unit.preview_low)});
}

// The glass comes first; a source that is not there is all zeros.
Bytes Sources(const DeviceOptions& options) {
  Bytes bytes;
  if (options.flatbed) AppendSource(bytes, *options.flatbed, false);
  PadTo(bytes, kSourceWords);
  if (options.feeder) AppendSource(bytes, *options.feeder, true);
  PadTo(bytes, 2 * kSourceWords);
  return bytes;
}

Bytes Formats(const DeviceOptions& options) {
  Bytes bytes;
  if (options.bilevel) Append(bytes, {kFormatBilevel});
  if (options.grey) Append(bytes, {kFormatGrey});
  if (options.colour) Append(bytes, {kFormatColour});
  PadTo(bytes, 3);
  return bytes;
}

Bytes Extra(const DeviceOptions& options) {
  Bytes bytes;
  if (options.usb.tells_margins) Append(bytes, {kExtraTable, kExtraMargins});
  PadTo(bytes, kExtraWords);
  return bytes;
}

Bytes Margins(const DeviceOptions& options) {
  Bytes bytes;
  const auto append = [&](const UnitOptions& unit) {
    Append(bytes, {unit.margin_top, unit.margin_bottom, unit.margin_left, unit.margin_right});
  };
  if (options.flatbed) append(*options.flatbed);
  PadTo(bytes, kMarginWords);
  if (options.feeder) append(*options.feeder);
  PadTo(bytes, 2 * kMarginWords);
  return bytes;
}

Bytes Product(const DeviceOptions& options) {
  Bytes bytes;
  Append(bytes, {0, options.support_paper, options.duplex == 0 ? kOneSide : kBothSides});
  PadTo(bytes, kProductWords);
  return bytes;
}

}  // namespace

Bytes BuildBlockHeader(std::uint32_t length, BlockNote note, std::uint8_t more) {
  Bytes bytes(kUsbHeaderSize);
  StoreLe32(bytes.data(), length);
  bytes[4] = kScanApplication;
  bytes[5] = static_cast<std::uint8_t>(note);
  bytes[6] = more;
  return bytes;
}

Bytes BuildInformation(const DeviceOptions& options, std::uint32_t code) {
  switch (code) {
    case kInformationSources:
      return Sources(options);
    case kInformationExtra:
      return Extra(options);
    case kInformationFormats:
      return Formats(options);
    case kInformationMargins:
      return Margins(options);
    case kInformationProduct:
      return Product(options);
    default:
      return {};
  }
}

Bytes BuildInformationHeader(std::uint32_t length) {
  Bytes bytes(kUsbHeaderSize);
  StoreLe32(&bytes[2], length);
  return bytes;
}

}  // namespace vox::sim
