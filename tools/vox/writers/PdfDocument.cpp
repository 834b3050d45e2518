#include "tools/vox/writers/PdfDocument.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

namespace vox::cli {

namespace {

constexpr double kPointsPerInch = 72.0;
constexpr std::uint64_t kPiece = 1 << 20;

// Points with four digits: a hundredth of a pixel at 1200 dpi.
std::string Points(std::uint32_t pixels, double dpi) {
  char text[48];
  std::snprintf(text, sizeof text, "%.4f", pixels / dpi * kPointsPerInch);
  return text;
}

class SinkPipeline : public Pipeline {
 public:
  explicit SinkPipeline(const PdfSink& sink) : Pipeline("sink", nullptr), sink_(sink) {}
  void write(unsigned char const* data, std::size_t size) override { sink_(data, size); }
  void finish() override {}

 private:
  const PdfSink& sink_;
};

std::string Dictionary(const PdfPage& page) {
  return "<< /Type /XObject /Subtype /Image /Width " + std::to_string(page.width) + " /Height " +
         std::to_string(page.height) + " /BitsPerComponent " + (page.bits == 1 ? "1" : "8") +
         " /ColorSpace " + (page.bits == 24 ? "/DeviceRGB" : "/DeviceGray") + " >>";
}

std::string DecodeParameters(const PdfPage& page) {
  const std::string columns = " /Columns " + std::to_string(page.width);
  if (page.bits == 1) return "<< /K -1" + columns + " /Rows " + std::to_string(page.height) + " >>";
  return "<< /Predictor 2 /BitsPerComponent 8 /Colors " + std::string(page.bits == 24 ? "3" : "1") +
         columns + " >>";
}

// The image's data are fetched when the document is written.
QPDFObjectHandle MakeImage(QPDF& document, const PdfPage& page, const PdfSource& source) {
  QPDFObjectHandle image = QPDFObjectHandle::newStream(&document);
  image.replaceDict(QPDFObjectHandle::parse(Dictionary(page)));
  const auto provide = [page, source](Pipeline* out) {
    std::vector<std::uint8_t> piece(kPiece);
    for (std::uint64_t done = 0; done < page.bytes;) {
      const auto size = static_cast<std::size_t>(std::min(kPiece, page.bytes - done));
      source(page.offset + done, piece.data(), size);
      out->write(piece.data(), size);
      done += size;
    }
    out->finish();
  };
  image.replaceStreamData(
      provide, QPDFObjectHandle::newName(page.bits == 1 ? "/CCITTFaxDecode" : "/FlateDecode"),
      QPDFObjectHandle::parse(DecodeParameters(page)));
  return document.makeIndirectObject(image);
}

void AddPage(QPDF& document, const PdfPage& page, const PdfSource& source) {
  const std::string width = Points(page.width, page.x_dpi);
  const std::string height = Points(page.height, page.y_dpi);
  const std::string draw = "q " + width + " 0 0 " + height + " 0 0 cm /Page Do Q\n";
  QPDFObjectHandle object =
      QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 " + width + " " + height +
                              "] /Resources << /XObject << >> >> >>");
  object.getKey("/Resources")
      .getKey("/XObject")
      .replaceKey("/Page", MakeImage(document, page, source));
  object.replaceKey("/Contents", QPDFObjectHandle::newStream(&document, draw));
  QPDFPageDocumentHelper(document).addPage(document.makeIndirectObject(object), false);
}

}  // namespace

void WritePdf(const std::vector<PdfPage>& pages, const PdfSource& source, const PdfSink& sink) {
  QPDF document;
  document.emptyPDF();
  for (const PdfPage& page : pages) AddPage(document, page, source);
  document.getTrailer().replaceKey(
      "/Info", document.makeIndirectObject(QPDFObjectHandle::parse("<< /Producer (vox) >>")));
  SinkPipeline pipeline(sink);
  QPDFWriter writer(document);
  writer.setOutputPipeline(&pipeline);
  writer.setStreamDataMode(qpdf_s_preserve);
  writer.setDeterministicID(true);
  writer.write();
}

}  // namespace vox::cli
