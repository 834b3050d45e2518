// The classes of which a process has one object, which is never freed.
#include <limits>
#include <thread>
#include <type_traits>
#include <vector>

#include "tests/unit/prefs/Desktop.h"
#include "vox/Environment.h"
#include "vox/PaperSizes.h"
#include "vox/SupportedDevices.h"

namespace vox {
namespace {

template <class T>
class OneObject : public Desktop {
  static_assert(!std::is_default_constructible_v<T>, "there is no second object");
  static_assert(!std::is_copy_constructible_v<T> && !std::is_copy_assignable_v<T>);
};

using Classes = ::testing::Types<SupportedDevices, PaperSizes, UserPreferences, Environment>;
TYPED_TEST_SUITE(OneObject, Classes);

TYPED_TEST(OneObject, IsTheSameForThreadsThatAskAtOnce) {
  const typename TypeParam::Fresh fresh;
  std::vector<TypeParam*> seen(4);
  std::vector<std::thread> threads;
  for (auto& object : seen) threads.emplace_back([&object] { object = &TypeParam::instance(); });
  for (auto& thread : threads) thread.join();
  for (auto* object : seen) EXPECT_EQ(object, &TypeParam::instance());
}

TYPED_TEST(OneObject, CountsNothingAndCopiesToItself) {
  const typename TypeParam::Fresh fresh;
  TypeParam& one = TypeParam::instance();
  EXPECT_EQ(&one.retain(), &one);
  EXPECT_EQ(&one.autorelease(), &one);
  EXPECT_EQ(&one.copy(), &one);
  one.release();
  EXPECT_EQ(one.retainCount(), std::numeric_limits<unsigned>::max());
  EXPECT_EQ(&TypeParam::instance(), &one);
}

}  // namespace
}  // namespace vox
