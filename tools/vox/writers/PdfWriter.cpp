#include "tools/vox/writers/PdfWriter.h"

#include <cerrno>

#include "tools/vox/Failure.h"

namespace vox::cli {

void PdfWriter::BeginPage(const PageFormat& page) {
  if (!coded_) {
    spool_ = MakeSpool();
    coded_ = std::make_unique<TiffPages>(spool_.Get(), "", true);
  }
  current_ = page;
  coded_->BeginPage(page);
}

void PdfWriter::EndPage() {
  const TiffPages::StripPlace place = coded_->EndPage();
  ended_.push_back({current_.width, current_.height, current_.bits, current_.x_dpi, current_.y_dpi,
                    place.offset, place.bytes});
}

void PdfWriter::Finish() {
  if (ended_.empty()) return;
  const PdfSource source = [this](std::uint64_t offset, std::uint8_t* to, std::size_t bytes) {
    if (!ReadAt(spool_.Get(), {to, bytes}, offset))
      throw SpoolFailure("read a temporary file in", errno);
  };
  WritePdf(ended_, source, [this](const std::uint8_t* from, std::size_t bytes) {
    file_->Write({from, bytes});
  });
  file_->Commit();
}

}  // namespace vox::cli
