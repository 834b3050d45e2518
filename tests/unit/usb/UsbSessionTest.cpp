// An open device over libusb: what is claimed and given back on every way out, and one transfer
// that ends, is cut, or never comes back.
#include "vox/platform/UsbSession.h"

#include <chrono>
#include <optional>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "tests/support/NoDescriptors.h"
#include "tests/support/Sanitized.h"
#include "tests/unit/usb/FakeLibUsb.h"
#include "vox/platform/DescriptorRefusals.h"
#include "vox/platform/FileDescriptor.h"

namespace vox::test {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::Not;
using Clock = std::chrono::steady_clock;

constexpr std::uint8_t kPrinter = 7;
constexpr UsbPipeShape kIn{0x81, kUSBBulk, 512, 0}, kOut{0x02, kUSBBulk, 512, 0};

class Session : public testing::Test {
 protected:
  UsbSession& Made() {
    if (!session_) session_.emplace(usb_.Record());
    return *session_;
  }
  UsbSession& Opened() {
    EXPECT_EQ(Made().Open(), kIOReturnSuccess);
    return *session_;
  }
  void ExpectOpenFails(IOReturn result) {
    EXPECT_EQ(Made().Open(), result);
    EXPECT_FALSE(session_->IsOpen());
    EXPECT_EQ(usb_.Held(), 0) << "given back at once, not with the object";
  }
  UsbSession::Moved Read(std::size_t size, Clock::duration time = 10s) {
    bytes_.assign(size, 0xEE);
    return Made().Transfer(kIn, bytes_, Clock::now() + time);
  }

  FakeLibUsb usb_;
  std::optional<UsbSession> session_;
  Bytes bytes_;
};

TEST_F(Session, ClaimsTheStillImageInterfacesAndNoOthers) {
  usb_.interfaces = {{kPrinter}, {}, {.alternates = 3}, {0xFF}};
  Opened();
  EXPECT_THAT(usb_.Calls(), Contains("claim 1"));
  EXPECT_EQ(usb_.Count("claim 2"), 1) << "once, whatever its settings";
  EXPECT_THAT(usb_.Calls(), Not(Contains("claim 0")));
  EXPECT_THAT(usb_.Calls(), Not(Contains("claim 3")));
  EXPECT_THAT(usb_.Calls(), Contains("detach drivers"));
  session_.reset();
  EXPECT_EQ(usb_.Held(), 0);
}

TEST_F(Session, OfADeviceThatAnotherProgramHoldsGivesEverythingBack) {
  usb_.interfaces = {{}, {.claim = LIBUSB_ERROR_BUSY}};
  ExpectOpenFails(kIOReturnExclusiveAccess);
  EXPECT_THAT(usb_.Calls(), Contains("claim 0"));
  usb_.interfaces[1].claim = LIBUSB_SUCCESS;
  Opened();
  EXPECT_EQ(session_->Open(), kIOReturnExclusiveAccess) << "this object itself";
}

TEST_F(Session, ThatDoesNotOpenHoldsNothing) {
  usb_.open = LIBUSB_ERROR_ACCESS;
  ExpectOpenFails(kIOReturnNotPermitted);
  usb_.open = LIBUSB_ERROR_NO_DEVICE;
  ExpectOpenFails(kIOReturnNoDevice);
  usb_.list = LIBUSB_ERROR_NO_MEM;
  ExpectOpenFails(kIOReturnNoMemory);
  usb_.init = LIBUSB_ERROR_OTHER;
  ExpectOpenFails(kIOReturnError);
}

TEST_F(Session, ThatLacksFileDescriptorsSaysSo) {
  if (kSanitized) GTEST_SKIP() << "a sanitizer opens descriptors of its own";
  {
    const NoDescriptors none;
    ExpectOpenFails(kIOReturnNoResources);
    EXPECT_THAT(usb_.Calls(), testing::IsEmpty()) << "libusb would leave devices out";
  }
  std::optional<NoDescriptors> none;
  usb_.before_open = [&none] { none.emplace(); };  // others took them meanwhile
  usb_.open = LIBUSB_ERROR_IO;
  const std::uint32_t refused = DescriptorRefusalsHere();
  ExpectOpenFails(kIOReturnNoResources);
  EXPECT_EQ(DescriptorRefusalsHere(), refused + 1);
  none.reset();
  usb_.before_open = nullptr;
  ExpectOpenFails(kIOReturnNotResponding);
}

TEST_F(Session, OfADeviceThatCameInAnothersPlaceDoesNotOpen) {
  for (auto change :
       {+[](UsbRecord& record) { ++record.address; }, +[](UsbRecord& record) { ++record.bus; },
        +[](UsbRecord& record) { ++record.vendor; },
        +[](UsbRecord& record) { ++record.product; }}) {
    UsbRecord record = usb_.Record();
    change(record);
    session_.emplace(record);
    ExpectOpenFails(kIOReturnNoDevice);
  }
}

TEST_F(Session, WithoutAConfigurationOpensAndHasNoInterfaces) {
  usb_.has_configuration = false;
  std::vector<UsbInterfaceShape> interfaces;
  EXPECT_EQ(Opened().Interfaces({6, 0xFFFF, 0xFFFF, 0xFFFF}, &interfaces), kIOReturnSuccess);
  EXPECT_THAT(interfaces, testing::IsEmpty());
}

TEST_F(Session, ClosesInTheOrderThatLibusbAsksFor) {
  Opened();
  const auto before = static_cast<std::ptrdiff_t>(usb_.Calls().size());
  session_->Close();
  EXPECT_THAT(std::vector(usb_.Calls().begin() + before, usb_.Calls().end()),
              ElementsAre("release 0", "close", "exit"));
  session_->Close();
  EXPECT_EQ(usb_.Count("close"), 1);
  std::vector<UsbInterfaceShape> interfaces;
  EXPECT_EQ(session_->Interfaces({6, 0xFFFF, 0xFFFF, 0xFFFF}, &interfaces), kIOReturnNotOpen);
  EXPECT_EQ(session_->Take({}), kIOReturnNotOpen);
  EXPECT_EQ(session_->ClearHalt(0x81), kIOReturnNotOpen);
  EXPECT_EQ(Read(8).result, kIOReturnNotOpen);
}

TEST_F(Session, AnInterfaceOfAnotherClassIsClaimedWhileItIsTaken) {
  usb_.interfaces = {{kPrinter}, {}};
  const UsbInterfaceShape printer{0, 0, {}}, scanner{1, 0, {}};
  Opened();
  EXPECT_EQ(session_->Take(printer), kIOReturnSuccess);
  EXPECT_EQ(session_->Take(printer), kIOReturnExclusiveAccess);
  session_->GiveBack(printer);
  EXPECT_THAT(usb_.Calls(), Contains("release 0"));
  EXPECT_EQ(session_->Take(scanner), kIOReturnSuccess);
  session_->GiveBack(scanner);
  EXPECT_THAT(usb_.Calls(), Not(Contains("release 1"))) << "claimed for the device";
  usb_.interfaces[0].claim = LIBUSB_ERROR_BUSY;
  EXPECT_EQ(session_->Take(printer), kIOReturnExclusiveAccess);
}

TEST_F(Session, ASettingIsSelectedAndAnInterfaceThatRefusesItIsFreeAgain) {
  usb_.interfaces = {{.alternates = 3}};
  const UsbInterfaceShape second{0, 2, {}};
  Opened();
  EXPECT_EQ(session_->Take(second), kIOReturnSuccess);
  EXPECT_THAT(usb_.Calls(), Contains("set 0 2"));
  session_->GiveBack(second);
  usb_.alternate = LIBUSB_ERROR_NO_DEVICE;
  EXPECT_EQ(session_->Take(second), kIOReturnNoDevice);
  usb_.alternate = LIBUSB_SUCCESS;
  EXPECT_EQ(session_->Take(second), kIOReturnSuccess);
}

// ---- one transfer

TEST_F(Session, ATransferGivesWhatCame) {
  usb_.answer = [](const FakeUrb& urb) {
    EXPECT_EQ(urb.endpoint, 0x81);
    EXPECT_EQ(urb.type, kUSBBulk);
    return FakeUrbEnd{.bytes = Hex("01 02 03")};
  };
  Opened();
  const auto moved = Read(8);
  EXPECT_EQ(moved.result, kIOReturnSuccess);
  EXPECT_EQ(moved.bytes, 3u);
  EXPECT_EQ(bytes_, Hex("01 02 03 EE EE EE EE EE"));
}

struct StatusRow {
  libusb_transfer_status status;
  IOReturn result;
};
class TransferStatus : public Session, public testing::WithParamInterface<StatusRow> {};

TEST_P(TransferStatus, IsAResult) {
  usb_.answer = [](const FakeUrb&) {
    return FakeUrbEnd{.status = GetParam().status, .bytes = Hex("07")};
  };
  Opened();
  const auto moved = Read(8);
  EXPECT_EQ(moved.result, GetParam().result);
  EXPECT_EQ(moved.bytes, 1u) << "what came before is not lost";
}

INSTANTIATE_TEST_SUITE_P(
    Table, TransferStatus,
    testing::Values(StatusRow{LIBUSB_TRANSFER_COMPLETED, kIOReturnSuccess},
                    StatusRow{LIBUSB_TRANSFER_STALL, kIOUSBPipeStalled},
                    StatusRow{LIBUSB_TRANSFER_NO_DEVICE, kIOReturnNoDevice},
                    StatusRow{LIBUSB_TRANSFER_TIMED_OUT, kIOUSBTransactionTimeout},
                    StatusRow{LIBUSB_TRANSFER_ERROR, kIOReturnNotResponding},
                    StatusRow{LIBUSB_TRANSFER_OVERFLOW, kIOReturnNotResponding},
                    StatusRow{LIBUSB_TRANSFER_CANCELLED, kIOReturnNotResponding}));

TEST_F(Session, ATransferIsCancelledAtItsDeadlineWithWhatCame) {
  usb_.answer = [](const FakeUrb&) {
    return FakeUrbEnd{.status = LIBUSB_TRANSFER_CANCELLED,
                      .bytes = Hex("01 02"),
                      .when = FakeUrbEnd::kWhenCancelled};
  };
  Opened();
  const auto start = Clock::now();
  const auto moved = Read(8, 50ms);
  EXPECT_GE(Clock::now() - start, 50ms);
  EXPECT_EQ(moved.result, kIOUSBTransactionTimeout);
  EXPECT_EQ(moved.bytes, 2u);
  EXPECT_EQ(usb_.Count("cancel"), 1);
}

TEST_F(Session, ATransferThatEndsWhileItIsCancelledCounts) {
  usb_.answer = [](const FakeUrb&) {
    return FakeUrbEnd{.bytes = Hex("01"), .when = FakeUrbEnd::kWhenCancelled};
  };
  Opened();
  const auto moved = Read(8, 10ms);
  EXPECT_EQ(moved.result, kIOReturnSuccess);
  EXPECT_EQ(moved.bytes, 1u);
}

TEST_F(Session, AnInterruptCancelsATransferAndForbidsTheNext) {
  Opened();
  EventFd raised;
  const UsbInterrupt interrupt(raised.Get());
  usb_.answer = [&](const FakeUrb&) {
    raised.Raise();
    return FakeUrbEnd{.status = LIBUSB_TRANSFER_CANCELLED, .when = FakeUrbEnd::kWhenCancelled};
  };
  EXPECT_EQ(Read(8, 1h).result, kIOReturnAborted);
  EXPECT_EQ(usb_.Count("cancel"), 1);
  EXPECT_EQ(Read(8, 1h).result, kIOReturnAborted);
  EXPECT_EQ(usb_.Count("submit 8"), 1);
}

TEST_F(Session, ATransferThatCannotBeMadeOrSubmittedIsGivenBack) {
  Opened();
  usb_.no_transfer = true;
  EXPECT_EQ(Read(8).result, kIOReturnNoMemory);
  usb_.no_transfer = false;
  for (const auto& [error, result] : {std::pair(LIBUSB_ERROR_NO_DEVICE, kIOReturnNoDevice),
                                      std::pair(LIBUSB_ERROR_BUSY, kIOReturnExclusiveAccess),
                                      std::pair(LIBUSB_ERROR_INVALID_PARAM, kIOReturnBadArgument),
                                      std::pair(LIBUSB_ERROR_NO_MEM, kIOReturnNoMemory),
                                      std::pair(LIBUSB_ERROR_PIPE, kIOUSBPipeStalled),
                                      std::pair(LIBUSB_ERROR_TIMEOUT, kIOUSBTransactionTimeout),
                                      std::pair(LIBUSB_ERROR_IO, kIOReturnNotResponding),
                                      std::pair(LIBUSB_ERROR_OTHER, kIOReturnError)}) {
    usb_.answer = [submitted = error](const FakeUrb&) {
      return FakeUrbEnd{.submitted = submitted};
    };
    EXPECT_EQ(Read(8).result, result) << error;
  }
}

TEST_F(Session, ATransferThatCannotBeWaitedForIsCancelled) {
  Opened();
  usb_.no_pollfds = true;
  EXPECT_EQ(Read(8, 1h).result, kIOReturnError);
  usb_.no_pollfds = false;
  usb_.handle_events = LIBUSB_ERROR_OTHER;
  EXPECT_EQ(Read(8, 50ms).result, kIOReturnError);
}

// Five seconds after it was cancelled, the device is let go: the kernel takes the transfer from
// who closes it, and neither its buffer nor its record is given back before.
TEST_F(Session, ATransferThatNeverComesBackCostsFiveSecondsAndTheDevice) {
  usb_.answer = [](const FakeUrb&) { return FakeUrbEnd{.when = FakeUrbEnd::kNever}; };
  Opened();
  const auto start = Clock::now();
  const auto moved = Read(8, 100ms);
  const auto took = Clock::now() - start;
  EXPECT_EQ(moved.result, kIOReturnNoDevice);
  EXPECT_EQ(moved.bytes, 0u);
  EXPECT_GE(took, 5'100ms);
  EXPECT_LT(took, 20s);
  EXPECT_FALSE(session_->IsOpen());
  EXPECT_EQ(usb_.Held(), 0);
  const auto& calls = usb_.Calls();
  EXPECT_THAT(std::vector(calls.end() - 5, calls.end()),
              ElementsAre("cancel", "release 0", "close", "exit", "free transfer"));
  EXPECT_EQ(Read(8).result, kIOReturnNotOpen);
  EXPECT_EQ(session_->Open(), kIOReturnSuccess) << "it may be tried again";
}

TEST_F(Session, WritesWhatItIsGiven) {
  Bytes sent;
  usb_.answer = [&](const FakeUrb& urb) {
    sent = urb.written;
    return FakeUrbEnd{.taken = urb.size};
  };
  Opened();
  Bytes bytes = Hex("4D 46 50 50");
  const auto moved = session_->Transfer(kOut, bytes, Clock::now() + 10s);
  EXPECT_EQ(moved.result, kIOReturnSuccess);
  EXPECT_EQ(moved.bytes, 4u);
  EXPECT_EQ(sent, bytes);
}

}  // namespace
}  // namespace vox::test
