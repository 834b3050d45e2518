// What devices do with SNMP queries: answers that go wrong, second addresses, sleep, and objects
// that are said or missed on request. LanTest.cpp has the broadcasts.
#include <gtest/gtest.h>

#include "sim/DeviceMib.h"
#include "tests/unit/sim/Asker.h"
#include "tests/unit/sim/ScriptedHost.h"

namespace vox::sim {
namespace {

class Queries : public ::testing::Test {
 protected:
  void Start(const std::string& faults, DeviceOptions options = {}) {
    ASSERT_EQ(ParseFault(faults, options.faults), "");
    device_ = std::make_unique<VirtualDevice>(std::move(options));
    ASSERT_TRUE(device_->Start()) << device_->Error();
  }
  void Ask() { asker_.Ask("127.0.0.1", device_->SnmpPort()); }
  static bool IsAnswer(const Bytes& bytes) {
    return bytes.size() > kIdPlace && bytes[0] == 0x30 && bytes[13] == 0xA2;
  }
  std::unique_ptr<VirtualDevice> device_;
  Asker asker_;
};

TEST_F(Queries, AnAnswerThatComesTwiceIsTheSameTwice) {
  Start("snmp=twice");
  Ask();
  const Bytes first = asker_.Take();
  EXPECT_TRUE(IsAnswer(first));
  EXPECT_EQ(asker_.Take(), first);
  EXPECT_TRUE(asker_.Take(kMoment).empty());
}

TEST_F(Queries, GarbageHasTheAnswersSizeAndNoneOfItsOctets) {
  Start("snmp=garbage:1");
  Ask();
  const Bytes garbage = asker_.Take();
  Ask();
  const Bytes good = asker_.Take();
  EXPECT_TRUE(IsAnswer(good));
  ASSERT_EQ(garbage.size(), good.size());
  for (std::size_t i = 0; i < good.size(); ++i) EXPECT_NE(garbage[i], good[i]) << i;
}

TEST_F(Queries, ACutAnswerIsTheFirstHalf) {
  Start("snmp=cut:1");
  Ask();
  const Bytes half = asker_.Take();
  Ask();
  Bytes good = asker_.Take();
  good.resize(good.size() / 2);
  EXPECT_EQ(half, good);
}

TEST_F(Queries, AnotherSourceIsAnotherAddressOrElseAnotherPort) {
  Start("snmp=other-source");
  Ask();
  EXPECT_TRUE(IsAnswer(asker_.Take()));
  EXPECT_EQ(asker_.Sender(), "127.0.0.254");
  EXPECT_NE(asker_.SenderPort(), device_->SnmpPort());
}

TEST_F(Queries, ASecondAddressAnswersAsTheFirst) {
  DeviceOptions options;
  options.other_address = "127.0.0.9";
  Start("snmp=other-source:1", options);
  Ask();
  EXPECT_TRUE(IsAnswer(asker_.Take()));
  EXPECT_EQ(asker_.Sender(), "127.0.0.9") << "the answer that goes wrong";
  asker_.Ask("127.0.0.9", device_->SnmpPort());
  EXPECT_TRUE(IsAnswer(asker_.Take()));
  EXPECT_EQ(asker_.Sender(), "127.0.0.9");
  EXPECT_EQ(asker_.SenderPort(), device_->SnmpPort());
}

TEST_F(Queries, AnAddressThatIsNoneKeepsTheDeviceFromStarting) {
  DeviceOptions options;
  options.other_address = "here";
  VirtualDevice device(options);
  EXPECT_FALSE(device.Start());
  EXPECT_EQ(device.Error(), "here is no IPv4 address");
}

TEST_F(Queries, ADeviceFallsAsleepAfterItsAnswersAndIsWoken) {
  Start("sleep-after=2");
  for (int i = 0; i < 2; ++i) {
    Ask();
    EXPECT_TRUE(IsAnswer(asker_.Take())) << i;
  }
  Ask();
  EXPECT_TRUE(asker_.Take(kMoment).empty());
  device_->SetFaults({});
  Ask();
  EXPECT_TRUE(IsAnswer(asker_.Take()));
}

// --- Objects in words ---

struct ObjectCase {
  const char* text;
  const char* oid;
  bool missing;
  std::uint8_t tag;
  Bytes contents;
};
const ObjectCase kObjects[] = {
    {"name=s:Office: a=b",
     "1.3.6.1.2.1.1.5.0",
     false,
     0x04,
     {'O', 'f', 'f', 'i', 'c', 'e', ':', ' ', 'a', '=', 'b'}},
    {"name=s:", "1.3.6.1.2.1.1.5.0", false, 0x04, {}},
    {"mac=x:0102fF", "1.3.6.1.2.1.2.2.1.6.1", false, 0x04, {1, 2, 0xFF}},
    {"width=i:-2", "1.3.6.1.4.1.32473.405.4.5.1.1.4.1.1", false, 0x02, {0xFE}},
    {"height=43:", "1.3.6.1.4.1.32473.405.4.5.1.1.5.1.1", false, 0x43, {}},
    {"1.3.6.1=05:00", "1.3.6.1", false, 0x05, {0}},
    {"model=none", "1.3.6.1.4.1.32473.405.1.1.1.3.0", true, 0, {}},
};

TEST(ObjectInWords, IsReadAsItStands) {
  for (const ObjectCase& row : kObjects) {
    ObjectText object;
    EXPECT_EQ(ParseObject(row.text, object), "") << row.text;
    EXPECT_EQ(object.oid, row.oid) << row.text;
    EXPECT_EQ(object.missing, row.missing) << row.text;
    EXPECT_EQ(object.tag, row.tag) << row.text;
    EXPECT_EQ(object.contents, row.contents) << row.text;
  }
}

TEST(ObjectInWords, IsRefusedWhereItMakesNoSense) {
  for (const char* text : {"", "name", "nam=s:x", "name=", "name=s", "name=x:123", "name=x:0g",
                           "name=i:", "name=i:4294967296", "name=q:1", "name=123:00", "1..3=i:1"}) {
    ObjectText object;
    object.oid = "untouched";
    EXPECT_NE(ParseObject(text, object), "") << text;
    EXPECT_EQ(object.oid, "untouched") << text;
  }
}

TEST(ObjectInWords, TakesThePlaceOfTheDevicesOwn) {
  DeviceOptions options;
  options.name = "abc";
  options.objects.resize(1);
  ASSERT_EQ(ParseObject("name=41:07", options.objects[0]), "");
  SnmpAgent agent("public");
  AddDeviceObjects(agent, options, {});
  const auto answer = agent.Answer(kGetName);
  ASSERT_TRUE(answer);
  EXPECT_EQ(Bytes(answer->end() - 3, answer->end()), (Bytes{0x41, 0x01, 0x07}));
}

TEST(ObjectInWords, MayTakeItAway) {
  DeviceOptions options;
  options.objects.resize(1);
  ASSERT_EQ(ParseObject("name=none", options.objects[0]), "");
  SnmpAgent agent("public");
  AddDeviceObjects(agent, options, {});
  const auto answer = agent.Answer(kGetName);
  ASSERT_TRUE(answer);
  EXPECT_EQ((*answer)[kIdPlace + 3], 2) << "noSuchName";
}

}  // namespace
}  // namespace vox::sim
