// The flat records: their memory, and the conversions to the standard form and back.
#include "vox/drivers/net/NetworkComm/wnxsimple.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/Allocations.h"
#include "tests/support/SnmpMessage.h"

namespace vox {
namespace {

using namespace test;

PduOwner ToStandard(const SimpleOwner& simple) {
  return PduOwner(snmp_simple2standard(simple.get()));
}

// Filled gives what a message becomes in a record of `values` values, and the result.
struct FilledRecord {
  std::int32_t result;
  SimpleOwner simple;
  const snmp_simple_val& Value(int i = 0) const { return simple->lpSnmpSimpleVal[i]; }
};
FilledRecord Filled(const Bytes& message, std::int32_t values = 1) {
  FilledRecord filled{0, SimpleOwner(WNXSNMP_MallocSnmpSimplePdu(1, values))};
  PduOwner pdu = Parse(message, 0x0500A8C0);
  EXPECT_TRUE(pdu);
  filled.result = snmp_standard2simple(pdu.get(), filled.simple.get());
  if (filled.result != 0) pdu.release();  // released by the conversion
  return filled;
}

class DefaultCommunity {
 public:
  explicit DefaultCommunity(const char* community) { szDefaultComName = community; }
  ~DefaultCommunity() { szDefaultComName = was_; }

 private:
  const char* was_ = szDefaultComName;
};

TEST(SimpleMemory, RecordsAndValuesAreZeroed) {
  snmp_simple_pdu* const pdus = WNXSNMP_MallocSnmpSimplePdu(3, 2);
  ASSERT_TRUE(pdus);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(pdus[i].nValNum, 2);
    EXPECT_EQ(pdus[i].szComName[0], '\0');
    const auto* const bytes = reinterpret_cast<const std::uint8_t*>(pdus[i].lpSnmpSimpleVal);
    EXPECT_TRUE(std::all_of(bytes, bytes + 2 * sizeof(snmp_simple_val),
                            [](std::uint8_t byte) { return byte == 0; }));
  }
  EXPECT_EQ(WNXSNMP_FreeSnmpSimplePdu(3, pdus), 0);
  EXPECT_EQ(WNXSNMP_FreeSnmpSimplePdu(3, nullptr), 0);
}

TEST(SimpleMemory, NegativeNumbersAreRefused) {
  EXPECT_EQ(WNXSNMP_MallocSnmpSimplePdu(-1, 1), nullptr);
  EXPECT_EQ(WNXSNMP_MallocSnmpSimplePdu(1, -1), nullptr);
}

TEST(SimpleMemory, EveryFailedAllocationReleasesTheOthers) {
  for (int spared = 0; spared < 4; ++spared) {
    const FailingAllocation failing(spared);
    EXPECT_EQ(WNXSNMP_MallocSnmpSimplePdu(3, 1), nullptr) << spared;
    EXPECT_TRUE(failing.HasFailed());
  }
}

TEST(ToStandard, EmptyCommunityIsFilledWithTheDefault) {
  const SimpleOwner simple = Asking("1.3.6.1.2.1.1.5.0");
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_STREQ(simple->szComName, "public") << "the caller's record is changed";
  EXPECT_STREQ(pdu->pcComName, "public");
  EXPECT_EQ(pdu->nComnameLen, 6);
  EXPECT_EQ(pdu->byCommand, 0xA0);
  EXPECT_EQ(pdu->nVersion, 0);
  EXPECT_EQ(pdu->nErrStat, 0);
  EXPECT_EQ(pdu->nErrIndex, 0);
  EXPECT_EQ(pdu->IPAddress.ulAddress, 0u);
}

TEST(ToStandard, GivenCommunityStays) {
  const SimpleOwner simple = Asking("1.3", "private");
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_STREQ(pdu->pcComName, "private");
}

TEST(ToStandard, DefaultCommunityCanBeSet) {
  const DefaultCommunity community("other");
  const SimpleOwner simple = Asking("1.3");
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_STREQ(simple->szComName, "other");
}

TEST(ToStandard, LongDefaultCommunityIsCutAt127) {
  const std::string name(200, 'd');
  const DefaultCommunity community(name.c_str());
  const SimpleOwner simple = Asking("1.3");
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_EQ(simple->szComName, std::string(127, 'd'));
  EXPECT_EQ(pdu->nComnameLen, 127);
}

TEST(ToStandard, MissingDefaultCommunityIsAnEmptyOne) {
  const DefaultCommunity community(nullptr);
  const SimpleOwner simple = Asking("1.3");
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->nComnameLen, 0);
}

TEST(ToStandard, CommunityWithoutItsNulIsRefused) {
  const SimpleOwner simple = Asking("1.3");
  std::memset(simple->szComName, 'c', sizeof simple->szComName);
  EXPECT_FALSE(ToStandard(simple));
}

TEST(ToStandard, RequestIdIsTheNextRandomNumber) {
  std::srand(7);
  const int first = std::rand(), second = std::rand();
  std::srand(7);
  EXPECT_EQ(ToStandard(Asking("1.3"))->nReqID, first);
  EXPECT_EQ(ToStandard(Asking("1.3"))->nReqID, second) << "the generator is not reseeded";
}

TEST(ToStandard, NoTypeMeansNull) {
  const SimpleOwner simple = Asking("1.3.6");
  simple->lpSnmpSimpleVal[0].nValSize = 9999;
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->lpSnmpValList->byDataType, 0x05);
  EXPECT_EQ(pdu->lpSnmpValList->nValSize, 0);
  EXPECT_EQ(pdu->lpSnmpValList->uniVal.pbyData, nullptr);
}

TEST(ToStandard, ValueIsCopied) {
  const SimpleOwner simple = Asking("1.3.6");
  snmp_simple_val& value = simple->lpSnmpSimpleVal[0];
  value.byDataType = 0x04;
  value.nValSize = 1535;
  std::memset(value.SnmpValBuf, 'v', 1535);
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->lpSnmpValList->nValSize, 1535);
  EXPECT_EQ(pdu->lpSnmpValList->uniVal.pbyData[1534], 'v');
}

TEST(ToStandard, EmptyStringHasAValue) {
  const SimpleOwner simple = Asking("1.3.6");
  simple->lpSnmpSimpleVal[0].byDataType = 0x04;
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->lpSnmpValList->byDataType, 0x04);
  EXPECT_EQ(pdu->lpSnmpValList->nValSize, 0);
}

TEST(ToStandard, SizeOutsideTheBufferIsRefused) {
  for (const std::int32_t size : {1536, 1537, -1, 0x7FFFFFFF}) {
    const SimpleOwner simple = Asking("1.3.6");
    simple->lpSnmpSimpleVal[0].byDataType = 0x04;
    simple->lpSnmpSimpleVal[0].nValSize = size;
    EXPECT_FALSE(ToStandard(simple)) << size;
  }
}

TEST(ToStandard, TextThatIsNoOidIsRefused) {
  EXPECT_FALSE(ToStandard(Asking("")));
  EXPECT_FALSE(ToStandard(Asking(".1.3")));
}

TEST(ToStandard, OidOf128ArcsIsTheLongest) {
  std::string text = "1";
  while (text.size() < 255) text += ".1";
  const PduOwner pdu = ToStandard(Asking(text));
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->lpSnmpValList->nOidLen, 128);
}

TEST(ToStandard, OidWithoutItsNulEndsWithItsField) {
  const SimpleOwner simple = Asking("1.3");
  std::memset(simple->lpSnmpSimpleVal[0].szOid, '1', 256);
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  EXPECT_EQ(pdu->lpSnmpValList->nOidLen, 1);
}

// An empty community is built as "public", not only shown as that.
TEST(ToStandard, EmptyCommunityIsBuiltAsTheDefault) {
  const SimpleOwner simple = Asking("1.3.6.1.2.1.1.5.0");
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  pdu->nReqID = 1;
  Bytes message(1536);
  std::int32_t length = Size(message);
  ASSERT_EQ(snmp_build(pdu.get(), message.data(), &length), 0);
  EXPECT_EQ(ToHex(message.data(), static_cast<std::size_t>(length)), ToHex(kGetRequest));
  EXPECT_STREQ(simple->szComName, "public");
}

TEST(ToStandard, EveryValueRecordBecomesABinding) {
  SimpleOwner simple(WNXSNMP_MallocSnmpSimplePdu(1, 3));
  for (int i = 0; i < 3; ++i) {
    std::strcpy(simple->lpSnmpSimpleVal[i].szOid, ("1.3." + std::to_string(i)).c_str());
  }
  const PduOwner pdu = ToStandard(simple);
  ASSERT_TRUE(pdu);
  std::uint32_t last = 0;
  for (const snmp_val_list* got = pdu->lpSnmpValList; got; got = got->lpNextSnmpValList) {
    EXPECT_EQ(got->pdwOid[2], last++);
  }
  EXPECT_EQ(last, 3u);
}

TEST(ToStandard, MissingRecordsAreRefused) {
  EXPECT_EQ(snmp_simple2standard(nullptr), nullptr);
  snmp_simple_pdu empty{};
  empty.nValNum = 1;
  EXPECT_EQ(snmp_simple2standard(&empty), nullptr);
}

TEST(ToStandard, EveryFailedAllocationGivesNone) {
  const SimpleOwner simple = Asking("1.3.6");
  simple->lpSnmpSimpleVal[0].byDataType = 0x04;
  int failures = 0;
  for (;; ++failures) {
    const FailingAllocation failing(failures);
    const PduOwner pdu = ToStandard(simple);
    if (!failing.HasFailed()) break;
    EXPECT_FALSE(pdu) << "allocation " << failures;
  }
  EXPECT_EQ(failures, 5) << "record, community, binding, arcs, value";
}

TEST(ToSimple, AnswerIsFilledIn) {
  const FilledRecord filled = Filled(NameResponse("a name"));
  EXPECT_EQ(filled.result, 0);
  EXPECT_EQ(filled.simple->IPAddress.ulAddress, 0x0500A8C0u);
  EXPECT_STREQ(filled.simple->szComName, "public");
  EXPECT_STREQ(filled.Value().szOid, "1.3.6.1.2.1.1.5.0");
  EXPECT_EQ(filled.Value().byDataType, 0x04);
  EXPECT_EQ(filled.Value().nValSize, 6);
  EXPECT_STREQ(reinterpret_cast<const char*>(filled.Value().SnmpValBuf), "a name");
}

TEST(ToSimple, StatusAndIndexAreCopied) {
  const FilledRecord filled = Filled(Response({}, 2, 1));
  EXPECT_EQ(filled.result, 0);
  EXPECT_EQ(filled.simple->nErrStat, 2);
  EXPECT_EQ(filled.simple->nErrIndex, 1);
}

TEST(ToSimple, OldValuesAreCleared) {
  SimpleOwner simple(WNXSNMP_MallocSnmpSimplePdu(1, 1));
  std::memset(simple->lpSnmpSimpleVal, 0xEE, sizeof(snmp_simple_val));
  std::memset(simple->szComName, 'x', sizeof simple->szComName);
  const PduOwner pdu = Parse(NameResponse("n"));
  EXPECT_EQ(snmp_standard2simple(pdu.get(), simple.get()), 0);
  EXPECT_STREQ(simple->szComName, "public");
  EXPECT_EQ(simple->szComName[127], '\0');
  EXPECT_EQ(simple->lpSnmpSimpleVal[0].SnmpValBuf[1], 0);
  EXPECT_EQ(simple->lpSnmpSimpleVal[0].SnmpValBuf[1535], 0);
  EXPECT_STREQ(simple->lpSnmpSimpleVal[0].szOid, "1.3.6.1.2.1.1.5.0");
}

TEST(ToSimple, TheShorterListEndsTheWalk) {
  const Bytes two =
      BindingItem(kSysNameItem, Hex("02 01 05")) + BindingItem(kSysNameItem, Hex("02 01 06"));
  const FilledRecord narrow = Filled(Response(two), 1);
  EXPECT_EQ(narrow.result, 0);
  EXPECT_EQ(narrow.Value().SnmpValBuf[0], Memory<std::int32_t>(5)[0]);
  const FilledRecord wide = Filled(Response(two), 3);
  EXPECT_EQ(wide.simple->nValNum, 3) << "a capacity, not a count";
  EXPECT_EQ(wide.Value(1).nValSize, 4);
  EXPECT_EQ(wide.Value(2).byDataType, 0);
}

TEST(ToSimple, OtherTypesHaveASizeAndZeros) {
  const FilledRecord filled =
      Filled(Response(BindingItem(kSysNameItem, Item(0x46, Bytes(8, 0xAB)))));
  EXPECT_EQ(filled.result, 0);
  EXPECT_EQ(filled.Value().byDataType, 0x46);
  EXPECT_EQ(filled.Value().nValSize, 8);
  EXPECT_EQ(ToHex(filled.Value().SnmpValBuf, 8), "00 00 00 00 00 00 00 00");
}

TEST(ToSimple, CommunityOf128BytesIsCutAt127) {
  const FilledRecord filled =
      Filled(MessageItem(0xA2, Integer(1) + Integer(0) + Integer(0) + Item(0x30, {}), Integer(0),
                         Item(0x04, Bytes(128, 'c'))));
  EXPECT_EQ(filled.result, 0);
  EXPECT_EQ(filled.simple->szComName, std::string(127, 'c'));
}

TEST(ToSimple, OidTextOf255CharactersIsTheLongest) {
  // 1.3 and n arcs of one digit are 3 + 2n characters; one arc of two digits makes it even.
  const auto oid = [](const Bytes& more) { return Item(0x06, Bytes{0x2B} + more); };
  const FilledRecord fits = Filled(Response(BindingItem(oid(Bytes(126, 1)), Hex("05 00"))));
  EXPECT_EQ(fits.result, 0);
  EXPECT_EQ(std::strlen(fits.Value().szOid), 255u);
  const FilledRecord longer =
      Filled(Response(BindingItem(oid(Bytes(125, 1) + Bytes{10}), Hex("05 00"))));
  EXPECT_EQ(longer.result, -1);
  EXPECT_EQ(longer.Value().byDataType, 0) << "no half of an answer stays";
  const FilledRecord long_arcs =
      Filled(Response(BindingItem(oid(Bytes(125, 1) + Hex("81 00")), Hex("05 00"))));
  EXPECT_EQ(long_arcs.result, -1);
}

TEST(ToSimple, ValueOf1536BytesIsRefused) {
  // Such a value never fits in a message; a record can still hold it.
  for (const auto& [size, result] : {std::pair{1535, 0}, std::pair{1536, -1}, std::pair{-1, -1}}) {
    SimpleOwner simple(WNXSNMP_MallocSnmpSimplePdu(1, 1));
    PduOwner pdu = Parse(NameResponse("n"));
    std::free(pdu->lpSnmpValList->uniVal.pbyData);
    const Bytes value(1600, 'v');
    pdu->lpSnmpValList->uniVal.pbyData =
        static_cast<std::uint8_t*>(wnx_copy(value.data(), Size(value)));
    pdu->lpSnmpValList->nValSize = size;
    EXPECT_EQ(snmp_standard2simple(pdu.get(), simple.get()), result) << size;
    if (result != 0) pdu.release();
    if (result == 0) {
      EXPECT_EQ(simple->lpSnmpSimpleVal[0].SnmpValBuf[1535], 0);
    }
  }
}

TEST(ToSimple, MissingRecordsAreRefused) {
  snmp_simple_pdu empty{};
  empty.nValNum = 1;
  EXPECT_EQ(snmp_standard2simple(nullptr, &empty), -1);
  EXPECT_EQ(snmp_standard2simple(Parse(NameResponse("n")).release(), &empty), -1);
  EXPECT_EQ(snmp_standard2simple(Parse(NameResponse("n")).release(), nullptr), -1);
}

}  // namespace
}  // namespace vox
