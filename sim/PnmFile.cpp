// PNM, as the Netpbm formats are described in pbm(5), pgm(5) and ppm(5): P1 to P3 plain text, P4 to
// P6 binary; one image after another.
#include <algorithm>
#include <optional>
#include <utility>

#include "sim/PageFiles.h"
#include "vox/platform/Bytes.h"

namespace vox::sim {
namespace {

bool IsSpace(std::uint8_t c) {
  return c == ' ' || (c >= '\t' && c <= '\r');
}

struct Header {
  int kind = 0;  // 1 to 6
  std::uint32_t width = 0, height = 0, maxval = 1;
  std::uint32_t Channels() const { return kind == 3 || kind == 6 ? 3 : 1; }
  bool IsBitmap() const { return kind == 1 || kind == 4; }
  bool IsPlain() const { return kind <= 3; }
};

void SkipBlanks(ByteReader& reader) {
  while (reader.Left() > 0) {
    if (*reader.Cursor() == '#') {
      while (reader.Left() > 0 && *reader.Cursor() != '\n') reader.TakeU8();
    } else if (IsSpace(*reader.Cursor())) {
      reader.TakeU8();
    } else {
      return;
    }
  }
}

std::optional<std::uint32_t> TakeNumber(ByteReader& reader) {
  SkipBlanks(reader);
  std::uint64_t value = 0;
  bool any = false;
  while (reader.Left() > 0 && *reader.Cursor() >= '0' && *reader.Cursor() <= '9') {
    value = value * 10 + (*reader.TakeU8() - '0');
    if (value > 0xFFFFFFFF) return std::nullopt;
    any = true;
  }
  if (!any) return std::nullopt;
  return static_cast<std::uint32_t>(value);
}

std::optional<Header> TakeHeader(ByteReader& reader) {
  const auto magic = reader.Take(2);
  if (!magic || (*magic)[0] != 'P' || (*magic)[1] < '1' || (*magic)[1] > '6') return std::nullopt;
  Header header;
  header.kind = (*magic)[1] - '0';
  const auto width = TakeNumber(reader);
  const auto height = TakeNumber(reader);
  const auto maxval = header.IsBitmap() ? std::optional<std::uint32_t>(1) : TakeNumber(reader);
  if (!width || !height || !maxval || *maxval < 1 || *maxval > 65535) return std::nullopt;
  header.width = *width;
  header.height = *height;
  header.maxval = *maxval;
  // One blank ends the header of a binary image.
  if (!header.IsPlain() && !reader.TakeU8()) return std::nullopt;
  return header;
}

std::uint8_t Scale(std::uint32_t value, std::uint32_t maxval) {
  value = std::min(value, maxval);
  return static_cast<std::uint8_t>((value * 255u + maxval / 2) / maxval);
}

// In a bitmap 1 is black; its plain digits need no blank between them.
std::optional<std::uint8_t> TakePlainSample(ByteReader& reader, const Header& header) {
  if (header.IsBitmap()) {
    SkipBlanks(reader);
    const auto digit = reader.TakeU8();
    if (!digit || (*digit != '0' && *digit != '1')) return std::nullopt;
    return *digit == '1' ? 0 : 255;
  }
  const auto value = TakeNumber(reader);
  if (!value) return std::nullopt;
  return Scale(*value, header.maxval);
}

bool TakePlain(ByteReader& reader, const Header& header, Image& image) {
  for (std::uint8_t& sample : image.samples) {
    const auto value = TakePlainSample(reader, header);
    if (!value) return false;
    sample = *value;
  }
  return true;
}

bool TakePacked(ByteReader& reader, const Header& header, Image& image) {
  std::uint8_t* out = image.samples.data();
  for (std::uint32_t y = 0; y < header.height; ++y) {
    const auto row = reader.Take((std::size_t{header.width} + 7) / 8);
    if (!row) return false;
    for (std::uint32_t x = 0; x < header.width; ++x) {
      *out++ = (*row)[x / 8] & (0x80 >> (x % 8)) ? 0 : 255;
    }
  }
  return true;
}

bool TakeBinary(ByteReader& reader, const Header& header, Image& image) {
  const std::size_t width = header.maxval > 255 ? 2 : 1;
  const auto bytes = reader.Take(image.samples.size() * width);
  if (!bytes) return false;
  for (std::size_t i = 0; i < image.samples.size(); ++i) {
    const std::uint8_t* at = bytes->data() + i * width;
    image.samples[i] = Scale(width == 2 ? LoadBe16(at) : *at, header.maxval);
  }
  return true;
}

// What is left must be able to hold the image, so that a few bytes never make a large allocation.
bool CanHold(const ByteReader& reader, const Header& header, std::uint64_t samples) {
  if (header.kind == 4) {
    return (std::uint64_t{header.width} + 7) / 8 * header.height <= reader.Left();
  }
  return samples <= reader.Left();
}

}  // namespace

bool LooksLikePnm(std::span<const std::uint8_t> bytes) {
  return bytes.size() >= 3 && bytes[0] == 'P' && bytes[1] >= '1' && bytes[1] <= '6' &&
         (IsSpace(bytes[2]) || bytes[2] == '#');
}

DecodedFile DecodePnm(std::span<const std::uint8_t> bytes, const PageFileLimits& limits) {
  DecodedFile file;
  ImageBudget budget(limits);
  ByteReader reader(bytes.data(), bytes.size());
  while (reader.Left() > 0) {
    if (file.images.size() >= limits.max_pages) return {{}, "PNM: too many images"};
    const auto header = TakeHeader(reader);
    if (!header) return {{}, "PNM: a header that cannot be read"};
    Image image{header->width, header->height, header->Channels(), 0, 0, {}};
    const std::string refusal = budget.Take(image.width, image.height, image.channels);
    if (!refusal.empty()) return {{}, "PNM: " + refusal};
    const std::uint64_t samples = std::uint64_t{image.width} * image.height * image.channels;
    if (!CanHold(reader, *header, samples)) return {{}, "PNM: the image is cut short"};
    image.samples.resize(samples);
    const bool whole = header->IsPlain()   ? TakePlain(reader, *header, image)
                       : header->kind == 4 ? TakePacked(reader, *header, image)
                                           : TakeBinary(reader, *header, image);
    if (!whole) return {{}, "PNM: the image is cut short"};
    file.images.push_back(std::move(image));
    SkipBlanks(reader);
  }
  return file;
}

}  // namespace vox::sim
