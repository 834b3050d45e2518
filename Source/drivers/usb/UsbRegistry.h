// What the controller and the searches ask of the registry of attached devices (UsbPort.h).
//
// Thread rule: any thread; an object belongs to one thread at a time.
#pragma once

#include <optional>
#include <string>
#include <utility>

#include "vox/platform/Export.h"
#include "vox/platform/PropertyValue.h"
#include "vox/platform/UsbPort.h"

namespace vox {

// usb_object owns one registry object and gives it back.
class usb_object {
 public:
  usb_object() = default;
  explicit usb_object(io_object_t object) : m_object(object) {}
  usb_object(usb_object&& other) noexcept : m_object(std::exchange(other.m_object, 0)) {}
  usb_object& operator=(usb_object&& other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }
  ~usb_object() {
    if (m_object != 0) UsbPort::Current().IOObjectRelease(m_object);
  }

  io_object_t get() const { return m_object; }
  explicit operator bool() const { return m_object != 0; }

 private:
  io_object_t m_object = 0;  // 0: none
};

enum USB_MATCH {
  USB_MATCHED,
  USB_NO_DICTIONARY,  // the matching dictionary could not be made
  USB_NO_SERVICES,    // the registry did not answer
};

// match_usb_devices asks for the attached devices with both ids (integers).
// Returns: USB_MATCHED with *devices an iterator over them.
VOX_EXPORT USB_MATCH match_usb_devices(const PropertyValue& vendorId,
                                       const PropertyValue& productId, usb_object* devices);

// next_object gives the next object of an iterator; none at its end.
VOX_EXPORT usb_object next_object(const usb_object& iterator);

// has_serial tells whether the device's serial number is this one, as it came or as a device
// dictionary holds it.
VOX_EXPORT bool has_serial(const usb_object& device, const std::string& serial);

// usb_string reads a property that is a string; nothing when there is none, or it is no string.
VOX_EXPORT std::optional<std::string> usb_string(const usb_object& device, const char* key);

}  // namespace vox
