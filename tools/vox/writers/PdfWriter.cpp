#include "tools/vox/writers/PdfWriter.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <string>

#include <qpdf/Pipeline.hh>
#include <qpdf/QPDF.hh>
#include <qpdf/QPDFPageDocumentHelper.hh>
#include <qpdf/QPDFWriter.hh>

#include "tools/vox/Failure.h"

namespace vox::cli {

namespace {

constexpr double kPointsPerInch = 72.0;
constexpr std::size_t kPiece = 1 << 20;

// Points with four digits: a hundredth of a pixel at 1200 dpi.
std::string Points(std::uint32_t pixels, double dpi) {
  char text[48];
  std::snprintf(text, sizeof text, "%.4f", pixels / dpi * kPointsPerInch);
  return text;
}

class FilePipeline : public Pipeline {
 public:
  explicit FilePipeline(OutputFile& file) : Pipeline("output", nullptr), file_(file) {}
  void write(unsigned char const* data, std::size_t size) override { file_.Write({data, size}); }
  void finish() override {}

 private:
  OutputFile& file_;
};

std::string Dictionary(const PageFormat& format) {
  const std::string width = std::to_string(format.width), height = std::to_string(format.height);
  const bool bilevel = format.bits == 1;
  return "<< /Type /XObject /Subtype /Image /Width " + width + " /Height " + height +
         " /BitsPerComponent " + (bilevel ? "1" : "8") + " /ColorSpace " +
         (format.bits == 24 ? "/DeviceRGB" : "/DeviceGray") + " >>";
}

std::string DecodeParameters(const PageFormat& format) {
  const std::string width = std::to_string(format.width), height = std::to_string(format.height);
  if (format.bits == 1) return "<< /K -1 /Columns " + width + " /Rows " + height + " >>";
  return "<< /Predictor 2 /BitsPerComponent 8 /Colors " +
         std::string(format.bits == 24 ? "3" : "1") + " /Columns " + width + " >>";
}

}  // namespace

void PdfWriter::BeginPage(const PageFormat& page) {
  if (!coded_) {
    spool_ = MakeSpool();
    coded_ = std::make_unique<TiffPages>(spool_.Get(), file_->Path(), true);
  }
  current_ = page;
  coded_->BeginPage(page);
}

void PdfWriter::EndPage() {
  ended_.push_back({current_, coded_->EndPage()});
}

QPDFObjectHandle PdfWriter::MakeImage(QPDF& document, const Page& page) const {
  QPDFObjectHandle image = QPDFObjectHandle::newStream(&document);
  image.replaceDict(QPDFObjectHandle::parse(Dictionary(page.format)));
  const auto provide = [this, place = page.place](Pipeline* out) {
    std::vector<std::uint8_t> piece(kPiece);
    for (std::uint64_t done = 0; done < place.bytes;) {
      const auto size =
          static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, place.bytes - done));
      if (!ReadAt(spool_.Get(), std::span(piece).first(size), place.offset + done))
        throw FileFailure("read back", file_->Path(), errno);
      out->write(piece.data(), size);
      done += size;
    }
    out->finish();
  };
  const char* filter = page.format.bits == 1 ? "/CCITTFaxDecode" : "/FlateDecode";
  image.replaceStreamData(provide, QPDFObjectHandle::newName(filter),
                          QPDFObjectHandle::parse(DecodeParameters(page.format)));
  return document.makeIndirectObject(image);
}

void PdfWriter::AddPage(QPDF& document, const Page& page) const {
  const std::string width = Points(page.format.width, page.format.x_dpi);
  const std::string height = Points(page.format.height, page.format.y_dpi);
  const std::string draw = "q " + width + " 0 0 " + height + " 0 0 cm /Page Do Q\n";
  QPDFObjectHandle object =
      QPDFObjectHandle::parse("<< /Type /Page /MediaBox [0 0 " + width + " " + height +
                              "] /Resources << /XObject << >> >> >>");
  object.getKey("/Resources").getKey("/XObject").replaceKey("/Page", MakeImage(document, page));
  object.replaceKey("/Contents", QPDFObjectHandle::newStream(&document, draw));
  QPDFPageDocumentHelper(document).addPage(document.makeIndirectObject(object), false);
}

void PdfWriter::WriteDocument(QPDF& document) {
  FilePipeline pipeline(*file_);
  QPDFWriter writer(document);
  writer.setOutputPipeline(&pipeline);
  writer.setStreamDataMode(qpdf_s_preserve);
  writer.setDeterministicID(true);
  writer.write();
}

void PdfWriter::Finish() {
  if (ended_.empty()) return;
  QPDF document;
  document.emptyPDF();
  for (const Page& page : ended_) AddPage(document, page);
  document.getTrailer().replaceKey(
      "/Info", document.makeIndirectObject(QPDFObjectHandle::parse("<< /Producer (vox) >>")));
  WriteDocument(document);
  file_->Commit();
}

}  // namespace vox::cli
