// A frontend in C that is linked to the backend as its only library (c/frontend.c).
#include "tests/e2e/sane/SaneFixture.h"
#include "tests/support/SmallDevice.h"

namespace vox::cli::test {
namespace {

class CFrontend : public Sane {};

TEST_F(CFrontend, CallsAsTheStandardDescribesAndInWrongOrders) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.address = "127.0.0.2";
  options.snmp_port = 161;
  options.command_port = 3892;
  Put(std::move(options));
  place_->Configure({"device net:127.0.0.2"});
  const Outcome outcome = Run(SANE_C_FRONTEND, "net:127.0.0.2");
  ASSERT_EQ(outcome.status, 0) << outcome.err;
  EXPECT_TRUE(SameFile(outcome.out, VoxPnm("--mode gray --resolution 100")));
}

}  // namespace
}  // namespace vox::cli::test
