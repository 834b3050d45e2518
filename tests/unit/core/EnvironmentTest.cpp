// The one object of a process, and the folder that it names.
#include "vox/Environment.h"

#include <climits>
#include <filesystem>
#include <fstream>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

#include "tests/unit/core/Scratch.h"
#include "vox/platform/Folders.h"

namespace vox {
namespace {

static_assert(!std::is_copy_constructible_v<Environment>);
static_assert(!std::is_copy_assignable_v<Environment>);

TEST(Singleton, IsOneObjectForAllThreads) {
  const Environment::Fresh fresh;
  std::vector<Environment*> seen(8);
  std::vector<std::thread> threads;
  for (auto& object : seen) threads.emplace_back([&object] { object = &Environment::instance(); });
  for (auto& thread : threads) thread.join();
  for (const auto* object : seen) EXPECT_EQ(object, &Environment::instance());
}

TEST(Singleton, CountingDoesNothing) {
  Environment& object = Environment::instance();
  EXPECT_EQ(&object.retain(), &object);
  EXPECT_EQ(&object.autorelease(), &object);
  object.release();
  EXPECT_EQ(object.retainCount(), UINT_MAX);
  EXPECT_EQ(&Environment::instance(), &object);
}

TEST(Singleton, FreshObjectLastsAsLongAsItsHolder) {
  Environment* const former = &Environment::instance();
  {
    const Environment::Fresh outer;
    Environment* const first = &Environment::instance();
    EXPECT_NE(first, former);
    {
      const Environment::Fresh inner;
      EXPECT_NE(&Environment::instance(), first);
    }
    EXPECT_EQ(&Environment::instance(), first);
  }
  EXPECT_EQ(&Environment::instance(), former);
}

TEST(Environment, TemporaryFolderIsTheUsersOwn) {
  const Scratch scratch;
  const Variable tmpdir("TMPDIR", scratch.Path(""));
  EXPECT_EQ(Environment::instance().userTemporaryFolder(), UserTemporaryFolder());
  EXPECT_TRUE(std::filesystem::is_directory(Environment::instance().userTemporaryFolder()));
}

TEST(Environment, TemporaryFolderIsTmpWhenThereIsNoOther) {
  const Scratch scratch;
  std::ofstream(scratch.Path("var")) << "a file";
  const Variable tmpdir("TMPDIR", "/nowhere/at/all");
  const Variable root("VOX_ROOT", scratch.Path(""));
  EXPECT_EQ(Environment::instance().userTemporaryFolder(), "/tmp/");
}

}  // namespace
}  // namespace vox
