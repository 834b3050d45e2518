#include "tests/e2e/RoadFixture.h"

namespace vox::test {

void RoadTest::TearDown() {
  road.Close();
  EXPECT_EQ(road.TemporaryFiles(), 0u);
  EXPECT_TRUE(footprint_.IsBack()) << footprint_.Describe();
}

}  // namespace vox::test
