// FakeLibUsb stands where libusb is in a test program that is linked with FakeLibUsb.cpp: a bus of
// one device, whose transfers a test answers, refuses or keeps for ever, and books on what was
// taken and given back in which order.
//
//   FakeLibUsb usb;
//   usb.answer = [](const FakeUrb&) { return FakeUrbEnd{.bytes = Hex("01 02")}; };
//   UsbSession session(usb.Record());
//   ...
//   EXPECT_THAT(usb.Calls(), ...);
//
// What libusb's documentation forbids fails the test at once: leaving a context in which a device
// is open or listed, closing a handle twice, freeing a transfer that the kernel has.
//
// Thread rule: one thread, and one object at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <libusb.h>

#include "tests/support/Hex.h"
#include "vox/platform/UsbRecords.h"

namespace vox::test {

struct FakeUrb {
  std::uint8_t endpoint, type;
  std::size_t size;
  Bytes written;  // of one that goes out
};

// FakeUrbEnd is what becomes of a transfer, and when.
struct FakeUrbEnd {
  enum When : std::uint8_t { kAtOnce, kWhenCancelled, kNever };
  int submitted = LIBUSB_SUCCESS;  // an error of libusb_submit_transfer: nothing else counts then
  libusb_transfer_status status = LIBUSB_TRANSFER_COMPLETED;
  Bytes bytes = {};       // that came in
  std::size_t taken = 0;  // bytes that went out
  When when = kAtOnce;
};

struct FakeLibUsbInterface {
  std::uint8_t interface_class = LIBUSB_CLASS_IMAGE;
  int claim = LIBUSB_SUCCESS;
  std::uint8_t alternates = 1;  // settings, numbered from 0
};

class FakeLibUsb {
 public:
  FakeLibUsb();
  ~FakeLibUsb();
  FakeLibUsb(const FakeLibUsb&) = delete;
  FakeLibUsb& operator=(const FakeLibUsb&) = delete;

  // The device. Each interface has one bulk pipe in, 0x81, and one out, 0x02, of 512 bytes a
  // packet.
  std::vector<FakeLibUsbInterface> interfaces = {{}};
  bool has_configuration = true;
  UsbRecord Record() const;

  std::function<FakeUrbEnd(const FakeUrb&)> answer;
  int init = LIBUSB_SUCCESS, list = 1, open = LIBUSB_SUCCESS, alternate = LIBUSB_SUCCESS;
  std::function<void()> before_open;  // runs first, also where that fails
  int handle_events = LIBUSB_SUCCESS;
  bool no_transfer = false, no_pollfds = false;

  // Calls are those that take something or give it back, in their order: "init", "open",
  // "claim 0", "release 0", "close", "exit" and so on.
  const std::vector<std::string>& Calls() const { return calls_; }
  int Count(const std::string& call) const;
  // Held counts contexts, lists, handles, claims and transfers that were not given back.
  int Held() const { return held_; }

 private:
  friend struct FakeLibUsbCalls;

  std::vector<std::string> calls_;
  int held_ = 0;
};

}  // namespace vox::test
