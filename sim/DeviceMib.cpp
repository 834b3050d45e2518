#include "sim/DeviceMib.h"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <memory>
#include <utility>
#include <vector>

namespace vox::sim {
namespace {

// RFC 1213.
const char kSystem[] = "1.3.6.1.2.1.1.";
const char kFirstInterfaceAddress[] = "1.3.6.1.2.1.2.2.1.6.1";

// The device family's own objects. Rows of the unit tables are numbered 1.1 and 1.2.
const char kModel[] = "1.3.6.1.4.1.32473.405.1.1.1.3.0";
const char kUnitTable[] = "1.3.6.1.4.1.32473.203.1.4.5.1.1.";
const char kPaperTable[] = "1.3.6.1.4.1.32473.405.4.5.1.1.";
const char kImageTypes[] = "1.3.6.1.4.1.32473.405.4.10.1.1.2.1.";
const char kSupportedPaper[] = "1.3.6.1.4.1.32473.203.1.4.13.1.1.2.1.1";
const char kCompression[] = "1.3.6.1.4.1.32473.203.1.7.2.0";

constexpr std::int32_t kFeederUnit = 3;
constexpr std::int32_t kFlatbedUnit = 5;
constexpr std::int32_t kResolutionUnits = 10000;  // of a resolution object in one dpi
constexpr std::int32_t kPaperThere = 0;
constexpr std::int32_t kNoPaper = 3;
constexpr std::size_t kMaxName = 255;  // RFC 1213 DisplayString

MibObject Constant(MibValue value) {
  return {[value = std::move(value)] { return value; }, nullptr, nullptr};
}
MibObject Number(std::uint32_t value) {
  return Constant(IntegerValue(static_cast<int>(value)));
}

MibObject WritableText(std::string initial) {
  auto text = std::make_shared<std::string>(std::move(initial));
  return {[text] { return TextValue(*text); },
          [](const MibValue& value) {
            return value.tag == kBerOctetString && value.contents.size() <= kMaxName;
          },
          [text](const MibValue& value) {
            text->assign(value.contents.begin(), value.contents.end());
          }};
}

MibObject UpTime() {
  const auto start = std::chrono::steady_clock::now();
  return {[start] {
            const auto hundredths = std::chrono::duration_cast<std::chrono::milliseconds>(
                                        std::chrono::steady_clock::now() - start) /
                                    10;
            return MibValue{kBerTimeTicks,
                            BerUnsignedContents(static_cast<std::uint32_t>(hundredths.count()))};
          },
          nullptr, nullptr};
}

void AddSystemGroup(SnmpAgent& agent, const DeviceOptions& options) {
  const std::string system = kSystem;
  agent.Add(system + "1.0", Constant(TextValue("Veltronix " + options.model)));
  agent.Add(system + "2.0", Constant({kBerOid, BerOidContents({1, 3, 6, 1, 4, 1, 32473, 405})}));
  agent.Add(system + "3.0", UpTime());
  agent.Add(system + "4.0", WritableText(""));
  agent.Add(system + "5.0", WritableText(options.name));
  agent.Add(system + "6.0", WritableText(""));
  agent.Add(system + "7.0", Number(72));
  agent.Add(kFirstInterfaceAddress,
            Constant({kBerOctetString, Bytes(options.mac.begin(), options.mac.end())}));
  agent.Add(kModel, Constant(TextValue(options.model)));
}

void AddUnit(SnmpAgent& agent, const UnitRow& row, const std::string& instance) {
  const UnitOptions& unit = *row.unit;
  const auto add = [&](int column, std::uint32_t value) {
    agent.Add(kUnitTable + std::to_string(column) + instance, Number(value));
  };
  const auto add_resolution = [&](int column, std::optional<std::uint32_t> dpi) {
    if (dpi) add(column, *dpi * kResolutionUnits);
  };
  add(2, row.is_feeder ? kFeederUnit : kFlatbedUnit);
  add_resolution(4, unit.y_resolution_max);
  add_resolution(5, unit.x_resolution_max);
  add_resolution(6, unit.y_resolution_min);
  add_resolution(7, unit.x_resolution_min);
  add_resolution(8, unit.preview_high);
  add_resolution(9, unit.preview_high);
  add(10, unit.margin_top);
  add(11, unit.margin_bottom);
  add(12, unit.margin_left);
  add(13, unit.margin_right);
  add_resolution(14, unit.preview_low);
  add_resolution(15, unit.preview_low);
}

void AddPaper(SnmpAgent& agent, const UnitRow& row, const std::string& instance,
              std::uint32_t duplex, const std::function<bool()>& loaded) {
  const std::string table = kPaperTable;
  agent.Add(table + "4" + instance, Number(row.unit->physical_width));
  agent.Add(table + "5" + instance, Number(row.unit->physical_height));
  const bool is_feeder = row.is_feeder;
  agent.Add(table + "10" + instance,
            {[is_feeder, loaded] {
               return IntegerValue(is_feeder && loaded && loaded() ? kPaperThere : kNoPaper);
             },
             nullptr, nullptr});
  // 3: one side only; 4 and 5: the two kinds of duplex.
  agent.Add(table + "16" + instance, Number(3 + std::min<std::uint32_t>(duplex, 2)));
}

void AddImageTypes(SnmpAgent& agent, const DeviceOptions& options) {
  int row = 0;
  const auto add = [&](bool supported, std::uint32_t type) {
    if (supported) agent.Add(kImageTypes + std::to_string(++row), Number(type));
  };
  add(options.bilevel, 1);
  add(options.grey, 22);
  add(options.colour, 61);
}

}  // namespace

std::vector<UnitRow> UnitsOf(const DeviceOptions& options) {
  std::vector<UnitRow> rows;
  if (options.flatbed) rows.push_back({&*options.flatbed, false});
  if (options.feeder) rows.push_back({&*options.feeder, true});
  return rows;
}

void AddDeviceObjects(SnmpAgent& agent, const DeviceOptions& options, const DeviceMibHooks& hooks) {
  AddSystemGroup(agent, options);
  int number = 0;
  for (const UnitRow& row : UnitsOf(options)) {
    const std::string instance = ".1." + std::to_string(++number);
    AddUnit(agent, row, instance);
    AddPaper(agent, row, instance, options.duplex, hooks.feeder_loaded);
  }
  AddImageTypes(agent, options);
  agent.Add(kSupportedPaper, Number(options.support_paper));
  agent.Add(kCompression, Number(options.compression));
  for (const ObjectText& object : options.objects) {
    agent.Remove(object.oid);
    if (!object.missing) agent.Add(object.oid, Constant({object.tag, object.contents}));
  }
}

}  // namespace vox::sim
