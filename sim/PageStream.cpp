#include "sim/PageStream.h"

#include <algorithm>
#include <utility>

#include "sim/JbigBlock.h"

namespace vox::sim {
namespace {

constexpr std::size_t kRawPiece = 64 * 1024;

class RawStream : public PageStream {
 public:
  explicit RawStream(const PageKey& key)
      : renderer_(key.source, key.info, key.render),
        line_bytes_(LineBytes(key.info)),
        lines_(line_bytes_ == 0 ? 0 : LinesWithinReach(key.info, key.render)) {}

  bool Next(Bytes& piece) override {
    if (line_ >= lines_) return false;
    const auto room = static_cast<std::uint32_t>(std::max<std::size_t>(kRawPiece / line_bytes_, 1));
    const std::uint32_t count = std::min(room, lines_ - line_);
    piece.resize(count * line_bytes_);
    for (std::uint32_t i = 0; i < count; ++i) {
      renderer_.Draw(line_++, std::span(piece).subspan(i * line_bytes_, line_bytes_));
    }
    return true;
  }

 private:
  LineRenderer renderer_;
  const std::size_t line_bytes_;
  const std::uint32_t lines_;
  std::uint32_t line_ = 0;
};

class JbigStream : public PageStream {
 public:
  JbigStream(const PageKey& key, const CodingOptions& coding)
      : renderer_(key.source, key.info, key.render),
        coding_(coding),
        width_(key.info.x_extent),
        line_bytes_(LineBytes(key.info)),
        pitch_((std::size_t{width_} + 7) / 8),
        lines_(width_ == 0 ? 0 : LinesWithinReach(key.info, key.render)),
        most_(coding.lines_per_block) {}

  // A block that would pass 1 MiB is made again of half the lines; no later one is higher then.
  bool Next(Bytes& piece) override {
    while (line_ < lines_ || held_ > 0) {
      Fill();
      const std::uint32_t count = std::min(most_, held_);
      auto block = BuildBlock(bitmap_, width_, count, pitch_, coding_);
      if (block) {
        Drop(count);
        piece = std::move(*block);
        return true;
      }
      if (most_ <= 1) return false;
      most_ = count / 2;
    }
    return false;
  }

 private:
  // Draws until a whole block's lines are held. The part of a line that hosts do not count, the
  // last bits of a width that is no multiple of 8, stays 0.
  void Fill() {
    const std::uint32_t wanted = std::min(most_, held_ + (lines_ - line_));
    if (held_ >= wanted) return;
    bitmap_.resize(wanted * pitch_);
    for (; held_ < wanted; ++held_) {
      renderer_.Draw(line_++, std::span(bitmap_).subspan(held_ * pitch_, line_bytes_));
    }
  }
  void Drop(std::uint32_t count) {
    bitmap_.erase(bitmap_.begin(), bitmap_.begin() + static_cast<std::ptrdiff_t>(count * pitch_));
    held_ -= count;
  }

  LineRenderer renderer_;
  const CodingOptions coding_;
  const std::uint32_t width_;
  const std::size_t line_bytes_;
  const std::size_t pitch_;
  const std::uint32_t lines_;
  std::uint32_t most_;      // lines of a block
  std::uint32_t line_ = 0;  // next one to be drawn
  std::uint32_t held_ = 0;  // lines in bitmap_
  Bytes bitmap_;
};

}  // namespace

std::unique_ptr<PageStream> OpenPage(const PageKey& key, const CodingOptions& coding) {
  if (key.info.encode_header_size == 0) return std::make_unique<RawStream>(key);
  return std::make_unique<JbigStream>(key, coding);
}

class PageCache::Replay : public PageStream {
 public:
  explicit Replay(Pieces pieces) : pieces_(std::move(pieces)) {}
  bool Next(Bytes& piece) override {
    if (next_ >= pieces_->size()) return false;
    piece = (*pieces_)[next_++];
    return true;
  }

 private:
  const Pieces pieces_;
  std::size_t next_ = 0;
};

class PageCache::Recorder : public PageStream {
 public:
  Recorder(PageCache& cache, const PageKey& key)
      : cache_(cache), key_(key), stream_(OpenPage(key, cache.coding_)) {}
  bool Next(Bytes& piece) override {
    if (!stream_->Next(piece)) {
      if (bytes_ <= cache_.capacity_) cache_.Enter(key_, std::move(pieces_), bytes_);
      return false;
    }
    bytes_ += piece.size();
    if (bytes_ <= cache_.capacity_) {
      pieces_.push_back(piece);
    } else {
      pieces_.clear();
    }
    return true;
  }
  bool Fits() const { return bytes_ <= cache_.capacity_; }

 private:
  PageCache& cache_;
  const PageKey key_;
  const std::unique_ptr<PageStream> stream_;
  std::vector<Bytes> pieces_;
  std::uint64_t bytes_ = 0;
};

PageCache::Pieces PageCache::Find(const PageKey& key) {
  MutexLock lock(mutex_);
  const auto found = std::find_if(entries_.begin(), entries_.end(),
                                  [&](const Entry& entry) { return entry.key == key; });
  return found == entries_.end() ? nullptr : found->pieces;
}

void PageCache::Enter(const PageKey& key, std::vector<Bytes> pieces, std::uint64_t bytes) {
  MutexLock lock(mutex_);
  while (!entries_.empty() && held_ + bytes > capacity_) {
    held_ -= entries_.front().bytes;
    entries_.erase(entries_.begin());
  }
  entries_.push_back({key, std::make_shared<const std::vector<Bytes>>(std::move(pieces)), bytes});
  held_ += bytes;
}

std::unique_ptr<PageStream> PageCache::Open(const PageKey& key) {
  if (capacity_ == 0) return OpenPage(key, coding_);
  if (auto pieces = Find(key)) return std::make_unique<Replay>(std::move(pieces));
  return std::make_unique<Recorder>(*this, key);
}

bool PageCache::Prepare(const PageKey& key) {
  if (Find(key)) return true;
  Recorder recorder(*this, key);
  Bytes piece;
  while (recorder.Fits()) {
    if (!recorder.Next(piece)) return true;
  }
  return false;
}

}  // namespace vox::sim
