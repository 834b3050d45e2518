#include "tools/vox/writers/PngWriter.h"

#include <cmath>
#include <csetjmp>
#include <new>

#include "tools/vox/Failure.h"
#include "tools/vox/writers/DeflateLevel.h"

namespace vox::cli {

namespace {

constexpr double kMetresPerInch = 0.0254;

png_uint_32 PerMetre(double dpi) {
  return static_cast<png_uint_32>(std::lround(dpi / kMetresPerInch));
}

}  // namespace

PngWriter::~PngWriter() {
  png_destroy_write_struct(&png_, &info_);
}

// libpng leaves a failing call with longjmp, which must not pass a frame with destructors: `call`
// holds none, and an exception of the file waits in failure_ until libpng is left.
template <typename Call>
void PngWriter::Guarded(Call call) {
  static_assert(std::is_trivially_destructible_v<Call>);
  if (setjmp(png_jmpbuf(png_)) == 0) {
    call();
    return;
  }
  if (failure_) std::rethrow_exception(failure_);
  throw Failure(ExitStatus::kIoError, "cannot write " + CleanText(File().Path()) + " as PNG");
}

void PngWriter::OnData(png_structp png, png_bytep data, std::size_t size) {
  auto* self = static_cast<PngWriter*>(png_get_io_ptr(png));
  try {
    self->File().Write({data, size});
  } catch (...) {
    self->failure_ = std::current_exception();
  }
  if (self->failure_) png_error(png, "write");
}

void PngWriter::OnError(png_structp png, png_const_charp) {
  png_longjmp(png, 1);
}

void PngWriter::BeginPage(const PageFormat& page) {
  if (png_ != nullptr)
    throw UsageFailure(File().Path() + ": a PNG holds one page; use --batch page-%d.png");
  png_ = png_create_write_struct(PNG_LIBPNG_VER_STRING, this, OnError, OnWarning);
  if (png_ != nullptr) info_ = png_create_info_struct(png_);
  if (info_ == nullptr) throw std::bad_alloc();
  png_set_write_fn(png_, this, OnData, OnFlush);
  WriteHeader(page);
}

void PngWriter::WriteHeader(const PageFormat& page) {
  const int color = page.bits == 24 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY;
  const int depth = page.bits == 1 ? 1 : 8;
  Guarded([&] {
    // Scans are noisy: the filters that look at one neighbour gain nearly all of the five.
    png_set_filter(png_, 0, page.bits == 1 ? PNG_FILTER_NONE : PNG_FILTER_SUB | PNG_FILTER_UP);
    if (page.bits != 1) png_set_compression_level(png_, kDeflateLevel);
    png_set_user_limits(png_, 0x7FFFFFFF, 0x7FFFFFFF);
    png_set_IHDR(png_, info_, page.width, page.height, depth, color, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_set_pHYs(png_, info_, PerMetre(page.x_dpi), PerMetre(page.y_dpi), PNG_RESOLUTION_METER);
    png_write_info(png_, info_);
  });
}

void PngWriter::WriteLine(std::span<const std::uint8_t> line) {
  Guarded([&] { png_write_row(png_, line.data()); });
}

void PngWriter::EndPage() {
  Guarded([&] { png_write_end(png_, info_); });
  StreamWriter::EndPage();
}

}  // namespace vox::cli
