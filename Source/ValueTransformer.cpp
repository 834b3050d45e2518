#include "vox/ValueTransformer.h"

#include <map>
#include <utility>

#include "vox/platform/Mutex.h"

namespace vox {
namespace {

struct Registry {
  Mutex mutex;
  std::map<std::string, std::shared_ptr<const ValueTransformer>> by_name VOX_GUARDED_BY(mutex);
};

Registry& registry() {
  static Registry& one = *new Registry;  // never destroyed: threads may outlive main
  return one;
}

}  // namespace

void ValueTransformer::setValueTransformerForName(
    std::shared_ptr<const ValueTransformer> transformer, const std::string& name) {
  Registry& all = registry();
  MutexLock lock(all.mutex);
  // The one that goes is destroyed after the lock is: it may have a say of its own.
  std::swap(all.by_name[name], transformer);
  if (all.by_name[name] == nullptr) all.by_name.erase(name);
}

std::shared_ptr<const ValueTransformer> ValueTransformer::valueTransformerForName(
    const std::string& name) {
  Registry& all = registry();
  MutexLock lock(all.mutex);
  const auto found = all.by_name.find(name);
  return found == all.by_name.end() ? nullptr : found->second;
}

}  // namespace vox
