#include "vox/platform/PropertyListGuard.h"

#include <algorithm>
#include <string_view>

#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

// A key and a value, opened and closed; and what stands around a list.
constexpr std::size_t kMaxTags = 4 * kPropertyListNodes + 16;

// XmlNesting walks from tag to tag.
class XmlNesting {
 public:
  explicit XmlNesting(std::string_view left) : left_(left) {}

  bool IsWithinLimits() {
    std::size_t tags = 0;
    for (std::size_t at; (at = left_.find('<')) != left_.npos;) {
      left_.remove_prefix(at + 1);
      if (++tags > kMaxTags || !Tag() || depth_ > kPropertyListDepth) return false;
    }
    return true;
  }

 private:
  bool Took(std::string_view text) {
    if (!left_.starts_with(text)) return false;
    left_.remove_prefix(text.size());
    return true;
  }

  bool Tag() {
    if (Took("!--")) return CountUnread("-->");
    if (Took("![CDATA[")) return CountUnread("]]>");
    const std::size_t size = left_.find('>');
    if (size == left_.npos || !EndsForEveryReader(left_.substr(0, size))) return false;
    Count(left_.substr(0, size));
    left_.remove_prefix(size);
    return true;
  }

  // Readers differ in which marks inside a tag they step over, so it may hold none.
  static bool EndsForEveryReader(std::string_view tag) {
    if (tag.find_first_of("<[") != tag.npos) return false;
    if (tag.starts_with('?') && !tag.ends_with('?')) return false;
    const auto single = std::count(tag.begin(), tag.end(), '\'');
    const auto twofold = std::count(tag.begin(), tag.end(), '"');
    return single % 2 == 0 && twofold % 2 == 0 && (single == 0 || twofold == 0);
  }

  void Count(std::string_view tag) {
    if (tag == "/array" || tag == "/dict") {
      depth_ = std::max(depth_ - 1, 0);
    } else if (Nests(tag) && !tag.ends_with('/')) {
      ++depth_;
    }
  }

  static bool Nests(std::string_view tag) {
    return tag.starts_with("array") || tag.starts_with("dict");
  }

  // CountUnread passes a section whose content is text; false when it has no end. Should anybody
  // read it otherwise, there are no more arrays and dictionaries in it than are counted here.
  bool CountUnread(std::string_view end) {
    const std::size_t size = left_.find(end);
    if (size == left_.npos) return false;
    const std::string_view text = left_.substr(0, size);
    for (std::size_t at = text.find('<'); at != text.npos; at = text.find('<', at + 1)) {
      depth_ += Nests(text.substr(at + 1));
    }
    left_.remove_prefix(size);
    return true;
  }

  std::string_view left_;
  int depth_ = 0;
};

}  // namespace

bool IsBinaryPropertyList(std::span<const std::uint8_t> bytes) {
  constexpr std::string_view kMagic = "bplist";
  return bytes.size() >= kMagic.size() && std::equal(kMagic.begin(), kMagic.end(), bytes.begin());
}

bool XmlListIsWithinLimits(std::span<const std::uint8_t> bytes) {
  if (bytes.size() > kPropertyListBytes) return false;
  return XmlNesting({reinterpret_cast<const char*>(bytes.data()), bytes.size()}).IsWithinLimits();
}

}  // namespace vox
