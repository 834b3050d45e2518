// Service is the base of the desktop services that tests replace: an interface with one Linux
// implementation in a process.
//
//   class MountTable : public Service<MountTable> { public: virtual ... };
//   MountTable::Current().Mounts();               // what the library asks
//   const MountTable::Replaced held(my_table);    // what a test does
//
// The one place of a service must lie in the library and not in each program that includes the
// header, so a service declares its Place() below its class and defines it in its source file.
//
// Thread rule: Current from any thread; replace only while no other thread asks.
#pragma once

#include <atomic>

#include "vox/platform/Export.h"

namespace vox {

template <class T>
class Service {
 public:
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;

  // Current gives the machine's own service, or the one that a test has put in its place.
  static T& Current() {
    Where& where = Place();
    T* const other = where.replacement.load();
    return other != nullptr ? *other : where.own;
  }

  // Replaced puts another service in the place of the machine's while it lives. May be nested.
  class Replaced {
   public:
    explicit Replaced(T& other) : before_(Place().replacement.exchange(&other)) {}
    ~Replaced() { Place().replacement.store(before_); }
    Replaced(const Replaced&) = delete;
    Replaced& operator=(const Replaced&) = delete;

   private:
    T* before_;
  };

 protected:
  Service() = default;
  ~Service() = default;

  struct Where {
    T& own;
    std::atomic<T*> replacement{nullptr};
  };

 private:
  static Where& Place();
};

}  // namespace vox
