// The broadcast search, from the answers to the dictionaries.
#include <set>

#include <sys/resource.h>

#include <gmock/gmock.h>

#include "sim/VirtualDevice.h"
#include "tests/support/NoMemory.h"
#include "tests/support/SnmpMessage.h"
#include "tests/unit/search/Street.h"

namespace vox::test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;

std::string Home(int number) {
  return "127.0.1." + std::to_string(number);
}

std::vector<std::string> Ids(const DeviceInfoDictionary& devices) {
  std::vector<std::string> ids;
  for (const auto& [id, info] : devices) {
    EXPECT_EQ(info->String("deviceId"), id);
    ids.push_back(id);
  }
  return ids;
}

std::string IdOf(int number) {
  char id[NET_MAC_TEXT_SIZE];
  std::snprintf(id, sizeof id, "02:00:00:00:00:%02x", static_cast<unsigned>(number));
  return id;
}

TEST(NetworkSearch, DescribesADevice) {
  Street street;
  street.Add(Resident(Home(2)).Model("QD7200 ").Name("Office  ").Mac(Hex("02 AB 00 FF 10 09")));
  const auto found = street.Search();
  EXPECT_TRUE(street.Succeeded());
  ASSERT_THAT(Ids(found), ElementsAre("02:ab:00:ff:10:09"));
  EXPECT_EQ(*found.begin()->second, (Dictionary{{"type", "network"},
                                                {"ip", Home(2)},
                                                {"name", "Office"},
                                                {"modelName", "Veltronix QD7200"},
                                                {"mac", "02:ab:00:ff:10:09"},
                                                {"deviceId", "02:ab:00:ff:10:09"}}));
}

TEST(NetworkSearch, AsksWithOneGetNextOfTheModelColumn) {
  Street street;
  street.Search();
  const auto cries = street.Cries();
  ASSERT_EQ(cries.size(), 1u);
  const PduOwner asked = Parse(cries[0]);
  ASSERT_TRUE(asked);
  EXPECT_EQ(asked->byCommand, 0xA1);
  EXPECT_STREQ(asked->pcComName, "public");
  const snmp_val_list* binding = asked->lpSnmpValList;
  EXPECT_EQ(Arcs(binding->pdwOid, binding->pdwOid + binding->nOidLen),
            (Arcs{1, 3, 6, 1, 4, 1, 32473, 405, 1, 1, 1, 3}));
  EXPECT_EQ(binding->byDataType, 0x05);
}

TEST(NetworkSearch, GoesToEverybodyUnlessToldOtherwise) {
  EXPECT_STREQ(tagNETSEARCH().pszAddress, "255.255.255.255");
  EXPECT_EQ(tagNETSEARCH().nStopFd, -1);
}

TEST(NetworkSearch, ReachesALoopbackBroadcast) {
  const UdpPeer everybody(
      [](const Bytes& request) {
        sim::SnmpAgent agent("public");
        agent.Add(kModelOid, {[] { return sim::TextValue("QX1"); }, nullptr, nullptr});
        return Answers{Answer(*agent.Answer(request)).From("127.0.0.1")};
      },
      "127.255.255.255");
  const NetSettings settings(everybody, 300);
  bool success = false;
  tagNETSEARCH how;
  how.pszAddress = "127.255.255.255";
  EXPECT_THAT(searchNetworkDevices(nullptr, &success, how), IsEmpty());
  EXPECT_TRUE(success) << "somebody answered";
}

TEST(NetworkSearch, ListsOnlySupportedModels) {
  Street street;
  street.Add(Resident(Home(2)))
      .Add(Resident(Home(3)).Model("QX7200"))
      .Add(Resident(Home(4)).Model(""))
      .Add(Resident(Home(5)).Model("Veltronix QD7200"));
  EXPECT_THAT(Ids(street.Search()), ElementsAre(IdOf(2)));
  EXPECT_EQ(street.Questions(1), 0u) << "a device of another kind is left in peace";
}

TEST(NetworkSearch, SilenceIsAFailedQuery) {
  Street street(50);
  street.StaysOpen();
  EXPECT_THAT(street.Search(), IsEmpty());
  EXPECT_FALSE(street.Succeeded());
  EXPECT_THAT(searchNetworkDevices(nullptr, nullptr, {nullptr, -1, "127.0.0.250"}), IsEmpty())
      << "a missing flag is none of anybody's business";
}

TEST(NetworkSearch, EndsAfterOneQuietSecond) {
  Street street(300);
  street.StaysOpen().Add(Resident(Home(2))).Add(Resident(Home(3)).After(milliseconds(200)));
  const Stopwatch watch;
  EXPECT_EQ(street.Search().size(), 2u);
  EXPECT_GE(watch.Elapsed(), milliseconds(500));
}

TEST(NetworkSearch, EveryOneOfTheFourAnswersIsNeeded) {
  Street street;
  street.Add(Resident(Home(2)).Lacks(kNameOid))
      .Add(Resident(Home(3)).Lacks(kMacOid))
      .Add(Resident(Home(4)).Lacks(kWidthOid))
      .Add(Resident(Home(5)).Lacks(kHeightOid))
      .Add(Resident(Home(6)));
  EXPECT_THAT(Ids(street.Search()), ElementsAre(IdOf(6)));
}

TEST(NetworkSearch, ADeviceThatAnswersTwiceIsAskedAndListedOnce) {
  Street street;
  street.Add(Resident(Home(2)).Cries(2));
  std::vector<DeviceInfo> told;
  tagNETSEARCH how;
  how.found = [&told](const DeviceInfo& device) { told.push_back(device); };
  const auto found = street.Search(nullptr, how);
  EXPECT_THAT(Ids(found), ElementsAre(IdOf(2)));
  EXPECT_THAT(told, ElementsAre(found.begin()->second));
  EXPECT_EQ(street.Questions(0), 4u);
}

TEST(NetworkSearch, ADeviceThatFailedIsAskedAgainWhenItAnswersAgain) {
  Street street;
  street.Add(Resident(Home(2)).Lacks(kNameOid).Cries(2).After(milliseconds(200)));
  EXPECT_THAT(street.Search(), IsEmpty());
  EXPECT_EQ(street.Questions(0), 8u);
}

TEST(NetworkSearch, TheLaterOfTwoAddressesOfADeviceStays) {
  Street street;
  street.Add(Resident(Home(2)).Mac(Hex("02 00 00 00 00 01")))
      .Add(Resident(Home(3)).Mac(Hex("02 00 00 00 00 01")));
  const auto found = street.Search();
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found.begin()->second->String("ip"), Home(3));
}

TEST(NetworkSearch, GarbageAndStrangersAreNoDevices) {
  Street street;
  const Bytes other_kind =
      Response(BindingItem(kSysNameItem, Item(0x04, Text("QD7200"))), 2, 1);  // noSuchName
  street.Add(Resident(Home(2)).CriesRaw(Hex("30 03 02 01")))
      .Add(Resident(Home(3)).CriesRaw(Bytes(2000, 0x41)))
      .Add(Resident(Home(4)).CriesRaw(Response({})))
      .Add(Resident(Home(5)).CriesRaw(other_kind))
      .Add(Resident(Home(6)));
  EXPECT_THAT(Ids(street.Search()), ElementsAre(IdOf(6)));
}

TEST(NetworkSearch, ValuesOfOtherTypesAndLengthsAreNoDevices) {
  Street street;
  street.Add(Resident(Home(2)).Says(kModelOid, sim::IntegerValue(7)))
      .Add(Resident(Home(3)).Says(kModelOid, {0x46, Text("QD7200")}))
      .Add(Resident(Home(4)).Mac(Hex("02 00 00 00 01")))
      .Add(Resident(Home(5)).Says(kMacOid, sim::IntegerValue(7)))
      .Add(Resident(Home(6)).Mac(Bytes(257, 2)))
      .Add(Resident(Home(7)).Says(kWidthOid, sim::TextValue("85000")))
      .Add(Resident(Home(8)).Says(kHeightOid, {0x05, {}}))
      .Add(Resident(Home(9)).Says(kWidthOid, {0x42, Hex("01 4C 08")}));
  EXPECT_THAT(Ids(street.Search()), ElementsAre(IdOf(9))) << "a Gauge32 is a number as well";
}

TEST(NetworkSearch, OfALongMacAddressTheFirstSixBytesCount) {
  Street street;
  street.Add(Resident(Home(2)).Mac(Hex("02 00 00 00 00 01 FF FF")));
  EXPECT_THAT(Ids(street.Search()), ElementsAre(IdOf(1)));
}

TEST(NetworkSearch, SilentDevicesHoldNobodyUp) {
  Street street(300);
  for (int i = 2; i < 12; ++i) street.Add(Resident(Home(i)).IsSilent());
  street.Add(Resident(Home(12)));
  const Stopwatch watch;
  EXPECT_THAT(Ids(street.Search()), ElementsAre(IdOf(12)));
  EXPECT_LT(watch.Elapsed(), milliseconds(2 * 900)) << "they are waited for at the same time";
}

TEST(NetworkSearch, SixtyDevicesAreAllThere) {
  Street street;
  for (int i = 2; i < 62; ++i) street.Add(Resident(Home(i)));
  EXPECT_EQ(street.Search().size(), 60u);
}

TEST(NetworkSearch, AnswersBeyond256AreDropped) {
  Street street;
  street.Add(Resident(Home(2)).Model("QX1").Cries(256)).Add(Resident(Home(3)));
  CancelsAt never(1000);
  EXPECT_THAT(street.Search(&never), IsEmpty());
  EXPECT_EQ(never.asked, 256);
}

TEST(NetworkSearch, TheDelegateIsAskedOncePerAnswerInTheirOrder) {
  Street street;
  for (int i = 2; i < 7; ++i) street.Add(Resident(Home(i)));
  CancelsAt third(3);
  EXPECT_THAT(Ids(street.Search(&third)), ElementsAre(IdOf(2), IdOf(3)));
  EXPECT_EQ(third.asked, 3);
  EXPECT_TRUE(street.Succeeded());
  CancelsAt never(100);
  EXPECT_EQ(street.Search(&never).size(), 5u);
  EXPECT_EQ(never.asked, 6) << "five devices and the crier";
}

TEST(NetworkSearch, ACancelledDelegateStopsItAtTheFirstAnswer) {
  Street street;
  street.StaysOpen().Add(Resident(Home(2)));
  CancelsAt first(1);
  const Stopwatch watch;
  EXPECT_THAT(street.Search(&first), IsEmpty());
  EXPECT_LT(watch.Elapsed(), milliseconds(900)) << "without the quiet second";
  EXPECT_EQ(street.Questions(0), 0u);
}

TEST(NetworkSearch, AnAnswerThatCannotBeReadIsNoQuestionToTheDelegate) {
  Street street;
  street.Add(Resident(Home(2)).CriesRaw(Hex("30 00")));
  CancelsAt never(100);
  street.Search(&never);
  EXPECT_EQ(never.asked, 1) << "the crier's";
}

TEST(NetworkSearch, DevicesAreToldOfWhileTheSearchGoesOn) {
  Street street;
  street.StaysOpen().Add(Resident(Home(2))).Add(Resident(Home(3)));
  EventFd stop;
  std::set<std::string> told;
  tagNETSEARCH how;
  how.nStopFd = stop.Get();
  how.found = [&](const DeviceInfo& device) {
    told.insert(*device->String("deviceId"));
    if (told.size() == 2) stop.Raise();
  };
  const Stopwatch watch;
  EXPECT_EQ(street.Search(nullptr, how).size(), 2u);
  EXPECT_LT(watch.Elapsed(), milliseconds(900)) << "the stop came within the quiet second";
  EXPECT_THAT(told, UnorderedElementsAre(IdOf(2), IdOf(3)));
}

TEST(NetworkSearch, AStopLeavesDevicesThatAreStillAsked) {
  Street street;
  street.StaysOpen().Add(Resident(Home(2)).IsSilent()).Add(Resident(Home(3)));
  EventFd stop;
  tagNETSEARCH how;
  how.nStopFd = stop.Get();
  how.found = [&stop](const DeviceInfo&) { stop.Raise(); };
  const Stopwatch watch;
  EXPECT_THAT(Ids(street.Search(nullptr, how)), ElementsAre(IdOf(3)));
  EXPECT_LT(watch.Elapsed(), milliseconds(900));
}

// Its four answers come at the same time, or it would be found after 1.2 s at the earliest.
TEST(NetworkSearch, ASlowDeviceIsAskedItsFourQuestionsAtOnce) {
  Street street;
  street.Add(Resident(Home(2)).IsSilent());  // keeps the crier's port
  sim::DeviceOptions options;
  options.address = Home(3);
  options.snmp_port = street.Port();
  options.faults.delays.snmp = milliseconds(300);
  sim::VirtualDevice slow(options);
  ASSERT_TRUE(slow.Start()) << slow.Error();
  DeviceInfo device;
  const Stopwatch watch;
  EXPECT_EQ(get_dev_info(Home(3), "Veltronix QD7200", &device), 0);
  EXPECT_GE(watch.Elapsed(), milliseconds(300));
  EXPECT_LT(watch.Elapsed(), milliseconds(1100));
}

TEST(NetworkSearch, SaysWhetherDescriptorsWereMissing) {
  bool no_descriptors = false;
  tagNETSEARCH how;
  how.pszAddress = "127.0.0.1";
  how.pbNoDescriptors = &no_descriptors;
  searchNetworkDevices(nullptr, nullptr, how);
  EXPECT_FALSE(no_descriptors);
  rlimit was{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &was), 0);
  const rlimit none{0, was.rlim_max};
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
  EXPECT_TRUE(searchNetworkDevices(nullptr, nullptr, how).empty());
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &was), 0);
  EXPECT_TRUE(no_descriptors);
}

TEST(NetworkSearch, SaysWhetherMemoryWasMissing) {
  bool no_memory = false;
  tagNETSEARCH how;
  how.pszAddress = "127.0.0.1";
  how.pbNoMemory = &no_memory;
  searchNetworkDevices(nullptr, nullptr, how);
  EXPECT_FALSE(no_memory);
  {
    const NoMemory none;
    EXPECT_TRUE(searchNetworkDevices(nullptr, nullptr, how).empty());
  }
  EXPECT_TRUE(no_memory);
}

}  // namespace
}  // namespace vox::test
