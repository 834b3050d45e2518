// Singleton is the base of the objects that exist once in a process. The object is made on the
// first call of instance() and is never destroyed while the process runs, so references to it stay
// good; retain, release, autorelease and copy are kept for clients that count, and do nothing.
//
//   class Environment : public Singleton<Environment> { friend class Singleton<Environment>; ... };
//
// The one object must live in the library and not in each program that includes the header, so a
// class declares its slot below its definition and defines it in its source file:
//
//   template <> VOX_EXPORT Singleton<Environment>::Slot& Singleton<Environment>::slot();
//
// Thread rule: any thread; two first calls at once get the same object.
#pragma once

#include <limits>
#include <utility>

#include "vox/platform/Export.h"
#include "vox/platform/Mutex.h"

namespace vox {

template <class T>
class Singleton {
 public:
  Singleton(const Singleton&) = delete;
  Singleton& operator=(const Singleton&) = delete;

  // instance gives the one object and makes it on the first call.
  static T& instance() {
    Slot& own = slot();
    MutexLock lock(own.mutex);
    if (own.object == nullptr) own.object = new T;
    return *own.object;
  }

  T& retain() { return static_cast<T&>(*this); }
  void release() {}
  T& autorelease() { return static_cast<T&>(*this); }
  // copy gives the object itself: there is no second one.
  T& copy() { return static_cast<T&>(*this); }
  // retainCount is always the greatest number: the object is not to be freed.
  unsigned retainCount() const { return std::numeric_limits<unsigned>::max(); }

  // Fresh is for tests: while it lives, instance() gives a new object, made on first use as ever;
  // its end destroys that object and puts the former one back. No reference that was taken
  // meanwhile may outlive it, and no other thread may be at work with the class when it comes or
  // goes. Fresh objects may be nested.
  class Fresh {
   public:
    Fresh() : before_(exchange(nullptr)) {}
    ~Fresh() { delete exchange(before_); }
    Fresh(const Fresh&) = delete;
    Fresh& operator=(const Fresh&) = delete;

   private:
    static T* exchange(T* object) {
      Slot& own = slot();
      MutexLock lock(own.mutex);
      return std::exchange(own.object, object);
    }
    T* before_;
  };

 protected:
  Singleton() = default;
  ~Singleton() = default;

  struct Slot {
    Mutex mutex;
    T* object VOX_GUARDED_BY(mutex) = nullptr;
  };

 private:
  static Slot& slot();
};

}  // namespace vox
