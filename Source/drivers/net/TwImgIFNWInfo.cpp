// What a network device says of itself over SNMP: its name, and the capabilities of its scanning
// units. docs/wire/network-scan.md has the table of the objects.
#include <algorithm>
#include <cstring>

#include "vox/DSDebugging.h"
#include "vox/drivers/DeviceUnits.h"
#include "vox/drivers/net/NetworkComm/NetworkCommEntry.h"
#include "vox/drivers/net/TwImgIFNW.h"
#include "vox/drivers/net/search.h"
#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

constexpr std::uint32_t DPI = 10'000;  // the MIB's resolutions are in 1/10000 dpi
constexpr int IMAGE_FORMATS = 3;

// Columns of the scanner's table (1.3.6.1.4.1.32473.203.1.4.5.1.1) and of the maker's own.
constexpr char OID_UNIT_TYPE[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.2";
constexpr char OID_X_RES_MIN[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.7";
constexpr char OID_Y_RES_MIN[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.6";
constexpr char OID_X_RES_MAX[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.5";
constexpr char OID_Y_RES_MAX[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.4";
constexpr char OID_X_RES_PRE_1[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.9";
constexpr char OID_Y_RES_PRE_1[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.8";
constexpr char OID_X_RES_PRE_0[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.15";
constexpr char OID_Y_RES_PRE_0[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.14";
constexpr char OID_MARGIN_TOP[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.10";
constexpr char OID_MARGIN_BOTTOM[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.11";
constexpr char OID_MARGIN_LEFT[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.12";
constexpr char OID_MARGIN_RIGHT[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.13";
constexpr char OID_PAPER_SIZES[] = "1.3.6.1.4.1.32473.203.1.4.13.1.1.2";
constexpr char OID_COMPRESSION[] = "1.3.6.1.4.1.32473.203.1.7.2";
constexpr char OID_IMAGE_FORMATS[] = "1.3.6.1.4.1.32473.405.4.10.1.1.2";
constexpr char OID_FEEDER_EMPTY[] = "1.3.6.1.4.1.32473.405.4.5.1.1.10";
constexpr char OID_WIDTH[] = "1.3.6.1.4.1.32473.405.4.5.1.1.4";
constexpr char OID_HEIGHT[] = "1.3.6.1.4.1.32473.405.4.5.1.1.5";
constexpr char OID_DUPLEX[] = "1.3.6.1.4.1.32473.405.4.5.1.1.16";

using Store = void (*)(tagSCANDEVINFO* unit, std::uint32_t value);

// UnitQuery is one number of each unit, and where it goes.
struct UnitQuery {
  const char* oid;
  Store store;
  std::uint32_t fallback = 0;  // a value for a unit that the device does not tell it for; 0 none
};

constexpr UnitQuery RESOLUTIONS[] = {
    {OID_X_RES_MIN,
     [](tagSCANDEVINFO* unit, std::uint32_t value) {
       unit->dwXResMin = unit->dwXResMinCmn = value / DPI;
     }},
    {OID_Y_RES_MIN,
     [](tagSCANDEVINFO* unit, std::uint32_t value) {
       unit->dwYResMin = unit->dwYResMinCmn = value / DPI;
     }},
    {OID_X_RES_MAX,
     [](tagSCANDEVINFO* unit, std::uint32_t value) {
       unit->dwXResMax = unit->dwXResMaxCmn = value / DPI;
     }},
    {OID_Y_RES_MAX,
     [](tagSCANDEVINFO* unit, std::uint32_t value) {
       unit->dwYResMax = unit->dwYResMaxCmn = value / DPI;
     }},
    {OID_X_RES_PRE_1,
     [](tagSCANDEVINFO* unit, std::uint32_t value) { unit->dwXResPre[1] = value / DPI; },
     150 * DPI},
    {OID_Y_RES_PRE_1,
     [](tagSCANDEVINFO* unit, std::uint32_t value) { unit->dwYResPre[1] = value / DPI; },
     150 * DPI},
    {OID_X_RES_PRE_0,
     [](tagSCANDEVINFO* unit, std::uint32_t value) { unit->dwXResPre[0] = value / DPI; }, 75 * DPI},
    {OID_Y_RES_PRE_0,
     [](tagSCANDEVINFO* unit, std::uint32_t value) { unit->dwYResPre[0] = value / DPI; }, 75 * DPI},
};

constexpr UnitQuery PAPER[] = {
    {OID_MARGIN_TOP, [](tagSCANDEVINFO* unit,
                        std::uint32_t value) { set_regular_margin(unit, MARGIN_TOP, value); }},
    {OID_MARGIN_BOTTOM,
     [](tagSCANDEVINFO* unit, std::uint32_t value) {
       set_regular_margin(unit, MARGIN_BOTTOM, value);
     }},
    {OID_MARGIN_LEFT, [](tagSCANDEVINFO* unit,
                         std::uint32_t value) { set_regular_margin(unit, MARGIN_LEFT, value); }},
    {OID_MARGIN_RIGHT, [](tagSCANDEVINFO* unit,
                          std::uint32_t value) { set_regular_margin(unit, MARGIN_RIGHT, value); }},
    {OID_FEEDER_EMPTY,
     [](tagSCANDEVINFO* unit, std::uint32_t value) { unit->byAdfPaper = value == 0; }},
};

constexpr UnitQuery SIZES[] = {
    {OID_WIDTH, [](tagSCANDEVINFO* unit, std::uint32_t value) { unit->dwPhysicalWidth = value; }},
    {OID_HEIGHT, [](tagSCANDEVINFO* unit, std::uint32_t value) { unit->dwPhysicalHeight = value; }},
};

std::uint32_t duplex_of(std::uint32_t value) {
  if (value == 4) return 1;
  return value == 5 ? 2 : 0;
}

}  // namespace

// UnitInfo gathers the units' records, query after query, until one fails.
class CTwImgIFNW::UnitInfo {
 public:
  explicit UnitInfo(CTwImgIFNW* pIF) : m_pIF(pIF) {}

  std::uint32_t count = 0;
  tagSCANDEVINFO units[kMaxScanUnits] = {};

  bool read() {
    return read_types() && read_all(RESOLUTIONS) && read_formats() && read_all(PAPER) &&
           read_common(
               OID_PAPER_SIZES,
               [](tagSCANDEVINFO* unit, std::uint32_t value) { unit->dwSupportPaper = value; }) &&
           read_all(SIZES) &&
           read_common(OID_DUPLEX,
                       [](tagSCANDEVINFO* unit, std::uint32_t value) {
                         unit->dwDuplex = duplex_of(value);
                       }) &&
           read_common(OID_COMPRESSION, [](tagSCANDEVINFO* unit, std::uint32_t value) {
             unit->dwCompInfo = value;
             DS_LogText("!!! %s dwCompInfo = %d\n", "GetDevInfo", static_cast<int>(value));
           });
  }

 private:
  bool read_types() {
    std::uint32_t values[kMaxScanUnits] = {};
    count = static_cast<std::uint32_t>(m_pIF->GetMibInt(OID_UNIT_TYPE, values, kMaxScanUnits));
    for (std::uint32_t i = 0; i < count; ++i) units[i].byPaperSources = paper_source_of(values[i]);
    return count > 0;
  }

  template <std::size_t N>
  bool read_all(const UnitQuery (&queries)[N]) {
    for (const UnitQuery& query : queries) {
      if (!read_each(query)) return false;
    }
    return true;
  }

  bool read_each(const UnitQuery& query) {
    std::uint32_t values[kMaxScanUnits] = {query.fallback, query.fallback};
    const int wanted = static_cast<int>(count);
    if (m_pIF->GetMibInt(query.oid, values, wanted) < wanted && query.fallback == 0) return false;
    for (std::uint32_t i = 0; i < count; ++i) query.store(&units[i], values[i]);
    return true;
  }

  // One number that all units share.
  bool read_common(const char* oid, Store store) {
    std::uint32_t value = 0;
    if (m_pIF->GetMibInt(oid, &value, 1) < 1) return false;
    for (std::uint32_t i = 0; i < count; ++i) store(&units[i], value);
    return true;
  }

  bool read_formats() {
    std::uint32_t values[IMAGE_FORMATS] = {};
    const int found = m_pIF->GetMibInt(OID_IMAGE_FORMATS, values, IMAGE_FORMATS);
    std::uint8_t types = 0;
    for (int i = 0; i < found; ++i) types |= image_type_bit(values[i]);
    for (std::uint32_t i = 0; i < count; ++i) units[i].byImageTypes = types;
    return found > 0;
  }

  CTwImgIFNW* const m_pIF;
};

bool CTwImgIFNW::IsOnLine(unsigned short /*wTimeout*/) {
  char name[NET_NAME_SIZE] = {};
  if (get_name(ip.c_str(), name, NET_NAME_SIZE) != 0) {
    SetIfErrorStatus(IF_ERR_STS_DEVICE_COMM_ERR);
    return false;
  }
  return m_name == name || m_name == FitForXml(name);
}

bool CTwImgIFNW::GetDevInfo(tagSCANDEVINFO* pDevInf) {
  UnitInfo info(this);
  if (!info.read()) {
    SetIfErrorStatus(IF_ERR_STS_DEVICE_COMM_ERR);
    return false;
  }
  for (int i = 0; i < kMaxScanUnits; ++i) m_DevInfoAll[i] = info.units[i];
  m_DevInfoAllCount = info.count;
  m_DevInfo = merge_units(info.units, info.count);
  *pDevInf = m_DevInfo;
  return true;
}

int CTwImgIFNW::GetMibInt(const char* oid, std::uint32_t* values, int count) {
  _tagMIBNEXTREQ request{};
  int found = 0;
  if (std::strlen(oid) >= sizeof request.oid) return 0;
  std::memcpy(request.oid, oid, std::strlen(oid) + 1);
  while (found < count && SnmpGetNext(ip.c_str(), nullptr, &request) == NET_OK) {
    const bool below = std::strstr(request.noid, oid) != nullptr;
    if (below) {
      std::uint32_t value = 0;  // a shorter value is filled up with zeros
      const std::size_t size = std::min<std::size_t>(request.dataSize, sizeof value);
      if (size > 0) std::memcpy(&value, request.data, size);
      values[found++] = value;
    }
    SnmpMemoryFree(&request);
    if (!below) break;
    std::memcpy(request.oid, request.noid, sizeof request.oid);
  }
  return found;
}

}  // namespace vox
