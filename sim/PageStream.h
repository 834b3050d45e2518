// The data of one page as they go through the data channel, piece by piece: one JBIG block a piece,
// or raw lines of together at most 64 KiB (one line where lines are longer). A page is never held
// as a whole, unless it is to be kept for later.
//
// Thread rule: a PageStream belongs to one thread; PageCache may be used from any.
#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "sim/Ber.h"
#include "sim/DeviceOptions.h"
#include "sim/JobPlan.h"
#include "vox/platform/Mutex.h"

namespace vox::sim {

class PageStream {
 public:
  virtual ~PageStream() = default;
  // Next puts the next piece into `piece`; false at the end of the page.
  virtual bool Next(Bytes& piece) = 0;
};

// What decides a page's data.
struct PageKey {
  PagePtr source;
  ScanInfo info;
  RenderOptions render;
  bool operator==(const PageKey&) const = default;
};

// OpenPage draws and codes as it goes; the page is JBIG where info.encode_header_size is not 0.
std::unique_ptr<PageStream> OpenPage(const PageKey& key, const CodingOptions& coding);

// PageCache keeps pages that were drawn and coded, up to a number of bytes in all; the oldest go.
class PageCache {
 public:
  PageCache(std::uint64_t capacity, const CodingOptions& coding)
      : capacity_(capacity), coding_(coding) {}
  // Open gives the page from the cache, or one that enters it when it has been read to its end.
  std::unique_ptr<PageStream> Open(const PageKey& key) VOX_EXCLUDES(mutex_);
  // Prepare enters a page; false when it does not fit.
  bool Prepare(const PageKey& key) VOX_EXCLUDES(mutex_);

 private:
  using Pieces = std::shared_ptr<const std::vector<Bytes>>;
  struct Entry {
    PageKey key;
    Pieces pieces;
    std::uint64_t bytes;
  };
  class Replay;
  class Recorder;
  Pieces Find(const PageKey& key) VOX_EXCLUDES(mutex_);
  void Enter(const PageKey& key, std::vector<Bytes> pieces, std::uint64_t bytes)
      VOX_EXCLUDES(mutex_);

  const std::uint64_t capacity_;
  const CodingOptions coding_;
  Mutex mutex_;
  std::vector<Entry> entries_ VOX_GUARDED_BY(mutex_);  // oldest first
  std::uint64_t held_ VOX_GUARDED_BY(mutex_) = 0;
};

}  // namespace vox::sim
