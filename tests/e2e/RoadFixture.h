// RoadTest holds a Road and says at the end of each test that nothing was left behind: no thread,
// no descriptor, no semaphore set, no file.
#pragma once

#include <gtest/gtest.h>

#include "tests/e2e/Road.h"
#include "tests/e2e/SameLines.h"
#include "tests/support/Footprint.h"

namespace vox::test {

class RoadTest : public testing::Test {
 protected:
  explicit RoadTest(Road::Server server = Road::Server::kInThread) : road(server) {}
  void TearDown() override;

 private:
  const Footprint footprint_;  // before road is made

 protected:
  Road road;
};

// RoadsTest is for tests that make their roads themselves.
class RoadsTest : public RoadTest {
 protected:
  RoadsTest() : RoadTest(Road::Server::kNone) {}
};

}  // namespace vox::test
