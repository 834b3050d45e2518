#include "tools/vox/writers/TiffPages.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <new>

#include <sys/stat.h>
#include <unistd.h>

#include "tools/vox/Failure.h"
#include "tools/vox/writers/DeflateLevel.h"
#include "tools/vox/writers/InvertBits.h"
#include "tools/vox/writers/OutputFile.h"

namespace vox::cli {

TiffPages::TiffPages(int fd, std::string path, bool big) : fd_(fd), path_(std::move(path)) {
  const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(),
                                                                             TIFFOpenOptionsFree);
  if (!options) throw std::bad_alloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), OnError, this);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), OnWarning, this);
  tiff_ = TIFFClientOpenExt(path_.c_str(), big ? "w8m" : "wm", this, OnRead, OnWrite, OnSeek,
                            OnClose, OnSize, nullptr, nullptr, options.get());
  Require(tiff_ != nullptr);
}

TiffPages::~TiffPages() {
  frozen_ = true;
  if (tiff_ != nullptr) TIFFClose(tiff_);
}

void TiffPages::Require(bool done) const {
  if (error_ != 0 && path_.empty()) throw SpoolFailure("write a temporary file in", error_);
  if (error_ != 0) throw FileFailure("write", path_, error_);
  const std::string name = path_.empty() ? "a temporary file" : path_;
  if (!done) throw Failure(ExitStatus::kIoError, "cannot write " + CleanText(name + reason_));
}

void TiffPages::BeginPage(const PageFormat& page) {
  page_ = page;
  line_ = 0;
  work_.resize(page.LineBytes());
  SetTags(page);
}

void TiffPages::SetTags(const PageFormat& page) {
  const bool bilevel = page.bits == 1;
  const int photometric = bilevel           ? PHOTOMETRIC_MINISWHITE
                          : page.bits == 24 ? PHOTOMETRIC_RGB
                                            : PHOTOMETRIC_MINISBLACK;
  bool done = TIFFSetField(tiff_, TIFFTAG_IMAGEWIDTH, page.width) == 1;
  const auto set = [&](std::uint32_t tag, auto... values) {
    done = done && TIFFSetField(tiff_, tag, values...) == 1;
  };
  set(TIFFTAG_IMAGELENGTH, page.height);
  set(TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
  set(TIFFTAG_PAGENUMBER, static_cast<int>(std::min(pages_, 65535U)), 0);
  set(TIFFTAG_BITSPERSAMPLE, bilevel ? 1 : 8);
  set(TIFFTAG_SAMPLESPERPIXEL, page.bits == 24 ? 3 : 1);
  set(TIFFTAG_PHOTOMETRIC, photometric);
  set(TIFFTAG_COMPRESSION, bilevel ? COMPRESSION_CCITTFAX4 : COMPRESSION_ADOBE_DEFLATE);
  if (!bilevel) {
    set(TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
    set(TIFFTAG_ZIPQUALITY, kDeflateLevel);
  }
  set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  set(TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  set(TIFFTAG_ROWSPERSTRIP, page.height);
  set(TIFFTAG_XRESOLUTION, page.x_dpi);
  set(TIFFTAG_YRESOLUTION, page.y_dpi);
  set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  set(TIFFTAG_SOFTWARE, "vox");
  Require(done);
}

// libtiff may change the line that it is given, so it gets a copy.
void TiffPages::WriteLine(std::span<const std::uint8_t> line) {
  if (page_.bits == 1) {
    InvertBits(line, page_.width, work_);
  } else {
    std::copy_n(line.begin(), work_.size(), work_.begin());
  }
  Require(TIFFWriteScanline(tiff_, work_.data(), line_, 0) == 1);
  ++line_;
}

TiffPages::StripPlace TiffPages::EndPage() {
  Require(TIFFFlushData(tiff_) == 1);
  StripPlace place{TIFFGetStrileOffset(tiff_, 0), TIFFGetStrileByteCount(tiff_, 0)};
  Require(TIFFWriteDirectory(tiff_) == 1);
  ++pages_;
  line_ = 0;
  whole_ = OnSize(this);
  return place;
}

void TiffPages::Close() {
  frozen_ = true;  // all that counts is written; closing would write a page that was begun
  TIFFClose(tiff_);
  tiff_ = nullptr;
  if (::ftruncate(fd_, static_cast<off_t>(whole_)) != 0 && error_ == 0) error_ = errno;
  Require(true);
}

tmsize_t TiffPages::OnRead(thandle_t self, void* data, tmsize_t size) {
  auto* pages = static_cast<TiffPages*>(self);
  const auto bytes = static_cast<std::size_t>(size);
  if (!ReadAt(pages->fd_, {static_cast<std::uint8_t*>(data), bytes}, pages->position_)) return -1;
  pages->position_ += bytes;
  return size;
}

tmsize_t TiffPages::OnWrite(thandle_t self, void* data, tmsize_t size) {
  auto* pages = static_cast<TiffPages*>(self);
  const auto bytes = static_cast<std::size_t>(size);
  if (!pages->frozen_ &&
      !WriteAt(pages->fd_, {static_cast<const std::uint8_t*>(data), bytes}, pages->position_)) {
    if (pages->error_ == 0) pages->error_ = errno;
    return -1;
  }
  pages->position_ += bytes;
  return size;
}

toff_t TiffPages::OnSeek(thandle_t self, toff_t offset, int whence) {
  auto* pages = static_cast<TiffPages*>(self);
  if (whence == SEEK_CUR) offset += pages->position_;
  if (whence == SEEK_END) offset += OnSize(self);
  pages->position_ = offset;
  return offset;
}

toff_t TiffPages::OnSize(thandle_t self) {
  struct stat there {};
  if (::fstat(static_cast<TiffPages*>(self)->fd_, &there) != 0) return 0;
  return static_cast<toff_t>(there.st_size);
}

int TiffPages::OnError(TIFF*, void* self, const char*, const char* format, va_list arguments) {
  auto* pages = static_cast<TiffPages*>(self);
  char text[256];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"  // libtiff's own literals arrive here
  std::vsnprintf(text, sizeof text, format, arguments);
#pragma GCC diagnostic pop
  if (pages->reason_.empty()) pages->reason_ = std::string(": ") + text;
  return 1;
}

}  // namespace vox::cli
