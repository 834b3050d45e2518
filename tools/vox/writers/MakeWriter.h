// The image formats that vox writes: their names, how a file name tells them, and their writers.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "tools/vox/writers/ImageWriter.h"

namespace vox::cli {

enum class ImageFormat { kPng, kTiff, kPnm, kPdf };

// FormatName gives "png", "tiff", "pnm" or "pdf".
const char* FormatName(ImageFormat format);

// FormatOfName knows "png", "tiff", "tif", "pnm" and "pdf" in any case; nothing for others.
std::optional<ImageFormat> FormatOfName(const std::string& name);

// FormatOfFile tells a format from a file's ending: .png .tif .tiff .pnm .pbm .pgm .ppm .pdf.
std::optional<ImageFormat> FormatOfFile(const std::string& path);

// HoldsManyPages: one file of the format takes any number of pages.
bool HoldsManyPages(ImageFormat format);

// MakeWriter opens `path` ("-": standard output) for one file of `format`; `turned` pages are
// turned by 180 degrees. `cancel_fd` as for OutputFile. Throws Failure.
std::unique_ptr<ImageWriter> MakeWriter(const std::string& path, ImageFormat format, bool turned,
                                        int cancel_fd);

}  // namespace vox::cli
