#include "tests/unit/cli/ReadBack.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <png.h>
#include <tiffio.h>

namespace vox::cli::test {

void Require(bool good, const std::string& what) {
  if (!good) throw std::runtime_error(what);
}

std::size_t LineBytes(const Picture& picture) {
  return (std::size_t{picture.width} * picture.bits + 7) / 8;
}

namespace {

void ClearPadding(Bytes& line, const Picture& picture) {
  const unsigned used = picture.width * picture.bits % 8;
  if (used != 0) line.back() &= static_cast<std::uint8_t>(0xFF00 >> used);
}

void Invert(Bytes& line) {
  for (std::uint8_t& byte : line) byte = static_cast<std::uint8_t>(~byte);
}

}  // namespace

Bytes ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  Require(in.good(), "cannot open " + path);
  return Bytes(std::istreambuf_iterator<char>(in), {});
}

Picture ReadPng(const std::string& path) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), std::fclose);
  Require(file != nullptr, "cannot open " + path);
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  Picture picture;
  volatile bool good = false;
  if (setjmp(png_jmpbuf(png)) == 0) {
    png_init_io(png, file.get());
    png_read_png(png, info, PNG_TRANSFORM_IDENTITY, nullptr);
    good = true;
  }
  Require(good, path + " is no PNG");
  picture.width = png_get_image_width(png, info);
  picture.height = png_get_image_height(png, info);
  picture.bits = unsigned{png_get_bit_depth(png, info)} * png_get_channels(png, info);
  picture.x_dpi = png_get_x_pixels_per_meter(png, info) * 0.0254;
  picture.y_dpi = png_get_y_pixels_per_meter(png, info) * 0.0254;
  png_bytepp rows = png_get_rows(png, info);
  for (std::uint32_t y = 0; y < picture.height; ++y) {
    picture.lines.emplace_back(rows[y], rows[y] + LineBytes(picture));
    ClearPadding(picture.lines.back(), picture);
  }
  png_destroy_read_struct(&png, &info, nullptr);
  return picture;
}

std::vector<Picture> ReadTiff(const std::string& path) {
  const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(path.c_str(), "r"), TIFFClose);
  Require(tiff != nullptr, path + " is no TIFF");
  std::vector<Picture> pictures;
  do {
    Picture picture;
    std::uint16_t bits = 0, samples = 0, photometric = 0, compression = 0, unit = 0;
    float x = 0, y = 0;
    TIFFGetField(tiff.get(), TIFFTAG_IMAGEWIDTH, &picture.width);
    TIFFGetField(tiff.get(), TIFFTAG_IMAGELENGTH, &picture.height);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_BITSPERSAMPLE, &bits);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, &samples);
    TIFFGetField(tiff.get(), TIFFTAG_PHOTOMETRIC, &photometric);
    TIFFGetField(tiff.get(), TIFFTAG_COMPRESSION, &compression);
    TIFFGetField(tiff.get(), TIFFTAG_XRESOLUTION, &x);
    TIFFGetField(tiff.get(), TIFFTAG_YRESOLUTION, &y);
    TIFFGetFieldDefaulted(tiff.get(), TIFFTAG_RESOLUTIONUNIT, &unit);
    picture.bits = unsigned{bits} * samples;
    Require((picture.bits == 1) == (compression == COMPRESSION_CCITTFAX4),
            "bilevel pages and no others are Group 4");
    Require(unit == RESUNIT_INCH, "the unit is inches");
    picture.x_dpi = x;
    picture.y_dpi = y;
    for (std::uint32_t line = 0; line < picture.height; ++line) {
      Bytes bytes(static_cast<std::size_t>(TIFFScanlineSize(tiff.get())));
      Require(TIFFReadScanline(tiff.get(), bytes.data(), line) == 1, "a line cannot be read");
      if (photometric == PHOTOMETRIC_MINISWHITE) Invert(bytes);
      ClearPadding(bytes, picture);
      picture.lines.push_back(std::move(bytes));
    }
    pictures.push_back(std::move(picture));
  } while (TIFFReadDirectory(tiff.get()) == 1);
  return pictures;
}

std::vector<Picture> ReadPnm(const Bytes& file) {
  std::istringstream in(std::string(file.begin(), file.end()));
  std::vector<Picture> pictures;
  std::string magic;
  while (in >> magic) {
    Picture picture;
    unsigned greatest = 1;
    Require(magic == "P4" || magic == "P5" || magic == "P6", "not a raw PNM: " + magic);
    in >> picture.width >> picture.height;
    if (magic != "P4") in >> greatest;
    Require(greatest == (magic == "P4" ? 1U : 255U) && in.get() == '\n', "bad header");
    picture.bits = magic == "P4" ? 1 : magic == "P5" ? 8 : 24;
    for (std::uint32_t y = 0; y < picture.height; ++y) {
      std::string text(LineBytes(picture), '\0');
      Require(bool(in.read(text.data(), static_cast<std::streamsize>(text.size()))), "cut short");
      Bytes line(text.begin(), text.end());
      if (picture.bits == 1) Invert(line);
      ClearPadding(line, picture);
      picture.lines.push_back(std::move(line));
    }
    pictures.push_back(std::move(picture));
  }
  return pictures;
}

std::vector<Picture> ReadAny(const std::string& format, const std::string& path) {
  if (format == "png") return {ReadPng(path)};
  if (format == "tiff") return ReadTiff(path);
  if (format == "pdf") return ReadPdf(path);
  return ReadPnm(ReadFile(path));
}

Bytes TestLine(std::uint32_t width, unsigned bits, std::uint32_t y) {
  Bytes line((std::size_t{width} * bits + 7) / 8);
  for (std::uint32_t x = 0; x < width; ++x) {
    if (bits == 1 && (x * 7 + y * 3) % 5 < 2)
      line[x / 8] |= static_cast<std::uint8_t>(0x80 >> x % 8);
    if (bits == 8) line[x] = static_cast<std::uint8_t>(x * 5 + y * 11);
    for (unsigned c = 0; bits == 24 && c < 3; ++c)
      line[x * 3 + c] = static_cast<std::uint8_t>(x * 5 + y * 11 + c * 85);
  }
  return line;
}

TestFolder::TestFolder() {
  const char* wanted = std::getenv("TMPDIR");
  path_ = std::string(wanted != nullptr ? wanted : "/tmp") + "/vox-cli-test-XXXXXX";
  Require(::mkdtemp(path_.data()) != nullptr, "no folder for the test");
}

TestFolder::~TestFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::vector<std::string> TestFolder::Leaves() const {
  std::vector<std::string> leaves;
  for (const auto& entry : std::filesystem::directory_iterator(path_))
    leaves.push_back(entry.path().filename());
  std::sort(leaves.begin(), leaves.end());
  return leaves;
}

}  // namespace vox::cli::test
