// A hostile device: the input is what it answers, as the bindings of its model, name, MAC address,
// width and height, each behind its length (two bytes). Property: asking it who it is ends, with a
// whole dictionary that a property list gives back as it was, or with none.
#include <algorithm>
#include <array>
#include <cstdlib>

#include "tests/support/UdpPeer.h"
#include "vox/drivers/net/search.h"
#include "vox/platform/Bytes.h"
#include "vox/platform/PropertyList.h"

namespace {

using vox::test::Bytes;
// The last arcs of the objects that are asked for.
constexpr std::array<std::array<std::uint8_t, 3>, 5> kObjects = {
    {{1, 3, 0}, {1, 5, 0}, {1, 6, 1}, {4, 1, 1}, {5, 1, 1}}};
constexpr std::ptrdiff_t kMessage = 4, kPdu = 15;  // where a request's contents, and its PDU, begin

Bytes Element(std::uint8_t tag, const Bytes& contents, const Bytes& more) {
  Bytes bytes(4 + contents.size() + more.size(), 0x82);
  bytes[0] = tag;
  vox::StoreBe16(&bytes[2], static_cast<std::uint16_t>(bytes.size() - 4));
  std::copy(more.begin(), more.end(), std::copy(contents.begin(), contents.end(), &bytes[4]));
  return bytes;
}

// Reply has the request's id, no error, and these bindings.
Bytes Reply(const Bytes& request, const Bytes& bindings) {
  const auto id = request.begin() + kPdu + 2;  // and two integers of one byte behind it
  const Bytes pdu = Element(0xA2, Bytes(id, id + 2 + id[1] + 6), bindings);
  return Element(0x30, Bytes(request.begin() + kMessage, request.begin() + kPdu), pdu);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::array<Bytes, 5> pieces;
  vox::ByteReader reader(data, size);
  for (Bytes& piece : pieces) {
    const auto length = reader.TakeBe16();
    const auto taken = reader.Take(length ? std::min<std::size_t>(*length, reader.Left()) : 0);
    piece.assign(taken->begin(), taken->end());
  }
  vox::test::UdpPeer device([&pieces](const Bytes& request) -> vox::test::Answers {
    for (std::size_t i = 0; i < pieces.size(); ++i) {  // the last arc stands before the NULL
      if (!std::equal(kObjects[i].begin(), kObjects[i].end(), request.end() - 5)) continue;
      if (pieces[i].size() <= 1400) return {vox::test::Answer(Reply(request, pieces[i]))};
    }
    return {};
  });
  const vox::test::NetSettings settings(device, 2);
  const vox::DeviceInfo info = vox::getNetworkDeviceInfo(nullptr, "127.0.0.1");
  if (info == nullptr) return 0;
  const bool whole = info->String("name") && info->String("deviceId").value_or("").size() == 17;
  const auto xml = vox::PropertyListXml(vox::PropertyValue(*info));
  if (!whole || !xml || vox::ParsePropertyList(*xml) != vox::PropertyValue(*info)) std::abort();
  return 0;
}
