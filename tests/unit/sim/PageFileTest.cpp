// Page files: what is read from good ones, and what is said about bad ones.
#include <gtest/gtest.h>
#include <png.h>
#include <tiffio.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sim/Render.h"

namespace vox::sim {
namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes Text(const std::string& text) {
  return {text.begin(), text.end()};
}

Bytes Join(std::string head, const Bytes& tail) {
  Bytes bytes = Text(head);
  bytes.insert(bytes.end(), tail.begin(), tail.end());
  return bytes;
}

// The pixels of a page at a resolution, R, G, B.
Bytes Pixels(const PagePtr& page, std::uint32_t dpi, std::uint32_t width, std::uint32_t height) {
  ScanInfo info;
  info.data_type = kColour;
  info.x_resolution = info.y_resolution = dpi;
  info.x_extent = width;
  info.y_extent = height;
  return RenderPage(page, info, {});
}

Bytes GreyPixels(const Bytes& file, std::uint32_t width, std::uint32_t height) {
  const auto loaded = LoadPages(file, {.default_dpi = 100});
  EXPECT_EQ(loaded.error, "");
  if (loaded.pages.empty()) return {};
  Bytes grey;
  const Bytes rgb = Pixels(loaded.pages[0], 100, width, height);
  for (std::size_t i = 0; i < rgb.size(); i += 3) grey.push_back(rgb[i]);
  return grey;
}

std::string ErrorOf(const Bytes& file, const PageFileLimits& limits = {}) {
  const auto loaded = LoadPages(file, limits);
  EXPECT_EQ(loaded.error.empty(), !loaded.pages.empty());
  return loaded.error;
}

TEST(PnmFile, SixKindsGiveTheSamePixels) {
  const Bytes bilevel = {0, 255, 0, 255, 255, 0};
  EXPECT_EQ(GreyPixels(Text("P1\n3 2\n101\n0 0 1\n"), 3, 2), bilevel);
  EXPECT_EQ(GreyPixels(Join("P4\n3 2\n", {0xA0, 0x20}), 3, 2), bilevel);
  EXPECT_EQ(GreyPixels(Text("P2 3 2 4\n0 4 0\n4 4 0"), 3, 2), bilevel);
  EXPECT_EQ(GreyPixels(Join("P5 3 2 255\n", bilevel), 3, 2), bilevel);
  const auto plain = LoadPages(Text("P3 1 1 10 10 0 5"), {.default_dpi = 100});
  EXPECT_EQ(Pixels(plain.pages.at(0), 100, 1, 1), (Bytes{255, 0, 128}));
  const auto binary = LoadPages(Join("P6 1 1 255\n", {255, 0, 128}), {.default_dpi = 100});
  EXPECT_EQ(Pixels(binary.pages.at(0), 100, 1, 1), (Bytes{255, 0, 128}));
}

TEST(PnmFile, CommentsMayStandInTheHeader) {
  EXPECT_EQ(GreyPixels(Text("P2 # kind\n#whole line\n1 #width\n1 255 # top\n7"), 1, 1), (Bytes{7}));
}

TEST(PnmFile, SixteenBitSamplesAreHighByteFirst) {
  EXPECT_EQ(GreyPixels(Join("P5 2 1 65535\n", {0x80, 0x80, 0xFF, 0xFF}), 2, 1), (Bytes{128, 255}));
}

TEST(PnmFile, SeveralImagesAreSeveralPages) {
  const auto loaded = LoadPages(Join("P5 1 1 255\n", Join("\x07P4 1 1\n", {0x80})));
  EXPECT_EQ(loaded.error, "");
  EXPECT_EQ(loaded.pages.size(), 2u);
}

TEST(PnmFile, BadOnesAreRefusedWithOneReason) {
  const struct {
    const char* file;
    const char* error;
  } rows[] = {
      {"P1", "neither PNM nor PNG nor TIFF"},
      {"P7\n", "neither PNM nor PNG nor TIFF"},
      {"P4\n", "PNM: a header that cannot be read"},
      {"P5 3 3 0\n", "PNM: a header that cannot be read"},
      {"P5 3 3 65536\n", "PNM: a header that cannot be read"},
      {"P5 3 -3 255\n", "PNM: a header that cannot be read"},
      {"P5 99999999999999999999 1 255\n", "PNM: a header that cannot be read"},
      {"P5 0 3 255\n", "PNM: an image without pixels"},
      {"P5 100001 1 255\n", "PNM: an image wider or higher than 100000 pixels"},
      {"P6 100000 100000 255\n", "PNM: too large for the memory that pages may take"},
      {"P5 3 3 255\n12345678", "PNM: the image is cut short"},
      {"P4 9 2\n123", "PNM: the image is cut short"},
      {"P1 2 2 1 0 1", "PNM: the image is cut short"},
      {"P1 2 2 1 0 1 2", "PNM: the image is cut short"},
      {"P2 2 1 255 1 x", "PNM: the image is cut short"},
      {"P5 1 1 255\n1P5", "PNM: a header that cannot be read"},
  };
  for (const auto& row : rows) EXPECT_EQ(ErrorOf(Text(row.file)), row.error) << row.file;
}

TEST(PnmFile, TheNumberOfPagesIsLimited) {
  EXPECT_EQ(ErrorOf(Text("P2 1 1 1 1 P2 1 1 1 0"), {.max_pages = 1}), "PNM: too many images");
}

class TemporaryFile {
 public:
  explicit TemporaryFile(const std::string& leaf)
      : path_(::testing::TempDir() + "/" + std::to_string(::getpid()) + leaf) {}
  ~TemporaryFile() { std::filesystem::remove(path_); }
  const std::string& Path() const { return path_; }
  Bytes Read() const {
    std::ifstream stream(path_, std::ios::binary);
    return Bytes(std::istreambuf_iterator<char>(stream), {});
  }

 private:
  const std::string path_;
};

// A PNG of 2 by 1 pixels with alpha and, when asked, a resolution in pixels per metre.
Bytes MakePng(std::uint32_t per_metre) {
  TemporaryFile file("page.png");
  FILE* stream = std::fopen(file.Path().c_str(), "wb");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, stream);
  png_set_IHDR(png, info, 2, 1, 8, PNG_COLOR_TYPE_RGB_ALPHA, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (per_metre != 0) png_set_pHYs(png, info, per_metre, per_metre, PNG_RESOLUTION_METER);
  png_write_info(png, info);
  Bytes row = {10, 20, 30, 255, 1, 2, 3, 0};
  png_write_row(png, row.data());
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  std::fclose(stream);
  return file.Read();
}

TEST(PngFile, ColoursComeAsTheyAreAndPaperShowsThroughAlpha) {
  const auto loaded = LoadPages(MakePng(0), {.default_dpi = 100});
  ASSERT_EQ(loaded.error, "");
  EXPECT_EQ(Pixels(loaded.pages.at(0), 100, 2, 1), (Bytes{10, 20, 30, 255, 255, 255}));
}

TEST(PngFile, TheResolutionComesFromThePhysChunk) {
  // 7874 pixels a metre are 199.9996 dpi: 2 pixels are 100 ten-thousandths of an inch.
  const auto loaded = LoadPages(MakePng(7874), {.default_dpi = 100});
  EXPECT_EQ(loaded.pages.at(0)->Size().width, 100u);
  const auto unsaid = LoadPages(MakePng(0), {.default_dpi = 100});
  EXPECT_EQ(unsaid.pages.at(0)->Size().width, 200u);
  const auto forced = LoadPages(MakePng(7874), {.force_dpi = 50});
  EXPECT_EQ(forced.pages.at(0)->Size().width, 400u);
}

TEST(PngFile, CutAndChangedFilesAreRefused) {
  const Bytes whole = MakePng(7874);
  for (std::size_t size = 8; size + 12 < whole.size(); ++size) {
    EXPECT_TRUE(ErrorOf({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)})
                    .starts_with("PNG: "))
        << size;
  }
  Bytes wide = whole;  // a width of 2^24: refused before memory is taken, or by its checksum
  wide[16] = 1;
  EXPECT_TRUE(ErrorOf(wide).starts_with("PNG: "));
}

// A TIFF with a bilevel page of 8 by 2 pixels at 200 dpi and a colour page of 1 by 1 at 40 per cm.
Bytes MakeTiff() {
  TemporaryFile file("page.tif");
  TIFF* tiff = TIFFOpen(file.Path().c_str(), "w");
  const auto set_common = [&](std::uint32_t width, std::uint32_t height, int bits, int samples) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, samples);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, height);
  };
  set_common(8, 2, 1, 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
  TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 200.0);
  TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 100.0);
  TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  std::uint8_t rows[] = {0xF0, 0x01};
  TIFFWriteEncodedStrip(tiff, 0, rows, 2);
  TIFFWriteDirectory(tiff);
  set_common(1, 1, 8, 3);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(tiff, TIFFTAG_XRESOLUTION, 40.0);
  TIFFSetField(tiff, TIFFTAG_YRESOLUTION, 40.0);
  TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER);
  std::uint8_t pixel[] = {9, 8, 7};
  TIFFWriteEncodedStrip(tiff, 0, pixel, 3);
  TIFFWriteDirectory(tiff);
  TIFFClose(tiff);
  return file.Read();
}

TEST(TiffFile, EveryDirectoryIsAPageWithItsResolution) {
  const auto loaded = LoadPages(MakeTiff());
  ASSERT_EQ(loaded.error, "");
  ASSERT_EQ(loaded.pages.size(), 2u);
  EXPECT_EQ(loaded.pages[0]->Size().width, 400u);   // 8 at 200 dpi
  EXPECT_EQ(loaded.pages[0]->Size().height, 200u);  // 2 at 100 dpi
  EXPECT_EQ(loaded.pages[1]->Size().width, 98u);    // 1 at 101.6 dpi
  ScanInfo info;
  info.x_resolution = 200;
  info.y_resolution = 100;
  info.x_extent = 8;
  info.y_extent = 2;
  // In the file 1 is black; on the wire 1 is white.
  EXPECT_EQ(RenderPage(loaded.pages[0], info, {}), (Bytes{0x0F, 0xFE}));
  EXPECT_EQ(Pixels(loaded.pages[1], 100, 1, 1), (Bytes{9, 8, 7}));
}

TEST(TiffFile, CutFilesAreRefusedOrGiveWhatIsWhole) {
  const Bytes whole = MakeTiff();
  std::size_t refused = 0;
  for (std::size_t size = 4; size < whole.size(); ++size) {
    const auto loaded =
        LoadPages({whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)});
    EXPECT_EQ(loaded.error.empty(), !loaded.pages.empty()) << size;
    refused += !loaded.error.empty();
  }
  EXPECT_GT(refused, whole.size() / 2);
}

TEST(PageFile, AMissingFileIsNamed) {
  const auto missing = LoadPageFile("/nowhere/page.png");
  EXPECT_EQ(missing.error, "/nowhere/page.png: No such file or directory");
  EXPECT_EQ(missing.error_number, ENOENT);
  EXPECT_EQ(LoadPageFile("/").error, "/: Is a directory");
  EXPECT_EQ(LoadPageFile("/dev/null").error, "/dev/null: not a plain file");
}

TEST(PageFile, AFileIsReadFromTheDisk) {
  TemporaryFile file("page.pnm");
  std::ofstream(file.Path()) << "P2 1 1 255 7";
  const auto loaded = LoadPageFile(file.Path(), {.default_dpi = 100});
  ASSERT_EQ(loaded.error, "");
  EXPECT_EQ(Pixels(loaded.pages.at(0), 100, 1, 1), (Bytes{7, 7, 7}));
  std::ofstream(file.Path()) << "P2 1 1 255";
  EXPECT_EQ(LoadPageFile(file.Path()).error, file.Path() + ": PNM: the image is cut short");
}

}  // namespace
}  // namespace vox::sim
