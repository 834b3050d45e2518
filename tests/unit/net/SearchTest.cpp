// What discovery reads from a device.
#include "vox/drivers/net/search.h"

#include <string>

#include <gtest/gtest.h>

#include "tests/support/SnmpMessage.h"
#include "tests/unit/net/Exchange.h"

namespace vox {
namespace {

using namespace test;

// Trimmed gives the text that snmp2c_str makes of received characters, and checks its length.
std::string Trimmed(const std::string& received) {
  std::vector<char> text(received.begin(), received.end());
  text.push_back('#');  // where the NUL goes
  text.shrink_to_fit();
  const std::int32_t length = snmp2c_str(text.data(), static_cast<std::int32_t>(received.size()));
  EXPECT_EQ(text[static_cast<std::size_t>(length)], '\0');
  EXPECT_EQ(text.back(), '\0');
  return std::string(text.data(), static_cast<std::size_t>(length));
}

// NameOf gives what get_name makes of a name that a device answers, in a block of `size` bytes.
std::string NameOf(const std::string& answered, std::int32_t size = 64) {
  const UdpPeer peer(Always(NameResponse(answered)));
  const NetSettings settings(peer);
  std::vector<char> name(static_cast<std::size_t>(size), '#');
  name.shrink_to_fit();
  if (get_name(kHost, name.data(), size) != 0) {
    EXPECT_EQ(name[0], '\0');
    return "refused";
  }
  return name.data();
}

TEST(TrimText, CharactersAtTheEndThatAreNotGraphicAreCleared) {
  EXPECT_EQ(Trimmed("name"), "name");
  EXPECT_EQ(Trimmed("name  "), "name");
  EXPECT_EQ(Trimmed(std::string("name \0 ", 7)), "name");
  EXPECT_EQ(Trimmed("name\r\n\t"), "name");
  EXPECT_EQ(Trimmed("name\x7F"), "name");
  EXPECT_EQ(Trimmed("name\xC3\xA9"), "name") << "bytes of 0x80 and above";
  EXPECT_EQ(Trimmed(" \x80 "), "");
  EXPECT_EQ(Trimmed(""), "");
}

TEST(TrimText, CharactersInsideStay) {
  EXPECT_EQ(Trimmed("  my  scanner "), "  my  scanner");
  EXPECT_EQ(Trimmed("caf\xC3\xA9 1"), "caf\xC3\xA9 1");
}

TEST(TrimText, EveryCleared) {
  std::vector<char> text{'a', ' ', '\x80', '#'};
  EXPECT_EQ(snmp2c_str(text.data(), 3), 1);
  EXPECT_EQ(text, (std::vector<char>{'a', '\0', '\0', '\0'}));
}

TEST(TrimText, NegativeLengthAndNoTextAreEmpty) {
  char text[] = "x";
  EXPECT_EQ(snmp2c_str(text, -1), 0);
  EXPECT_STREQ(text, "x");
  EXPECT_EQ(snmp2c_str(nullptr, 3), 0);
}

TEST(Name, ComesWithoutItsTrailingBlanksAndNul) {
  EXPECT_EQ(NameOf(std::string("my  scanner  \0", 14)), "my  scanner");
}

TEST(Name, IsAskedAsSysName) {
  UdpPeer peer(Always(NameResponse("n")));
  const NetSettings settings(peer);
  char name[16];
  EXPECT_EQ(get_name(kHost, name, sizeof name), 0);
  const auto requests = peer.AwaitRequests(1);
  ASSERT_EQ(requests.size(), 1u);
  const PduOwner asked = Parse(requests[0]);
  ASSERT_TRUE(asked);
  EXPECT_EQ(asked->byCommand, 0xA0);
  EXPECT_STREQ(asked->pcComName, "public");
  EXPECT_EQ(Arcs(asked->lpSnmpValList->pdwOid,
                 asked->lpSnmpValList->pdwOid + asked->lpSnmpValList->nOidLen),
            kSysName);
}

TEST(Name, LeavesRoomForItsNul) {
  EXPECT_EQ(NameOf("1234567", 8), "1234567");
  EXPECT_EQ(NameOf("12345678", 8), "refused");
  EXPECT_EQ(NameOf("", 1), "");
}

TEST(Name, SilenceFails) {
  const UdpPeer peer(Silent());
  const NetSettings settings(peer, 20);
  char name[16] = "old";
  EXPECT_EQ(get_name(kHost, name, sizeof name), -1);
  EXPECT_STREQ(name, "");
}

TEST(Name, WithoutABufferFails) {
  char name[4] = "old";
  EXPECT_EQ(get_name(kHost, nullptr, 16), -1);
  EXPECT_EQ(get_name(kHost, name, 0), -1);
  EXPECT_STREQ(name, "old");
}

}  // namespace
}  // namespace vox
