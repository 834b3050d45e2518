#include "tools/vox/Report.h"

#include <cmath>
#include <cstdio>

#include "tools/vox/DeviceText.h"
#include "tools/vox/Failure.h"
#include "tools/vox/Json.h"

namespace vox::cli {

namespace {

constexpr double kUnitsPerMillimetre = 10000.0 / kMillimetresPerInch;

// Millimetres with one digit behind the point.
double Millimetres(double inches) {
  return std::round(inches * kMillimetresPerInch * 10) / 10;
}
double FromUnits(std::uint32_t units) {
  return std::round(units / kUnitsPerMillimetre * 10) / 10;
}

std::string Number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", value);
  return text;
}

std::string Pair(std::uint32_t x, std::uint32_t y) {
  return x == y ? std::to_string(x) : std::to_string(x) + "x" + std::to_string(y);
}

std::string Joined(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& word : words) line += (line.empty() ? "" : ", ") + word;
  return line.empty() ? "none" : line;
}

std::vector<std::string> ModeNames(const tagSCANDEVINFO& device) {
  std::vector<std::string> names;
  for (const Mode mode : ModesOf(device)) names.emplace_back(ModeName(mode));
  return names;
}

const char* SourceName(const tagSCANDEVINFO& unit) {
  return IsFeeder(unit) ? "feeder" : "flatbed";
}

Json Dpi(std::uint32_t x, std::uint32_t y) {
  return {{"x", x}, {"y", y}};
}

std::string Row(const char* name, const std::string& value) {
  char label[24];
  std::snprintf(label, sizeof label, "%-14s", name);
  return label + value + "\n";
}

std::string MarginWords(const tagSCANDEVINFO& device) {
  return "left " + Number(FromUnits(device.dwRegularLeftMargin)) + ", top " +
         Number(FromUnits(device.dwRegularTopMargin)) + ", right " +
         Number(FromUnits(device.dwRegularRightMargin)) + ", bottom " +
         Number(FromUnits(device.dwRegularBottomMargin)) + " mm";
}

// At USB devices do not tell whether paper lies in the feeder.
std::string UnitWords(const tagSCANDEVINFO& unit, bool tells_paper) {
  std::string text = Number(FromUnits(unit.dwPhysicalWidth)) + " x " +
                     Number(FromUnits(unit.dwPhysicalHeight)) + " mm";
  if (IsFeeder(unit) && tells_paper) text += unit.byAdfPaper != 0 ? ", loaded" : ", empty";
  return Row(IsFeeder(unit) ? "Feeder" : "Flatbed", text);
}

Json Range(const tagSCANDEVINFO& unit) {
  return {{"min", Dpi(unit.dwXResMin, unit.dwYResMin)},
          {"max", Dpi(unit.dwXResMax, unit.dwYResMax)}};
}

Json UnitJson(const tagSCANDEVINFO& unit) {
  return {{"source", SourceName(unit)},
          {"width", FromUnits(unit.dwPhysicalWidth)},
          {"height", FromUnits(unit.dwPhysicalHeight)},
          {"resolution", Range(unit)}};
}

std::string TextOf(const Dictionary& device, const char* key) {
  return CleanText(device.String(key).value_or("-"));
}

std::string NetworkRows(const DeviceReport& report) {
  std::string rows = Row("Name", CleanText(report.name)) +
                     Row("Address", CleanText(report.ip) + (report.is_virtual ? " (virtual)" : ""));
  if (report.remembered == nullptr) return rows;
  const Dictionary& device = *report.remembered;
  return rows + Row("Model", TextOf(device, kDeviceModelNameKey)) +
         Row("Id", TextOf(device, kDeviceIdKey)) +
         Row("Registered", device.Truth(kDevicePushKey).value_or(true) ? "wanted" : "not wanted");
}

std::string UsbRows(const DeviceReport& report) {
  return Row("Model", TextOf(*report.usb, kDeviceModelNameKey)) +
         Row("Address", "usb:" + TextOf(*report.usb, kDeviceSerialNumberKey)) +
         Row("Id", report.remembered != nullptr ? TextOf(*report.remembered, kDeviceIdKey)
                                                : "none, it is not remembered");
}

// Who it is.
Json IdentityJson(const DeviceReport& report) {
  if (report.usb != nullptr) return DeviceRecord(*report.usb);
  Json json = report.remembered != nullptr ? DeviceRecord(*report.remembered) : Json::object();
  json["name"] = report.name;
  json["type"] = kDeviceTypeNetwork;
  json["ip"] = report.ip;
  return json;
}

}  // namespace

std::string DeviceWords(const DeviceReport& report) {
  const tagSCANDEVINFO& device = report.abilities.common;
  std::string text = (report.usb != nullptr ? UsbRows(report) : NetworkRows(report)) +
                     Row("Modes", Joined(ModeNames(device))) +
                     Row("Resolution", Pair(device.dwXResMin, device.dwYResMin) + " to " +
                                           Pair(device.dwXResMax, device.dwYResMax) +
                                           " dpi; others are made from these") +
                     Row("Preview", Pair(device.dwXResPre[0], device.dwYResPre[0]) + " dpi");
  for (const tagSCANDEVINFO& unit : report.abilities.units)
    text += UnitWords(unit, report.usb == nullptr);
  text += Row("Both sides", device.dwDuplex != 0 ? "yes" : "no");
  if (device.bySmallPaperSizeType != 0) text += Row("Not scanned", MarginWords(device));
  return text;
}

std::string DeviceJson(const DeviceReport& report) {
  const tagSCANDEVINFO& device = report.abilities.common;
  Json json = IdentityJson(report);
  json["virtual"] = report.is_virtual;
  json["modes"] = ModeNames(device);
  json["resolution"] = Range(device);
  json["previewResolutions"] = {Dpi(device.dwXResPre[0], device.dwYResPre[0]),
                                Dpi(device.dwXResPre[1], device.dwYResPre[1])};
  json["sources"] = Json::array();
  for (const tagSCANDEVINFO& unit : report.abilities.units)
    json["sources"].push_back(UnitJson(unit));
  json["feederLoaded"] = report.usb != nullptr ? Json(nullptr) : Json(device.byAdfPaper != 0);
  json["duplex"] = static_cast<std::uint32_t>(device.dwDuplex);
  json["margins"] = {{"left", FromUnits(device.dwRegularLeftMargin)},
                     {"top", FromUnits(device.dwRegularTopMargin)},
                     {"right", FromUnits(device.dwRegularRightMargin)},
                     {"bottom", FromUnits(device.dwRegularBottomMargin)}};
  json["supportedPapers"] = static_cast<std::uint32_t>(device.dwSupportPaper);
  json["compression"] = static_cast<std::uint32_t>(device.dwCompInfo);
  return JsonLine(json);
}

std::string PageWords(const PageReport& report, const ScanPlan& plan) {
  return CleanText(report.file) + ": page " + std::to_string(report.page) + ", " +
         std::to_string(plan.page.width) + " x " + std::to_string(plan.page.height) + " pixels, " +
         ModeName(plan.mode) + ", " +
         Pair(static_cast<std::uint32_t>(plan.page.x_dpi),
              static_cast<std::uint32_t>(plan.page.y_dpi)) +
         " dpi\n";
}

std::string PageJson(const PageReport& report, const ScanPlan& plan) {
  Json json;
  json["page"] = report.page;
  json["file"] = report.file;
  json["format"] = FormatName(report.format);
  json["mode"] = ModeName(plan.mode);
  json["width"] = plan.page.width;
  json["height"] = plan.page.height;
  json["bitsPerPixel"] = plan.page.bits;
  json["resolution"] =
      Dpi(static_cast<std::uint32_t>(plan.page.x_dpi), static_cast<std::uint32_t>(plan.page.y_dpi));
  json["frame"] = {{"left", Millimetres(plan.frame.left)},
                   {"top", Millimetres(plan.frame.top)},
                   {"right", Millimetres(plan.frame.right)},
                   {"bottom", Millimetres(plan.frame.bottom)}};
  json["rotated"] = report.turned ? 180 : 0;
  json["seconds"] = std::round(report.seconds * 1000) / 1000;
  return JsonLine(json);
}

}  // namespace vox::cli
