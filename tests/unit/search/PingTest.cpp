// The liveness probe: its packets, and the filter over a socket that does what a script says.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <set>

#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <netinet/ip_icmp.h>
#include <sys/socket.h>

#include "tests/support/Hex.h"
#include "tests/unit/search/Street.h"
#include "vox/drivers/net/searchpingsocket.h"

namespace vox::test {
namespace {

using std::chrono::milliseconds;
using testing::ElementsAre;
using testing::IsEmpty;

std::uint16_t Checksum(const Bytes& bytes) {
  const Bytes block(bytes);  // exact, so that a read past its end is seen
  return in_cksum(block.data(), Size(block));
}

TEST(Checksum, Vectors) {
  EXPECT_EQ(Checksum(Hex("00 01 F2 03 F4 F5 F6 F7")), 0x220D);  // RFC 1071 3
  EXPECT_EQ(Checksum(Hex("00 01 F2")), 0x0DFE) << "an odd last byte is the high part of a word";
  EXPECT_EQ(Checksum({}), 0xFFFF);
  EXPECT_EQ(Checksum(Bytes(64, 0xFF)), 0);
  EXPECT_EQ(Checksum(Hex("08 00 00 00 12 34 00 00") + Bytes(56)), 0xE5CB);
  EXPECT_EQ(Checksum(Hex("08 00 E5 CB 12 34 00 00") + Bytes(56)), 0);
}

TEST(Checksum, CarriesOfManyWords) {
  EXPECT_EQ(Checksum(Bytes(400'000, 0xFF)), 0);
  EXPECT_EQ(Checksum(Hex("FF FF 00 01")), 0xFFFE);
}

TEST(Checksum, NegativeLengthIsEmpty) {
  EXPECT_EQ(in_cksum(nullptr, -1), 0xFFFF);
}

Bytes EchoRequest(unsigned seed) {
  union {
    std::uint8_t bytes[PING_PACKET_SIZE];
    icmphdr header;
  } packet{};
  ::srandom(seed);
  const std::uint16_t checksum = create_icmp(&packet.header);
  EXPECT_EQ(checksum, packet.bytes[2] << 8 | packet.bytes[3]);
  return Bytes(packet.bytes, packet.bytes + PING_PACKET_SIZE);
}

TEST(EchoRequest, IsAWholePacketWithARandomIdentifier) {
  ::srandom(7);
  const auto id = static_cast<std::uint16_t>(::random() % 65535);
  const Bytes packet = EchoRequest(7);
  EXPECT_EQ(packet[0], 8);
  EXPECT_EQ(packet[1], 0);
  EXPECT_EQ(packet[4] << 8 | packet[5], id);
  EXPECT_EQ(packet[6] << 8 | packet[7], 0);
  EXPECT_EQ(Checksum(packet), 0) << "the checksum is over all 64 bytes";
  EXPECT_NE(packet, EchoRequest(8));
}

std::uint32_t Address(const std::string& text) {
  in_addr address{};
  EXPECT_EQ(inet_pton(AF_INET, text.c_str(), &address), 1) << text;
  return address.s_addr;
}

DeviceInfo At(const std::string& ip) {
  return std::make_shared<Dictionary>(Dictionary{{"type", "network"}, {"ip", ip}});
}

// Lan is a network of which a test says who answers, in units of a receive's wait.
class Lan : public CPingSocket {
 public:
  Lan& Answers(const std::string& address, int after_waits = 0) {
    answers_[Address(address)] = after_waits;
    return *this;
  }
  Lan& NoRouteTo(const std::string& address) {
    unreachable_.insert(Address(address));
    return *this;
  }
  Lan& StrangersNeverStop() {
    strangers_ = true;
    return *this;
  }
  Lan& BreaksAt(int receive_number) {
    breaks_ = receive_number;
    return *this;
  }

  bool send(std::uint32_t address, const std::uint8_t (&packet)[PING_PACKET_SIZE]) override {
    EXPECT_EQ(in_cksum(packet, PING_PACKET_SIZE), 0);
    ++requests;
    if (unreachable_.contains(address)) return false;
    const auto answer = answers_.find(address);
    if (answer != answers_.end()) due_.emplace(answer->second, address);
    return true;
  }
  PING_RECEIVED receive(std::uint32_t* address) override {
    if (++receives == breaks_) return PING_RECEIVED_FAILURE;
    if (strangers_ && receives % 2 == 0) {
      time_ += milliseconds(PING_RECEIVE_MS / 2);
      *address = Address("198.51.100.1");
      return PING_RECEIVED_REPLY;
    }
    if (!due_.empty() && due_.begin()->first <= waits_) {
      *address = due_.begin()->second;
      due_.erase(due_.begin());
      return PING_RECEIVED_REPLY;
    }
    ++waits_;
    time_ += milliseconds(PING_RECEIVE_MS);
    return PING_RECEIVED_NOTHING;
  }
  std::chrono::steady_clock::time_point now() override { return time_; }
  milliseconds Elapsed() const {
    return std::chrono::duration_cast<milliseconds>(time_ -
                                                    std::chrono::steady_clock::time_point());
  }

  int requests = 0, receives = 0;

 private:
  std::map<std::uint32_t, int> answers_;
  std::multimap<int, std::uint32_t> due_;
  std::set<std::uint32_t> unreachable_;
  std::chrono::steady_clock::time_point time_;
  int waits_ = 0, breaks_ = -1;
  bool strangers_ = false;
};

const DeviceInfo kFirst = At("192.0.2.1"), kSecond = At("192.0.2.2"), kThird = At("192.0.2.3");

TEST(PingFilter, GivesThoseThatAnswerInTheirOrder) {
  Lan lan;
  lan.Answers("192.0.2.3").Answers("192.0.2.1", 2);
  EXPECT_THAT(filter_with_ping({kFirst, kSecond, kThird}, nullptr, &lan),
              ElementsAre(kFirst, kThird));
}

TEST(PingFilter, EndsAsSoonAsAllHaveAnswered) {
  Lan lan;
  lan.Answers("192.0.2.1").Answers("192.0.2.2", 1);
  EXPECT_THAT(filter_with_ping({kFirst, kSecond}, nullptr, &lan), ElementsAre(kFirst, kSecond));
  EXPECT_EQ(lan.Elapsed(), milliseconds(100));
}

TEST(PingFilter, EndsAQuietWhileAfterTheLastThatAnswered) {
  Lan lan;
  lan.Answers("192.0.2.1", 5);
  EXPECT_THAT(filter_with_ping({kFirst, kSecond}, nullptr, &lan), ElementsAre(kFirst));
  EXPECT_EQ(lan.Elapsed(), milliseconds(500 + PING_QUIET_MS));
}

TEST(PingFilter, SixtyOfWhichHalfAreOffTakeOneQuietWhile) {
  Lan lan;
  DeviceInfoArray devices;
  for (int i = 1; i <= 60; ++i) {
    devices.push_back(At("192.0.2." + std::to_string(i)));
    if (i % 2 == 0) lan.Answers("192.0.2." + std::to_string(i));
  }
  EXPECT_EQ(filter_with_ping(devices, nullptr, &lan).size(), 30u);
  EXPECT_EQ(lan.Elapsed(), milliseconds(PING_QUIET_MS));
}

TEST(PingFilter, StrangersThatNeverStopDoNotHoldItUp) {
  Lan lan;
  lan.StrangersNeverStop().Answers("192.0.2.1");
  EXPECT_THAT(filter_with_ping({kFirst, kSecond}, nullptr, &lan), ElementsAre(kFirst));
  EXPECT_LE(lan.Elapsed(), milliseconds(PING_QUIET_MS + 200));
}

TEST(PingFilter, AFailedReceiveEndsIt) {
  Lan lan;
  lan.Answers("192.0.2.1").Answers("192.0.2.2", 3).BreaksAt(2);
  EXPECT_THAT(filter_with_ping({kFirst, kSecond}, nullptr, &lan), ElementsAre(kFirst));
  EXPECT_EQ(lan.receives, 2);
}

TEST(PingFilter, WithoutARouteOrAnAddressThereIsNothingToWaitFor) {
  Lan lan;
  lan.NoRouteTo("192.0.2.1");
  const auto usb = std::make_shared<Dictionary>(Dictionary{{"type", "usb"}});
  const auto number = std::make_shared<Dictionary>(Dictionary{{"ip", 7}});
  EXPECT_THAT(
      filter_with_ping({kFirst, usb, number, At(""), At("localhost"), nullptr}, nullptr, &lan),
      IsEmpty());
  EXPECT_EQ(lan.requests, 1);
  EXPECT_EQ(lan.receives, 0);
  EXPECT_THAT(filter_with_ping({}, nullptr, &lan), IsEmpty());
}

TEST(PingFilter, TwoEntriesOfOneAddressAnswerTogether) {
  Lan lan;
  lan.Answers("192.0.2.1");
  const DeviceInfo twin = At("192.0.2.1");
  EXPECT_THAT(filter_with_ping({kFirst, twin}, nullptr, &lan), ElementsAre(kFirst, twin));
  EXPECT_EQ(lan.Elapsed(), milliseconds(0));
}

TEST(PingFilter, ACancelledDelegateAsksNobody) {
  Lan lan;
  lan.Answers("192.0.2.1");
  CancelsAt first(1);
  EXPECT_THAT(filter_with_ping({kFirst}, &first, &lan), IsEmpty());
  EXPECT_EQ(lan.requests, 0);
}

TEST(PingFilter, ACancelWhileItWaitsGivesThoseThatHaveAnswered) {
  Lan lan;
  lan.Answers("192.0.2.1");
  CancelsAt sixth(6);  // two requests, then the reply and the waits
  EXPECT_THAT(filter_with_ping({kFirst, kSecond}, &sixth, &lan), ElementsAre(kFirst));
  EXPECT_LE(lan.Elapsed(), milliseconds(2 * PING_RECEIVE_MS));
}

// A system that opens sockets of some types only; which were tried, in order.
std::vector<int> tried;
int error_of_others = EACCES;
template <int permitted>
int Opens(int type) {
  tried.push_back(type);
  if (type == permitted) return ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  errno = error_of_others;
  return -1;
}

class PingSocket : public testing::Test {
 protected:
  PingSocket() {
    tried.clear();
    error_of_others = EACCES;
  }
  int error_ = -1;
};

TEST_F(PingSocket, IsOfTheDatagramKind) {
  EXPECT_TRUE(open_ping_socket(&Opens<SOCK_DGRAM>, &error_));
  EXPECT_EQ(error_, 0);
  EXPECT_THAT(tried, ElementsAre(SOCK_DGRAM));
}

TEST_F(PingSocket, IsRawWhereThatIsForbidden) {
  EXPECT_TRUE(open_ping_socket(&Opens<SOCK_RAW>, &error_));
  EXPECT_EQ(error_, 0);
  EXPECT_THAT(tried, ElementsAre(SOCK_DGRAM, SOCK_RAW));
}

TEST_F(PingSocket, IsNoneWhereBothAreForbidden) {
  EXPECT_FALSE(open_ping_socket(&Opens<-1>, &error_));
  EXPECT_EQ(error_, EACCES);
  EXPECT_THAT(tried, ElementsAre(SOCK_DGRAM, SOCK_RAW));
}

TEST_F(PingSocket, IsNoneForAnyOtherReason) {
  error_of_others = EMFILE;
  EXPECT_FALSE(open_ping_socket(&Opens<SOCK_RAW>, &error_));
  EXPECT_EQ(error_, EMFILE);
  EXPECT_THAT(tried, ElementsAre(SOCK_DGRAM));
}

}  // namespace
}  // namespace vox::test
