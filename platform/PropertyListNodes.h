// What reading and writing share in their dealings with libplist.
//
// Thread rule: as each class says.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <type_traits>

#include <locale.h>
#include <plist/plist.h>

namespace vox {

// libplist counts dates from 2001-01-01 in a signed 32-bit number; this is that day in Unix time.
inline constexpr std::int64_t kPropertyListEpoch = 978307200;

// A tree of nodes without a parent: freed whole, once.
struct FreeNode {
  void operator()(plist_t node) const { ::plist_free(node); }
};
using OwnedNode = std::unique_ptr<std::remove_pointer_t<plist_t>, FreeNode>;

// Texts and iterators that libplist hands out.
struct FreeMemory {
  void operator()(void* memory) const { std::free(memory); }
};
template <class T>
using OwnedMemory = std::unique_ptr<T, FreeMemory>;

// ClassicNumbers gives the calling thread the "C" locale for its lifetime: libplist reads and
// writes fractions with the locale's decimal point. One object per thread at a time.
class ClassicNumbers {
 public:
  ClassicNumbers() : before_(::uselocale(Classic())) {}
  ~ClassicNumbers() { ::uselocale(before_); }
  ClassicNumbers(const ClassicNumbers&) = delete;
  ClassicNumbers& operator=(const ClassicNumbers&) = delete;

 private:
  static locale_t Classic() {
    static const locale_t classic = ::newlocale(LC_ALL_MASK, "C", nullptr);
    return classic;  // null, should there be none, changes nothing
  }
  locale_t before_;
};

}  // namespace vox
