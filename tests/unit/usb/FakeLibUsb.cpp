// The functions of libusb that the library calls, under their own names: the program's come before
// the shared library's.
#include "tests/unit/usb/FakeLibUsb.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <gtest/gtest.h>
#include <poll.h>

#include "vox/platform/FileDescriptor.h"

namespace vox::test {
namespace {

FakeLibUsb* current = nullptr;

constexpr std::uint8_t kBus = 1, kAddress = 7;
constexpr std::uint16_t kVendor = 0x5658, kProduct = 0x1520, kPacketSize = 512;

// Flying is a transfer that the kernel has.
struct Flying {
  libusb_transfer* transfer;
  FakeUrbEnd end;
  bool cancelled = false;
};

struct Configuration {
  libusb_config_descriptor config{};
  std::vector<libusb_interface> interfaces;
  std::vector<std::vector<libusb_interface_descriptor>> settings;
  libusb_endpoint_descriptor endpoints[2] = {};
};

}  // namespace

// FakeLibUsbCalls is the way from libusb's functions to the books.
struct FakeLibUsbCalls {
  static void Take(const std::string& call) { Note(call, 1); }
  static void GiveBack(const std::string& call) { Note(call, -1); }
  static void Note(const std::string& call, int held = 0) {
    current->calls_.push_back(call);
    current->held_ += held;
  }
};

namespace {
using Book = FakeLibUsbCalls;
}  // namespace

}  // namespace vox::test

using vox::test::Book;
using vox::test::current;
using vox::test::FakeUrbEnd;
using vox::test::Flying;

struct libusb_device {
  int listed = 0;
};

struct libusb_device_handle {
  libusb_context* context;
};

struct libusb_context {
  vox::EventFd ready;  // libusb_handle_events_timeout has something to do
  libusb_pollfd pollfd{ready.Get(), POLLIN};
  libusb_device device;
  int open = 0;
  std::vector<int> claims;
  std::vector<Flying> flying;
};

namespace {

libusb_context* latest = nullptr;

void End(const Flying& flown) {
  libusb_transfer& transfer = *flown.transfer;
  const bool in = (transfer.endpoint & LIBUSB_ENDPOINT_IN) != 0;
  const auto room = static_cast<std::size_t>(transfer.length);
  const std::size_t moved = std::min(room, in ? flown.end.bytes.size() : flown.end.taken);
  if (in) std::copy_n(flown.end.bytes.begin(), moved, transfer.buffer);
  transfer.actual_length = static_cast<int>(moved);
  transfer.status = flown.end.status;
  transfer.callback(&transfer);
}

bool IsDue(const Flying& flown) {
  return flown.end.when == FakeUrbEnd::kAtOnce ||
         (flown.end.when == FakeUrbEnd::kWhenCancelled && flown.cancelled);
}

}  // namespace

extern "C" {

int libusb_init(libusb_context** context) {
  if (current->init < 0) return current->init;
  Book::Take("init");
  *context = latest = new libusb_context;
  return 0;
}

void libusb_exit(libusb_context* context) {
  Book::GiveBack("exit");
  EXPECT_EQ(context->open, 0) << "a device is open";
  EXPECT_EQ(context->device.listed, 0) << "a list of devices was not given back";
  latest = nullptr;
  delete context;
}

ssize_t libusb_get_device_list(libusb_context* context, libusb_device*** list) {
  if (current->list < 0) return current->list;
  Book::Take("list");
  ++context->device.listed;
  *list = new libusb_device* [2] { &context->device, nullptr };
  return 1;
}

void libusb_free_device_list(libusb_device** list, int) {
  Book::GiveBack("free list");
  EXPECT_NE(latest, nullptr) << "the context is gone";
  if (latest != nullptr) --latest->device.listed;
  delete[] list;
}

uint8_t libusb_get_bus_number(libusb_device*) {
  return vox::test::kBus;
}

uint8_t libusb_get_device_address(libusb_device*) {
  return vox::test::kAddress;
}

int libusb_get_port_numbers(libusb_device*, uint8_t* ports, int) {
  ports[0] = 1;
  return 1;
}

int libusb_get_device_speed(libusb_device*) {
  return LIBUSB_SPEED_HIGH;
}

int libusb_get_device_descriptor(libusb_device*, libusb_device_descriptor* descriptor) {
  *descriptor = {};
  descriptor->idVendor = vox::test::kVendor;
  descriptor->idProduct = vox::test::kProduct;
  return 0;
}

int libusb_get_active_config_descriptor(libusb_device*, libusb_config_descriptor** out) {
  if (!current->has_configuration) return LIBUSB_ERROR_NOT_FOUND;
  auto* const made = new vox::test::Configuration;
  made->endpoints[0].bEndpointAddress = 0x81;
  made->endpoints[1].bEndpointAddress = 0x02;
  for (auto& endpoint : made->endpoints) {
    endpoint.bmAttributes = LIBUSB_TRANSFER_TYPE_BULK;
    endpoint.wMaxPacketSize = vox::test::kPacketSize;
  }
  for (std::size_t i = 0; i < current->interfaces.size(); ++i) {
    auto& settings = made->settings.emplace_back(current->interfaces[i].alternates);
    for (std::size_t k = 0; k < settings.size(); ++k) {
      settings[k].bInterfaceNumber = static_cast<std::uint8_t>(i);
      settings[k].bAlternateSetting = static_cast<std::uint8_t>(k);
      settings[k].bInterfaceClass = current->interfaces[i].interface_class;
      settings[k].bNumEndpoints = 2;
      settings[k].endpoint = made->endpoints;
    }
  }
  for (auto& settings : made->settings)
    made->interfaces.push_back({settings.data(), static_cast<int>(settings.size())});
  made->config.bNumInterfaces = static_cast<std::uint8_t>(made->interfaces.size());
  made->config.interface = made->interfaces.data();
  Book::Take("config");
  *out = &made->config;
  return 0;
}

void libusb_free_config_descriptor(libusb_config_descriptor* config) {
  Book::GiveBack("free config");
  delete reinterpret_cast<vox::test::Configuration*>(config);
}

int libusb_open(libusb_device*, libusb_device_handle** handle) {
  if (current->before_open) current->before_open();
  if (current->open < 0) return current->open;
  Book::Take("open");
  ++latest->open;
  *handle = new libusb_device_handle{latest};
  return 0;
}

// The kernel takes back what flies.
void libusb_close(libusb_device_handle* handle) {
  Book::GiveBack("close");
  libusb_context& context = *handle->context;
  --context.open;
  EXPECT_TRUE(context.claims.empty()) << "an interface is claimed";
  for (const Flying& flown : context.flying) flown.transfer->dev_handle = nullptr;
  context.flying.clear();
  delete handle;
}

libusb_device* libusb_get_device(libusb_device_handle* handle) {
  return &handle->context->device;
}

int libusb_set_auto_detach_kernel_driver(libusb_device_handle*, int enable) {
  Book::Note(enable != 0 ? "detach drivers" : "leave drivers");
  return 0;
}

int libusb_claim_interface(libusb_device_handle* handle, int number) {
  const int result = current->interfaces.at(static_cast<std::size_t>(number)).claim;
  if (result < 0) return result;
  Book::Take("claim " + std::to_string(number));
  handle->context->claims.push_back(number);
  return 0;
}

int libusb_release_interface(libusb_device_handle* handle, int number) {
  Book::GiveBack("release " + std::to_string(number));
  EXPECT_EQ(std::erase(handle->context->claims, number), 1u) << "was not claimed";
  return 0;
}

int libusb_set_interface_alt_setting(libusb_device_handle*, int number, int setting) {
  Book::Note("set " + std::to_string(number) + " " + std::to_string(setting));
  return current->alternate;
}

int libusb_clear_halt(libusb_device_handle*, unsigned char endpoint) {
  Book::Note("clear " + std::to_string(endpoint));
  return 0;
}

libusb_transfer* libusb_alloc_transfer(int) {
  if (current->no_transfer) return nullptr;
  Book::Take("transfer");
  return static_cast<libusb_transfer*>(std::calloc(1, sizeof(libusb_transfer)));
}

void libusb_free_transfer(libusb_transfer* transfer) {
  Book::GiveBack("free transfer");
  const bool flies = latest != nullptr && std::ranges::any_of(latest->flying, [&](const Flying& f) {
                       return f.transfer == transfer;
                     });
  EXPECT_FALSE(flies) << "the kernel still has the transfer";
  std::free(transfer);
}

int libusb_submit_transfer(libusb_transfer* transfer) {
  Book::Note("submit " + std::to_string(transfer->length));
  vox::test::FakeUrb urb{
      transfer->endpoint, transfer->type, static_cast<std::size_t>(transfer->length), {}};
  if ((transfer->endpoint & LIBUSB_ENDPOINT_IN) == 0 && transfer->length > 0)
    urb.written.assign(transfer->buffer, transfer->buffer + transfer->length);
  const FakeUrbEnd end = current->answer(urb);
  if (end.submitted < 0) return end.submitted;
  latest->flying.push_back({transfer, end});
  if (end.when == FakeUrbEnd::kAtOnce) latest->ready.Raise();
  return 0;
}

int libusb_cancel_transfer(libusb_transfer* transfer) {
  Book::Note("cancel");
  for (Flying& flown : latest->flying) {
    if (flown.transfer == transfer) flown.cancelled = true;
  }
  latest->ready.Raise();
  return 0;
}

int libusb_handle_events_timeout(libusb_context* context, timeval*) {
  if (current->handle_events < 0 && std::ranges::none_of(context->flying, IsDue))
    return current->handle_events;
  context->ready.Clear();
  const auto due = std::stable_partition(context->flying.begin(), context->flying.end(),
                                         [](const Flying& flown) { return !IsDue(flown); });
  const std::vector<Flying> ended(due, context->flying.end());
  context->flying.erase(due, context->flying.end());
  for (const Flying& flown : ended) End(flown);
  return 0;
}

const libusb_pollfd** libusb_get_pollfds(libusb_context* context) {
  if (current->no_pollfds) return nullptr;
  return new const libusb_pollfd* [2] { &context->pollfd, nullptr };
}

void libusb_free_pollfds(const libusb_pollfd** fds) {
  delete[] fds;
}

}  // extern "C"

namespace vox::test {

FakeLibUsb::FakeLibUsb() {
  current = this;
  answer = [](const FakeUrb&) {
    return FakeUrbEnd{.status = LIBUSB_TRANSFER_CANCELLED, .when = FakeUrbEnd::kWhenCancelled};
  };
}

FakeLibUsb::~FakeLibUsb() {
  EXPECT_EQ(held_, 0) << "something was not given back";
  current = nullptr;
}

UsbRecord FakeLibUsb::Record() const {
  UsbRecord record;
  record.bus = kBus;
  record.address = kAddress;
  record.vendor = kVendor;
  record.product = kProduct;
  return record;
}

int FakeLibUsb::Count(const std::string& call) const {
  return static_cast<int>(std::ranges::count(calls_, call));
}

}  // namespace vox::test
