// TiffPages encodes pages into a TIFF on a seekable descriptor, streamed: 1 bit as CCITT Group 4
// (ITU-T T.6), grey and colour as Deflate with horizontal differencing. One strip a page, so that
// the coded data of a page lie in one piece, which PDF takes over as it stands. (TIFF 6.0; Adobe
// Photoshop TIFF technical notes for Deflate.)
//
// Errors: Failure. Thread rule: one thread at a time.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <tiffio.h>

#include "tools/vox/writers/ImageWriter.h"

namespace vox::cli {

class TiffPages {
 public:
  // StripPlace says where the coded data of a page lie in the file.
  struct StripPlace {
    std::uint64_t offset, bytes;
  };

  // `fd` stays the caller's and must outlive the object; `path` is for messages, empty for a
  // spool. `big` chooses
  // BigTIFF, whose offsets pass 4 GiB.
  TiffPages(int fd, std::string path, bool big);
  TiffPages(const TiffPages&) = delete;
  TiffPages& operator=(const TiffPages&) = delete;
  ~TiffPages();

  void BeginPage(const PageFormat& page);
  void WriteLine(std::span<const std::uint8_t> line);
  StripPlace EndPage();
  // Close ends the file. A page that was begun and not ended is forgotten.
  void Close();
  unsigned PageCount() const { return pages_; }

 private:
  static tmsize_t OnRead(thandle_t self, void* data, tmsize_t size);
  static tmsize_t OnWrite(thandle_t self, void* data, tmsize_t size);
  static toff_t OnSeek(thandle_t self, toff_t offset, int whence);
  static int OnClose(thandle_t) { return 0; }
  static toff_t OnSize(thandle_t self);
  static int OnError(TIFF*, void* self, const char* module, const char* format, va_list arguments);
  static int OnWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }
  void SetTags(const PageFormat& page);
  void Require(bool done) const;

  const int fd_;
  const std::string path_;
  TIFF* tiff_ = nullptr;
  PageFormat page_;
  std::uint32_t line_ = 0;
  unsigned pages_ = 0;
  std::uint64_t position_ = 0;
  std::uint64_t whole_ = 0;  // size of the file at the end of the last whole page
  bool frozen_ = false;      // writes are swallowed: a page was begun that must not count
  int error_ = 0;            // errno of the first failed access
  std::string reason_;       // libtiff's text, for errors that are not the file's
  std::vector<std::uint8_t> work_;
};

}  // namespace vox::cli
