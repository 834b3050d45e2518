// A search that runs out of memory: it ends, and says so.
#include <cstdlib>
#include <new>

#include <gtest/gtest.h>

#include "tests/support/FreshLoopback.h"
#include "tests/support/NoMemory.h"
#include "tests/unit/cli/ReadBack.h"
#include "tools/vox/Failure.h"
#include "tools/vox/NetworkSearch.h"
#include "tools/vox/Verbs.h"

namespace vox::cli::test {
namespace {

using vox::test::NoMemory;
using vox::test::NoMemoryInNewThreads;

TEST(NetworkSearch, WithoutMemoryItEndsAndSaysSo) {
  const NoMemoryInNewThreads none;
  NetworkSearch search("127.0.0.1");
  EXPECT_TRUE(search.Next().empty());
  EXPECT_TRUE(search.OutOfMemory());
  EXPECT_TRUE(search.Result().empty());
}

TEST(NetworkSearch, WithMemoryItSaysNothingOfIt) {
  NetworkSearch search("127.0.0.1");
  EXPECT_TRUE(search.Next().empty());
  EXPECT_FALSE(search.OutOfMemory());
}

// Nor are there words for a Failure then.
TEST(NetworkSearch, WithoutAThreadThereIsNone) {
  const std::string address = "127.0.0.1";
  const NoMemory none;
  EXPECT_THROW(NetworkSearch search(address), std::bad_alloc);
}

TEST(NetworkSearch, DiscoverWithoutMemoryIsTen) {
  const TestFolder folder;
  const int code = vox::test::OnFreshLoopback([&folder] {
    if (!vox::test::RouteBroadcasts()) return vox::test::kNotPermitted;
    ::setenv("VOX_ROOT", folder.Path().c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", folder.Path().c_str(), 1);
    try {
      const NoMemoryInNewThreads none;
      RunDiscover({});
    } catch (const Failure& failure) {
      return static_cast<int>(failure.Status());
    }
    return 0;
  });
  SKIP_IF_NOT_PERMITTED(code);
  EXPECT_EQ(code, 10);
}

}  // namespace
}  // namespace vox::cli::test
