#include "tools/vox/writers/MakeWriter.h"

#include <algorithm>
#include <array>

#include "tools/vox/writers/OutputFile.h"
#include "tools/vox/writers/PdfWriter.h"
#include "tools/vox/writers/PngWriter.h"
#include "tools/vox/writers/PnmWriter.h"
#include "tools/vox/writers/TiffWriter.h"
#include "tools/vox/writers/TurnedWriter.h"

namespace vox::cli {

namespace {

struct FormatRow {
  const char* name;  // also a file's ending
  ImageFormat format;
  bool is_option;  // may be said to --format
};

constexpr std::array<FormatRow, 8> kFormats{{
    {"png", ImageFormat::kPng, true},
    {"tiff", ImageFormat::kTiff, true},
    {"pnm", ImageFormat::kPnm, true},
    {"pdf", ImageFormat::kPdf, true},
    {"tif", ImageFormat::kTiff, true},
    {"pbm", ImageFormat::kPnm, false},
    {"pgm", ImageFormat::kPnm, false},
    {"ppm", ImageFormat::kPnm, false},
}};

std::string LowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

std::unique_ptr<ImageWriter> MakePlainWriter(std::unique_ptr<OutputFile> file, ImageFormat format) {
  switch (format) {
    case ImageFormat::kPng:
      return std::make_unique<PngWriter>(std::move(file));
    case ImageFormat::kTiff:
      return std::make_unique<TiffWriter>(std::move(file));
    case ImageFormat::kPdf:
      return std::make_unique<PdfWriter>(std::move(file));
    case ImageFormat::kPnm:
      break;
  }
  return std::make_unique<PnmWriter>(std::move(file));
}

}  // namespace

const char* FormatName(ImageFormat format) {
  const auto row = std::find_if(kFormats.begin(), kFormats.end(),
                                [&](const FormatRow& r) { return r.format == format; });
  return row->name;
}

std::optional<ImageFormat> FormatOfName(const std::string& name) {
  const std::string lower = LowerCase(name);
  for (const FormatRow& row : kFormats) {
    if (row.is_option && lower == row.name) return row.format;
  }
  return std::nullopt;
}

std::optional<ImageFormat> FormatOfFile(const std::string& path) {
  const auto dot = path.rfind('.');
  if (dot == std::string::npos || path.find('/', dot) != std::string::npos) return std::nullopt;
  const std::string ending = LowerCase(path.substr(dot + 1));
  for (const FormatRow& row : kFormats) {
    if (ending == row.name) return row.format;
  }
  return std::nullopt;
}

bool HoldsManyPages(ImageFormat format) {
  return format == ImageFormat::kTiff || format == ImageFormat::kPdf;
}

std::unique_ptr<ImageWriter> MakeWriter(const std::string& path, ImageFormat format, bool turned,
                                        int cancel_fd) {
  auto writer = MakePlainWriter(std::make_unique<OutputFile>(path, cancel_fd), format);
  if (!turned) return writer;
  return std::make_unique<TurnedWriter>(std::move(writer));
}

}  // namespace vox::cli
