// The entry points in the order that the standard describes, and in every other one.
#include <algorithm>
#include <random>
#include <sstream>

#include "tests/e2e/sane/SaneApi.h"
#include "tests/support/FreshLoopback.h"
#include "tests/support/Moment.h"

namespace vox::cli::test {
namespace {

using testing::AnyOf;
using testing::ElementsAre;
using testing::Ne;

class SaneOrder : public SaneApi {};

TEST_F(SaneOrder, VersionOneIsTold) {
  SANE_Int version = 0;
  ASSERT_EQ(sane_->init(&version, nullptr), SANE_STATUS_GOOD);
  EXPECT_EQ(SANE_VERSION_MAJOR(version), 1);
  sane_->exit();
  ASSERT_EQ(sane_->init(nullptr, nullptr), SANE_STATUS_GOOD) << "the version need not be wanted";
  sane_->exit();
}

TEST_F(SaneOrder, WithoutADeviceInitSucceedsAndTheListIsEmpty) {
  const std::size_t threads = Threads();
  SaneSession session(*sane_);
  EXPECT_EQ(Threads(), threads) << "threads start when they are needed: hosts fork";
  EXPECT_TRUE(Devices().empty());
}

TEST_F(SaneOrder, AListStaysAsItIsUntilTheNext) {
  PutSmall();
  place_->Configure({"device net:127.0.0.2"});
  SaneSession session(*sane_);
  const auto devices = Devices();
  ASSERT_EQ(devices.size(), 1U);
  const std::string name = devices[0]->name;
  EXPECT_STREQ(devices[0]->vendor, "Veltronix");
  EXPECT_STRNE(devices[0]->model, "");
  EXPECT_STREQ(devices[0]->type, "multi-function peripheral");
  SaneScanner(*sane_, name).Page();
  SaneScanner(*sane_, kSmall).Cancel();
  EXPECT_EQ(devices[0]->name, name);
  const auto again = Devices();
  ASSERT_EQ(again.size(), 1U);
  EXPECT_EQ(again[0]->name, name) << "and names stay";
}

TEST_F(SaneOrder, LocalDevicesAreThoseAtUsbUnlessTheConfigurationSaysMore) {
  PutSmall();
  place_->Configure({"device net:127.0.0.2"});
  {
    SaneSession session(*sane_);
    EXPECT_TRUE(Devices(SANE_TRUE).empty());
    EXPECT_EQ(Devices(SANE_FALSE).size(), 1U);
    EXPECT_TRUE(Devices(SANE_TRUE).empty());
  }
  place_->Configure({"device net:127.0.0.2", "network-when-local-only on"});
  SaneSession session(*sane_);
  EXPECT_EQ(Devices(SANE_TRUE).size(), 1U) << "the configuration is read at every init";
}

TEST_F(SaneOrder, AListIsThereWithinItsTimeThoughNobodyAnswers) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("silent=always");
  PutSmall(std::move(options));
  place_->Configure({"device net:127.0.0.2", "device net:127.0.0.88", "discovery on"});
  SaneSession session(*sane_);
  const auto begun = std::chrono::steady_clock::now();
  const SANE_Device** list = nullptr;
  EXPECT_EQ(sane_->get_devices(&list, SANE_FALSE), SANE_STATUS_GOOD);
  EXPECT_LT(Since(begun), 6) << "2 s, and as much again for a slow machine, and more";
}

// A device says who it is in two answers, here after 1.8 s.
TEST_F(SaneOrder, AListDoesNotWaitForASlowDeviceOfTheConfiguration) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("delay=snmp:900");
  PutSmall(std::move(options));
  place_->Configure({"device net:127.0.0.2"});
  SaneSession session(*sane_);
  EXPECT_EQ(Devices().at(0)->name, std::string(kSmall)) << "a second at most";
  EXPECT_TRUE(vox::test::Eventually([&] {
    return Devices().at(0)->name == std::string("net:02:56:58:00:00:01");
  })) << "what it answers later is in a later list";
}

// The device that is searched for has said who it is after 1.4 s.
TEST_F(SaneOrder, AListDoesNotWaitForTheSearchWhereADeviceIsKnown) {
  if (!vox::test::RouteBroadcasts()) GTEST_SKIP() << "no route for broadcasts can be made here";
  PutSmall();
  Good("add 127.0.0.2");
  PutHearing(7, 0, "Attic", FaultsOf("delay=snmp:700"));  // which the alphabet would put first
  place_->Configure({"discovery on"});
  SaneSession session(*sane_);
  const auto first = Devices();
  ASSERT_EQ(first.size(), 1U);
  EXPECT_EQ(first[0]->name, std::string("net:02:56:58:00:00:01"));
  EXPECT_TRUE(vox::test::Eventually([&] { return Devices().size() == 2; }));
}

// What a search finds after a list was given is in the next one, behind the devices that are known.
TEST_F(SaneOrder, WhatTheSearchFindsIsInTheNextListBehindTheKnown) {
  if (!vox::test::RouteBroadcasts()) GTEST_SKIP() << "no route for broadcasts can be made here";
  PutSmall();
  PutHearing(7, 0, "Attic");  // which the alphabet would put first
  place_->Configure({"device net:127.0.0.2", "discovery on"});
  SaneSession session(*sane_);
  EXPECT_EQ(Devices().at(0)->name, std::string("net:02:56:58:00:00:01"));
  EXPECT_TRUE(vox::test::Eventually([&] { return Devices().size() == 2; }));
  EXPECT_EQ(Devices().at(0)->name, std::string("net:02:56:58:00:00:01"));
}

// Each answer makes the search wait a second more; the third device has said who it is after 2.8 s.
TEST_F(SaneOrder, AListDoesNotWaitForASearchThatGoesOn) {
  if (!vox::test::RouteBroadcasts()) GTEST_SKIP() << "no route for broadcasts can be made here";
  PutHearing(4, 4, "Attic", FaultsOf("delay=snmp:400"));
  PutHearing(5, 5, "Cellar", FaultsOf("delay=snmp:900"));
  PutHearing(6, 6, "Office", FaultsOf("delay=snmp:1400"));
  place_->Configure({"discovery on"});
  SaneSession session(*sane_);
  const auto has_office = [&] {
    const auto devices = Devices();
    return std::any_of(devices.begin(), devices.end(), [](const SANE_Device* device) {
      return device->name == std::string("net:02:56:58:00:00:06");
    });
  };
  EXPECT_FALSE(has_office()) << "2 s at most";
  EXPECT_TRUE(vox::test::Eventually(has_office)) << "what came later is in a later list";
}

TEST_F(SaneOrder, OpensWithoutAListByAddressAndByTheNameThatAListGives) {
  PutSmall();
  std::string name;
  place_->Configure({"device net:127.0.0.2"});
  {
    SaneSession session(*sane_);
    name = Devices().at(0)->name;
  }
  SaneSession session(*sane_);
  for (const std::string& by : {std::string(kSmall), name, std::string()}) {
    SCOPED_TRACE(by);
    SaneScanner scanner(*sane_, by);
    ASSERT_EQ(scanner.Set("mode", "Gray"), SANE_STATUS_GOOD);
    ExpectGood(scanner.Page());
  }
}

// As in a program with a window, which asks for lists again.
TEST_F(SaneOrder, AListAfterAFailedOpenNamesWhoIsAtTheAddressNow) {
  PutSmall();
  Good("add 127.0.0.2");
  devices_.clear();
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.mac[5] = 9;
  PutSmall(std::move(options));
  place_->Configure({"device net:127.0.0.2"});
  SaneSession session(*sane_);
  const std::string outdated = Devices().at(0)->name;
  EXPECT_EQ(outdated, "net:02:56:58:00:00:01");
  SANE_Handle handle = nullptr;
  EXPECT_EQ(sane_->open(outdated.c_str(), &handle), SANE_STATUS_INVAL);
  const auto devices = Devices();
  ASSERT_EQ(devices.size(), 2U);
  EXPECT_EQ(devices[0]->name, std::string("net:02:56:58:00:00:09"));
  EXPECT_EQ(devices[1]->name, outdated);
  ExpectGood(SaneScanner(*sane_, devices[0]->name).Page());
}

TEST_F(SaneOrder, WhoIsNobodyDoesNotOpen) {
  SaneSession session(*sane_);
  SANE_Handle handle = nullptr;
  for (const char* name : {"", "net:", "usb:", "net:127.0.0.99", "usb:NOBODY", "nonsense",
                           "net:not a host", "net:02:56:58:00:00:99", "net:999.1.1.1"}) {
    EXPECT_EQ(sane_->open(name, &handle), SANE_STATUS_INVAL) << name;
  }
  EXPECT_EQ(sane_->open(std::string(100000, 'n').c_str(), &handle), SANE_STATUS_INVAL);
  EXPECT_EQ(sane_->open(kSmall, nullptr), SANE_STATUS_INVAL);
  EXPECT_NE(sane_->open(nullptr, &handle), SANE_STATUS_GOOD);
}

TEST_F(SaneOrder, NothingIsReadBeforeAStart) {
  PutSmall();
  SaneSession session(*sane_);
  const auto scanner = OpenSmall();
  std::vector<SANE_Byte> bytes;
  EXPECT_EQ(scanner->Read(bytes), SANE_STATUS_INVAL);
  SANE_Int fd = -1;
  EXPECT_EQ(sane_->set_io_mode(scanner->Handle(), SANE_TRUE), SANE_STATUS_INVAL);
  EXPECT_EQ(sane_->get_select_fd(scanner->Handle(), &fd), SANE_STATUS_INVAL);
  ExpectGood(scanner->Page());
}

TEST_F(SaneOrder, AStartWithinAPageIsRefusedAndThePageGoesOn) {
  PutSmall();
  SaneSession session(*sane_);
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  std::vector<SANE_Byte> bytes;
  ASSERT_EQ(scanner->Read(bytes, 100), SANE_STATUS_GOOD);
  EXPECT_THAT(scanner->Start(), AnyOf(SANE_STATUS_INVAL, SANE_STATUS_DEVICE_BUSY));
  while (scanner->Read(bytes) == SANE_STATUS_GOOD) {
  }
  EXPECT_EQ(bytes.size(), 300U * 250U);
}

TEST_F(SaneOrder, AReadAfterACancelSaysThatItWasCancelled) {
  PutSmall();
  SaneSession session(*sane_);
  const auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  scanner->Cancel();
  std::vector<SANE_Byte> bytes;
  EXPECT_EQ(scanner->Read(bytes), SANE_STATUS_CANCELLED);
  EXPECT_THAT(scanner->Read(bytes), AnyOf(SANE_STATUS_CANCELLED, SANE_STATUS_INVAL));
  ExpectGood(scanner->Page());
}

TEST_F(SaneOrder, AHandleIsClosedInTheMiddleOfAPage) {
  PutSmall();
  SaneSession session(*sane_);
  auto scanner = OpenSmall();
  ASSERT_EQ(scanner->Start(), SANE_STATUS_GOOD);
  std::vector<SANE_Byte> bytes;
  ASSERT_EQ(scanner->Read(bytes, 100), SANE_STATUS_GOOD);
  scanner.reset();
  ExpectGood(OpenSmall()->Page());
}

TEST_F(SaneOrder, ExitClosesWhatIsOpenAndAPageThatRuns) {
  PutSmall();
  SANE_Int version = 0;
  const std::size_t threads = Threads();
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(sane_->init(&version, nullptr), SANE_STATUS_GOOD);
    SANE_Handle one = nullptr, other = nullptr;
    ASSERT_EQ(sane_->open(kSmall, &one), SANE_STATUS_GOOD);
    ASSERT_EQ(sane_->open(kSmall, &other), SANE_STATUS_GOOD);
    ASSERT_EQ(sane_->start(one), SANE_STATUS_GOOD);
    sane_->exit();
    sane_->exit();
  }
  EXPECT_LE(Threads(), threads + 2) << "those of the device aside, which open and end with pages";
}

TEST_F(SaneOrder, ACallWithoutInitIsRefused) {
  PutSmall();
  SANE_Handle handle = nullptr;
  const SANE_Device** list = nullptr;
  sane_->exit();
  EXPECT_NE(sane_->open(kSmall, &handle), SANE_STATUS_GOOD);
  EXPECT_NE(sane_->get_devices(&list, SANE_FALSE), SANE_STATUS_GOOD);
}

TEST_F(SaneOrder, HandlesThatAreNoneAreRefused) {
  PutSmall();
  SaneSession session(*sane_);
  SANE_Handle closed = nullptr;
  ASSERT_EQ(sane_->open(kSmall, &closed), SANE_STATUS_GOOD);
  sane_->close(closed);
  int other = 0;
  for (SANE_Handle const handle : {SANE_Handle{nullptr}, SANE_Handle{&other}, closed}) {
    SANE_Word word = 0;
    SANE_Parameters parameters{};
    SANE_Byte byte = 0;
    EXPECT_EQ(sane_->get_option_descriptor(handle, 0), nullptr);
    EXPECT_EQ(sane_->control_option(handle, 0, SANE_ACTION_GET_VALUE, &word, nullptr),
              SANE_STATUS_INVAL);
    EXPECT_EQ(sane_->get_parameters(handle, &parameters), SANE_STATUS_INVAL);
    EXPECT_EQ(sane_->start(handle), SANE_STATUS_INVAL);
    EXPECT_EQ(sane_->read(handle, &byte, 1, &word), SANE_STATUS_INVAL);
    EXPECT_EQ(sane_->set_io_mode(handle, SANE_TRUE), SANE_STATUS_INVAL);
    EXPECT_EQ(sane_->get_select_fd(handle, &word), SANE_STATUS_INVAL);
    sane_->cancel(handle);
    sane_->close(handle);
  }
}

TEST_F(SaneOrder, TwoHandlesOfOneDeviceTakeTurns) {
  PutSmall();
  SaneSession session(*sane_);
  const auto one = OpenSmall(), other = OpenSmall();
  ASSERT_EQ(other->Set("resolution", 200), SANE_STATUS_GOOD);
  EXPECT_EQ(one->Word("resolution"), 100) << "each has its own options";
  for (int i = 0; i < 2; ++i) {
    ExpectGood(one->Page());
    one->Cancel();
    ExpectGood(other->Page());
    other->Cancel();
  }
}

// A model of what a handle may answer, beside a handle that is called at random. The device is
// slow enough for pages to be in every state.
TEST_F(SaneOrder, AnyOrderIsAnsweredAsTheStateAsks) {
  sim::DeviceOptions options = vox::test::SmallDevice();
  options.faults = FaultsOf("delay=data:2");
  PutSmall(std::move(options));
  SaneSession session(*sane_);
  std::mt19937 random(4711);
  auto scanner = OpenSmall();
  bool running = false;
  std::size_t got = 0;
  for (int step = 0; step < 1500; ++step) {
    SCOPED_TRACE(step);
    std::vector<SANE_Byte> bytes;
    switch (random() % 9) {
      case 0: {
        const SANE_Status status = scanner->Start();
        EXPECT_EQ(status == SANE_STATUS_GOOD, !running);
        if (!running) got = 0;
        running = true;
        break;
      }
      case 1:
      case 2:
      case 3: {
        const SANE_Status status = scanner->Read(bytes, static_cast<SANE_Int>(1 + random() % 9000));
        got += bytes.size();
        if (!running) {
          EXPECT_THAT(status, AnyOf(SANE_STATUS_INVAL, SANE_STATUS_CANCELLED));
        } else if (status == SANE_STATUS_EOF) {
          EXPECT_EQ(got, 300U * 250U);
          running = false;
        } else {
          EXPECT_EQ(status, SANE_STATUS_GOOD);
        }
        break;
      }
      case 4:
        if (random() % 4 == 0) {
          scanner->Cancel();
          running = false;
        }
        break;
      case 5: {
        const SANE_Status status = scanner->Set("brightness", 0);
        if (running) {
          EXPECT_NE(status, SANE_STATUS_GOOD);
        }
        break;
      }
      case 6:
        EXPECT_EQ(scanner->Parameters().pixels_per_line, 300);
        EXPECT_EQ(scanner->Parameters().lines, 250);
        break;
      case 7:
        if (random() % 16 == 0) {
          scanner = OpenSmall();
          running = false;
        }
        break;
      default: {
        SANE_Int fd = -1;
        const SANE_Status status = sane_->get_select_fd(scanner->Handle(), &fd);
        if (running) {
          EXPECT_EQ(status, SANE_STATUS_GOOD);
        }
      }
    }
    if (HasFailure()) break;
  }
}

}  // namespace
}  // namespace vox::cli::test
