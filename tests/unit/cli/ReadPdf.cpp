// PDFs read back with QPDF. C++17, as QPDF 11.3's headers are no C++20 for clang 14.
#include <memory>

#include <tiffio.h>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFPageObjectHelper.hh>

#include "tests/unit/cli/ReadBack.h"

namespace vox::cli::test {

namespace {

// Group 4 data of a PDF go into a TIFF for libtiff to decode.
Picture DecodeGroup4(QPDFObjectHandle image, std::uint32_t width, std::uint32_t height) {
  const auto raw = image.getRawStreamData();
  const TestFolder folder;
  const std::string path = folder.File("g4.tif");
  {
    const std::unique_ptr<TIFF, void (*)(TIFF*)> tiff(TIFFOpen(path.c_str(), "w"), TIFFClose);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff.get(), TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff.get(), TIFFTAG_BITSPERSAMPLE, 1);
    TIFFSetField(tiff.get(), TIFFTAG_SAMPLESPERPIXEL, 1);
    TIFFSetField(tiff.get(), TIFFTAG_ROWSPERSTRIP, height);
    TIFFSetField(tiff.get(), TIFFTAG_COMPRESSION, COMPRESSION_CCITTFAX4);
    TIFFSetField(tiff.get(), TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
    TIFFWriteRawStrip(tiff.get(), 0, raw->getBuffer(), static_cast<tmsize_t>(raw->getSize()));
  }
  return ReadTiff(path).at(0);
}

Picture DecodePdfImage(QPDFObjectHandle image) {
  QPDFObjectHandle dict = image.getDict();
  const auto width = static_cast<std::uint32_t>(dict.getKey("/Width").getIntValue());
  const auto height = static_cast<std::uint32_t>(dict.getKey("/Height").getIntValue());
  if (dict.getKey("/Filter").getName() == "/CCITTFaxDecode") {
    QPDFObjectHandle parameters = dict.getKey("/DecodeParms");
    Require(parameters.getKey("/K").getIntValue() == -1, "K is Group 4");
    Require(!parameters.hasKey("/BlackIs1"),
            "black pixels decode to 0, which DeviceGray shows black");
    return DecodeGroup4(image, width, height);
  }
  Picture picture;
  picture.width = width;
  picture.height = height;
  picture.bits = dict.getKey("/ColorSpace").getName() == "/DeviceRGB" ? 24 : 8;
  const auto data = image.getStreamData(qpdf_dl_generalized);
  Require(data->getSize() == LineBytes(picture) * height, "wrong amount of data");
  for (std::uint32_t y = 0; y < height; ++y) {
    const unsigned char* line = data->getBuffer() + y * LineBytes(picture);
    picture.lines.emplace_back(line, line + LineBytes(picture));
  }
  return picture;
}

}  // namespace

std::vector<Picture> ReadPdf(const std::string& path) {
  QPDF document;
  document.processFile(path.c_str());
  Require(document.getWarnings().empty(), "QPDF warns");
  std::vector<Picture> pictures;
  for (QPDFPageObjectHelper page : QPDFPageDocumentHelper(document).getAllPages()) {
    auto images = page.getImages();
    Require(images.size() == 1, "a page holds one image");
    Picture picture = DecodePdfImage(images.begin()->second);
    auto box = page.getMediaBox().getArrayAsVector();
    picture.x_dpi = picture.width * 72 / box.at(2).getNumericValue();
    picture.y_dpi = picture.height * 72 / box.at(3).getNumericValue();
    pictures.push_back(std::move(picture));
  }
  return pictures;
}

}  // namespace vox::cli::test
