// Ctrl-C while vox waits for devices: it ends with 2, tells what it knows by then, and what it has
// remembered stays.
#include <chrono>
#include <csignal>

#include "tests/e2e/VoxDevices.h"
#include "tests/support/FreshLoopback.h"

namespace vox::cli::test {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using sim::EventKind;
using testing::HasSubstr;

class VoxCancel : public VoxDevices {
 protected:
  static sim::Faults NeverReplying() {
    sim::Faults faults;
    faults.delays.reply = 1h;
    return faults;
  }
  static sim::Faults NeverAnswering() {
    sim::Faults faults;
    faults.delays.snmp = 1h;
    return faults;
  }
  Outcome Cancelled() {
    vox_.Signal(SIGINT);
    const Outcome outcome = vox_.Wait();
    EXPECT_EQ(outcome.status, 2) << outcome.err;
    EXPECT_THAT(outcome.err, HasSubstr("cancelled"));
    return outcome;
  }
};

// By its second command to Cellar vox has had the others' replies for 3 s.
TEST_F(VoxCancel, RegistrationsThatWereAcceptedAreToldAndKept) {
  const sim::VirtualDevice& attic = Put(2, "Attic");
  sim::VirtualDevice& cellar = Put(3, "Cellar");
  const sim::VirtualDevice& office = Put(4, "Office");
  for (const char* host : {"2", "3", "4"}) Good(std::string("add 127.0.0.") + host);
  Good("unregister --all");
  cellar.SetFaults(NeverReplying());
  vox_.Start("register --all --json");
  ASSERT_TRUE(cellar.Events().WaitFor(EventKind::kRegister, 2, 60s));
  const Outcome outcome = Cancelled();
  EXPECT_LT(outcome.took, 20s) << "27 s are what the silent one would be given";
  EXPECT_EQ(outcome.err,
            "vox: cannot register with Cellar (127.0.0.3): cancelled before it had answered; ask "
            "again to be sure\n");
  const auto told = Objects(outcome.out);
  ASSERT_EQ(told.size(), 3U);
  EXPECT_EQ(told[0]["result"], "accepted");
  EXPECT_EQ(told[1]["result"], "cancelled");
  EXPECT_EQ(told[2]["result"], "accepted");
  EXPECT_EQ(attic.Registrations().size(), 1U);
  EXPECT_EQ(office.Registrations().size(), 1U);
  const auto stored = Objects(Good("list --json"));
  ASSERT_EQ(stored.size(), 3U);
  EXPECT_EQ(stored[0]["isNetworkPushEnabled"], true);
  EXPECT_EQ(stored[1]["isNetworkPushEnabled"], false);
  EXPECT_EQ(stored[2]["isNetworkPushEnabled"], true);
}

TEST_F(VoxCancel, ACancelIsTheStatusWhateverFailedBefore) {
  sim::Faults refusing;
  refusing.register_reply = 0xE4;
  Put(2, "Attic", refusing);
  sim::VirtualDevice& cellar = Put(3, "Cellar", NeverReplying());
  vox_.Start("register net:127.0.0.2 net:127.0.0.3");
  ASSERT_TRUE(cellar.Events().WaitFor(EventKind::kRegister, 2, 60s));
  const Outcome outcome = Cancelled();
  EXPECT_THAT(outcome.err, HasSubstr("cannot register with net:127.0.0.2: it refused"));
  EXPECT_THAT(outcome.err, HasSubstr("cannot register with net:127.0.0.3: cancelled"));
}

TEST_F(VoxCancel, AnUnregistrationThatWaitsForTheModelIsCancelled) {
  Put(2, "Attic");
  Good("add 127.0.0.2");
  sim::VirtualDevice& attic = *devices_[0];
  attic.SetFaults(NeverAnswering());
  const std::size_t asked = attic.Events().Count(EventKind::kSnmpRequest);
  vox_.Start("unregister attic --json");
  ASSERT_TRUE(attic.Events().WaitFor(EventKind::kSnmpRequest, asked + 1, 60s));
  EXPECT_EQ(json::parse(Cancelled().out)["result"], "cancelled");
  EXPECT_EQ(attic.Events().Count(EventKind::kUnregister), 0U);
  EXPECT_EQ(json::parse(Good("list --json"))["isNetworkPushEnabled"], true);
}

// Cellar answers the broadcast, and no question after it: the search waits for it.
TEST_F(VoxCancel, DevicesThatWereFoundAreShownAndSaved) {
  if (!vox::test::RouteBroadcasts()) GTEST_SKIP() << "no route for broadcasts can be made here";
  sim::Faults drowsy;
  drowsy.sleep_after = 1;
  PutHearing(2, 2, "Office");
  PutHearing(3, 3, "Cellar", drowsy);
  vox_.Start("discover");
  ASSERT_TRUE(vox_.WaitForOutput("Office"));
  const Outcome outcome = Cancelled();
  EXPECT_THAT(outcome.out, HasSubstr("02:56:58:00:00:02"));
  EXPECT_THAT(outcome.err, HasSubstr("what was found till then is listed"));
  EXPECT_EQ(json::parse(Good("list --json"))["name"], "Office");
}

TEST_F(VoxCancel, AnOnlineListThatWaitsTellsWhatIsKnownAndLosesNothing) {
  Put(2, "Office");
  sim::VirtualDevice& cellar = Put(3, "Cellar");
  Good("add 127.0.0.2");
  Good("add 127.0.0.3");
  const std::string before = Good("list --json");
  cellar.SetFaults(NeverAnswering());
  const std::size_t asked = cellar.Events().Count(EventKind::kSnmpRequest);
  vox_.Start("list --online --json");
  ASSERT_TRUE(cellar.Events().WaitFor(EventKind::kSnmpRequest, asked + 1, 60s));
  const Outcome outcome = Cancelled();
  EXPECT_EQ(outcome.err, "vox: cancelled; what was known till then is listed\n");
  const auto told = Objects(outcome.out);
  ASSERT_EQ(told.size(), 2U);
  EXPECT_EQ(told[0]["name"], "Cellar");
  EXPECT_EQ(told[0]["state"], "unknown");
  EXPECT_EQ(told[0]["online"], nullptr);
  EXPECT_EQ(told[1]["name"], "Office");
  EXPECT_EQ(Good("list --json"), before);
}

TEST_F(VoxCancel, AnAdditionThatWaitsAddsNothing) {
  Put(2, "Office");
  Good("add 127.0.0.2");
  const std::string before = Good("list --json");
  sim::VirtualDevice& cellar = Put(3, "Cellar", NeverAnswering());
  vox_.Start("add 127.0.0.3");
  ASSERT_TRUE(cellar.Events().WaitFor(EventKind::kSnmpRequest, 1, 60s));
  EXPECT_EQ(Cancelled().out, "");
  EXPECT_EQ(Good("list --json"), before);
}

}  // namespace
}  // namespace vox::cli::test
