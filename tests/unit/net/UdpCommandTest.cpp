// Packets of the UDP command protocol, and the commands that send them.
#include "vox/drivers/net/NetworkComm/tvr302udpcmd.h"

#include <algorithm>
#include <set>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/unit/net/Exchange.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/platform/Bytes.h"

namespace vox {
namespace {

using namespace test;

constexpr std::uint8_t kAccepted = 0xC4;

// Command holds a request and its parameters.
struct Command {
  explicit Command(Bytes parameters = {}) : bytes(std::move(parameters)) {
    record = {0x10, 0x32, Size(bytes), 0x07, bytes.empty() ? nullptr : bytes.data()};
  }
  Bytes bytes;
  _tagUDPCMD record;
};

Bytes Packet(std::uint16_t sequence, const Command& command) {
  const std::int32_t size = udp_cmd_size(&command.record);
  if (size < 0) return {};
  Bytes packet(static_cast<std::size_t>(size));
  packet.shrink_to_fit();
  udp_cmd_build(packet.data(), sequence, &command.record);
  return packet;
}

// AnswerTo gives an accepting answer of `size` bytes in all, with the request's sequence id plus
// `stray`, whose parameters count up from 1 and are announced as `announced` bytes.
Bytes AnswerTo(const Bytes& request, std::size_t size, std::uint8_t announced = 0, int stray = 0) {
  Bytes answer = Hex("4D 46 50 50 30 32 30 30 4D 4C 30 31 00 00 32 C4 00 09 00 00");
  const int sequence = LoadBe16(request.data() + 12) + stray;
  StoreBe16(answer.data() + 12, static_cast<std::uint16_t>(sequence));
  answer[16] = announced;
  std::uint8_t next = 1;
  while (answer.size() < size) answer.push_back(next++);
  answer.resize(size);
  return answer;
}

UdpPeer::Script Answering(std::size_t size, std::uint8_t announced = 0, int stray = 0) {
  return [=](const Bytes& request) {
    return Answers{Answer(AnswerTo(request, size, announced, stray))};
  };
}

// InTurn answers the n-th attempt with the n-th script; after the last it is silent.
UdpPeer::Script InTurn(std::vector<UdpPeer::Script> scripts) {
  return [scripts = std::move(scripts), turn = std::size_t{0}](const Bytes& request) mutable {
    return turn < scripts.size() ? scripts[turn++](request) : Answers{};
  };
}

// Response is a record whose parameter buffer is a heap block of exactly 255 bytes.
struct ResponseRecord {
  Bytes param = Bytes(UDPCMD_PARAM_MAX, 0xEE);
  _tagUDPCMD record{0, 0, 0, 0, param.data()};
};

// Ask sends an empty command to a peer with that script. *attempts: how many to wait for in, how
// many there were out.
std::int32_t Ask(UdpPeer::Script script, ResponseRecord* response, std::size_t* attempts = nullptr,
                 std::uint32_t ms_per_second = 1000) {
  UdpPeer peer(std::move(script));
  const NetSettings settings(peer, ms_per_second);
  const Command command;
  const std::int32_t result = UdpCommandSendResponse(kHost, &command.record, &response->record);
  if (attempts) *attempts = peer.AwaitRequests(*attempts).size();
  return result;
}

// ---- packets

TEST(CommandPacket, HeaderThenParameters) {
  EXPECT_EQ(ToHex(Packet(0x1234, Command(Hex("AA BB")))),
            "4D 46 50 50 30 32 30 30 4D 4C 30 31 12 34 32 10 02 07 00 00 AA BB");
  EXPECT_EQ(ToHex(Packet(1, Command())),
            "4D 46 50 50 30 32 30 30 4D 4C 30 31 00 01 32 10 00 07 00 00");
}

TEST(CommandPacket, SizeByteIsTheLowByte) {
  const Bytes packet = Packet(1, Command(Bytes(300, 0x55)));
  EXPECT_EQ(packet.size(), 320u);
  EXPECT_EQ(packet[16], 44);
  EXPECT_EQ(Bytes(packet.begin() + 20, packet.end()), Bytes(300, 0x55));
}

TEST(CommandPacket, SizesThatCannotBeSentAreRefused) {
  Command command(Bytes(4));
  for (const std::int32_t size : {-1, -20, INT32_MIN, 65507 - 20 + 1, INT32_MAX}) {
    command.record.paramSize = size;
    EXPECT_EQ(udp_cmd_size(&command.record), -1) << size;
  }
  command.record.paramSize = 65507 - 20;
  EXPECT_EQ(udp_cmd_size(&command.record), 65507);
  command.record.param = nullptr;
  EXPECT_EQ(udp_cmd_size(&command.record), -1) << "parameters are missing";
}

TEST(CommandAnswer, FieldsComeFromTheirPlaces) {
  ResponseRecord response;
  const Bytes answer = AnswerTo(Packet(0x1234, Command()), 23, 3);
  EXPECT_EQ(udp_cmd_sequence(answer.data(), Size(answer)), 0x1234);
  EXPECT_EQ(udp_cmd_parse(answer.data(), Size(answer), &response.record), 0);
  EXPECT_EQ(response.record.command, kAccepted);
  EXPECT_EQ(response.record.appCode, 0x32);
  EXPECT_EQ(response.record.paramSize, 3);
  EXPECT_EQ(response.record.Clipher, 9);
  EXPECT_EQ(ToHex(response.param.data(), 4), "01 02 03 EE");
}

TEST(CommandAnswer, SignatureAndVersionsAreNotLookedAt) {
  Bytes answer = AnswerTo(Packet(1, Command()), 20);
  std::fill_n(answer.begin(), 12, std::uint8_t{0});
  ResponseRecord response;
  EXPECT_EQ(udp_cmd_parse(answer.data(), Size(answer), &response.record), 0);
}

TEST(CommandAnswer, ParametersThatDidNotArriveAreZero) {
  ResponseRecord response;
  const Bytes answer = AnswerTo(Packet(1, Command()), 22, 255);
  EXPECT_EQ(udp_cmd_parse(answer.data(), Size(answer), &response.record), 0);
  EXPECT_EQ(response.record.paramSize, 255);
  EXPECT_EQ(response.param, (Hex("01 02") + Bytes(253)));
}

TEST(CommandAnswer, BytesBeyondTheAnnouncedAreLeft) {
  ResponseRecord response;
  const Bytes answer = AnswerTo(Packet(1, Command()), 40, 1);
  EXPECT_EQ(udp_cmd_parse(answer.data(), Size(answer), &response.record), 0);
  EXPECT_EQ(ToHex(response.param.data(), 2), "01 EE");
}

TEST(CommandAnswer, ParametersWithoutABufferAreTooMuch) {
  _tagUDPCMD response{};
  const Bytes answer = AnswerTo(Packet(1, Command()), 21, 1);
  EXPECT_EQ(udp_cmd_parse(answer.data(), Size(answer), &response), -3);
  const Bytes none = AnswerTo(Packet(1, Command()), 20);
  EXPECT_EQ(udp_cmd_parse(none.data(), Size(none), &response), 0);
}

TEST(CommandAnswer, ShorterThanAHeaderIsMalformed) {
  const Bytes answer = AnswerTo(Packet(0x1234, Command()), 20);
  for (std::size_t length = 0; length < 20; ++length) {
    Bytes cut(answer.begin(), answer.begin() + static_cast<std::ptrdiff_t>(length));
    cut.shrink_to_fit();
    ResponseRecord response;
    EXPECT_EQ(udp_cmd_parse(cut.data(), Size(cut), &response.record), -1) << length;
    EXPECT_EQ(udp_cmd_sequence(cut.data(), Size(cut)), length < 14 ? 0 : 0x1234) << length;
  }
}

// ---- sending

TEST(CommandSend, GoesOutWithItsSequenceId) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer);
  const Command command(Hex("AA BB"));
  EXPECT_EQ(UdpCommandSend(kHost, 0x1234, &command.record), 0);
  EXPECT_EQ(peer.AwaitRequests(1), std::vector<Bytes>{Packet(0x1234, command)});
}

TEST(CommandSend, ThreeHundredParametersAreSentWhole) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer);
  const Command command(Bytes(300, 0x55));
  EXPECT_EQ(UdpCommandSend(kHost, 1, &command.record), 0);
  EXPECT_EQ(peer.AwaitRequests(1), std::vector<Bytes>{Packet(1, command)});
}

TEST(CommandSend, SequenceIdZeroStandsForAFreshOne) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer);
  const Command command;
  for (int i = 0; i < 8; ++i) EXPECT_EQ(UdpCommandSend(kHost, 0, &command.record), 0);
  std::set<std::uint16_t> ids;
  for (const Bytes& packet : peer.AwaitRequests(8)) ids.insert(LoadBe16(packet.data() + 12));
  EXPECT_GT(ids.size(), 1u) << "a value per command";
  EXPECT_EQ(ids.count(0), 0u);
}

TEST(CommandSend, RefusedBeforeAnythingIsSent) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer);
  Command command(Bytes(4));
  ResponseRecord response;
  command.record.paramSize = -20;
  EXPECT_EQ(UdpCommandSend(kHost, 1, &command.record), -1);
  EXPECT_EQ(UdpCommandSendResponse(kHost, &command.record, &response.record), -1);
  EXPECT_EQ(UdpCommandSend(kHost, 1, nullptr), -1);
  EXPECT_EQ(UdpCommandSendResponse(kHost, nullptr, &response.record), -1);
  EXPECT_EQ(UdpCommandSendResponse(kHost, &command.record, nullptr), -1);
  EXPECT_TRUE(peer.Requests().empty());
}

TEST(CommandSend, UnknownHostFails) {
  const Command command;
  ResponseRecord response;
  EXPECT_EQ(UdpCommandSend("", 1, &command.record), -1);
  EXPECT_EQ(UdpCommandSendResponse("", &command.record, &response.record), -1);
}

TEST(CommandSend, WithoutMemory) {
  const Command command;
  ResponseRecord response;
  {
    const FailingAllocation failing(0);
    EXPECT_EQ(UdpCommandSend(kHost, 1, &command.record), -2);
  }
  const FailingAllocation failing(0);
  EXPECT_EQ(UdpCommandSendResponse(kHost, &command.record, &response.record), -2);
}

TEST(CommandPort, IsSetForLaterCommands) {
  UdpPeer peer(Silent());
  const NetSettings settings(1);
  EXPECT_EQ(SetUdpCommandPort(peer.Port()), 0);
  EXPECT_EQ(udpCommandPort, peer.Port());
  const Command command;
  EXPECT_EQ(UdpCommandSend(kHost, 1, &command.record), 0);
  EXPECT_EQ(peer.AwaitRequests(1).size(), 1u);
}

TEST(CommandPort, ZeroMeans3892) {
  // An address of this process alone, so that test runs side by side do not meet.
  const auto process = static_cast<unsigned>(getpid());
  const std::string host = "127." + std::to_string(100 + (process >> 16) % 100) + "." +
                           std::to_string((process >> 8) & 255) + "." +
                           std::to_string(process & 255 ? process & 255 : 1);
  UdpPeer peer(Silent(), host.c_str(), 3892);
  const NetSettings settings(1);
  EXPECT_EQ(SetUdpCommandPort(0), 0);
  const Command command;
  EXPECT_EQ(UdpCommandSend(host.c_str(), 1, &command.record), 0);
  EXPECT_EQ(peer.AwaitRequests(1).size(), 1u);
}

// ---- sending and awaiting the answer

TEST(CommandResponse, AnswerWithTheSameIdIsTaken) {
  ResponseRecord response;
  std::size_t attempts = 1;
  EXPECT_EQ(Ask(Answering(28, 8), &response, &attempts), 0);
  EXPECT_EQ(attempts, 1u);
  EXPECT_EQ(response.record.command, kAccepted);
  EXPECT_EQ(response.record.paramSize, 8);
  EXPECT_EQ(ToHex(response.param.data(), 9), "01 02 03 04 05 06 07 08 EE");
}

TEST(CommandResponse, TwoHundredAndFiftyFiveParametersFitInTheirBuffer) {
  ResponseRecord response;
  EXPECT_EQ(Ask(Answering(20 + 255, 255), &response), 0);
  EXPECT_EQ(response.param.front(), 1);
  EXPECT_EQ(response.param.back(), 255);
}

TEST(CommandResponse, ParametersWithoutABufferAreTooMuch) {
  ResponseRecord response;
  response.record.param = nullptr;
  EXPECT_EQ(Ask(Answering(21, 1), &response), -3);
}

TEST(CommandResponse, SilenceIsAskedThreeTimes) {
  ResponseRecord response;
  std::size_t attempts = 3;
  const Stopwatch watch;
  EXPECT_EQ(Ask(Silent(), &response, &attempts, kShort), -101);
  EXPECT_EQ(attempts, 3u);
  EXPECT_GE(watch.Elapsed(), std::chrono::milliseconds(3 * 3 * kShort));
}

TEST(CommandResponse, EveryAttemptIsTheSamePacket) {
  UdpPeer peer(Silent());
  const NetSettings settings(peer, 5);
  const Command command(Hex("01"));
  ResponseRecord response;
  EXPECT_EQ(UdpCommandSendResponse(kHost, &command.record, &response.record), -101);
  const auto requests = peer.AwaitRequests(3);
  ASSERT_EQ(requests.size(), 3u);
  EXPECT_EQ(requests[0], requests[1]);
  EXPECT_EQ(requests[0], requests[2]);
  EXPECT_EQ(requests[0], Packet(LoadBe16(requests[0].data() + 12), command));
}

TEST(CommandResponse, LaterAttemptSucceeds) {
  ResponseRecord response;
  std::size_t attempts = 3;
  EXPECT_EQ(Ask(InTurn({Silent(), Silent(), Answering(20)}), &response, &attempts, 100), 0);
  EXPECT_EQ(attempts, 3u);
}

TEST(CommandResponse, StrayAnswersCountAsTimeOuts) {
  ResponseRecord response;
  std::size_t attempts = 3;
  EXPECT_EQ(Ask(Answering(20, 0, 1), &response, &attempts), -101);
  EXPECT_EQ(attempts, 3u);
}

// The capacity is set once: a stray answer shrinks it for the attempts that follow.
TEST(CommandResponse, AnswerLongerThanAStrayOneFails) {
  ResponseRecord response;
  std::size_t attempts = 2;
  EXPECT_EQ(Ask(InTurn({Answering(24, 0, 1), Answering(28)}), &response, &attempts), -1);
  EXPECT_EQ(attempts, 2u);
}

TEST(CommandResponse, AnswerNoLongerThanAStrayOneIsTaken) {
  ResponseRecord response;
  EXPECT_EQ(Ask(InTurn({Answering(24, 0, 1), Answering(24, 4)}), &response), 0);
  EXPECT_EQ(response.record.paramSize, 4);
}

TEST(CommandResponse, EmptyStrayAnswerEndsTheAttempts) {
  ResponseRecord response;
  std::size_t attempts = 1;
  EXPECT_EQ(Ask(InTurn({Always({}), Answering(20)}), &response, &attempts), -1);
  EXPECT_EQ(attempts, 1u) << "the second attempt has no room for any answer";
}

TEST(CommandResponse, TooShortToCarryAnIdIsStray) {
  ResponseRecord response;
  std::size_t attempts = 3;
  EXPECT_EQ(Ask(Always(Hex("4D 46 50 50")), &response, &attempts), -101);
  EXPECT_EQ(attempts, 3u);
}

TEST(CommandResponse, AnswerThatEndsInItsHeaderIsMalformed) {
  ResponseRecord response;
  std::size_t attempts = 1;
  EXPECT_EQ(Ask(Answering(16), &response, &attempts), -1);
  EXPECT_EQ(attempts, 1u);
}

TEST(CommandResponse, OtherFailuresEndTheAttempts) {
  ResponseRecord response;
  const NetSettings settings(1, kShort);
  const Command command;
  EXPECT_EQ(UdpCommandSendResponse("255.255.255.255", &command.record, &response.record), -1);
}

}  // namespace
}  // namespace vox
