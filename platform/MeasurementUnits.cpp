#include "vox/platform/MeasurementUnits.h"

#include <cstdlib>

#include <langinfo.h>
#include <locale.h>

namespace vox {
namespace {

constexpr char kMetric = 1;  // what locale(5) calls the value of "measurement"

// The first variable that is set to something decides, locale(7).
std::string_view AskedLocale() {
  for (const char* name : {"LC_ALL", "LC_MEASUREMENT", "LANG"}) {
    const char* const value = std::getenv(name);
    if (value != nullptr && *value != '\0') return value;
  }
  return "C";
}

class LinuxMeasurementUnits final : public MeasurementUnits {
 public:
  std::string Name() override { return IsMetric() ? "Centimeters" : "Inches"; }

 private:
  static bool IsMetric() {
    const locale_t asked = ::newlocale(LC_MEASUREMENT_MASK, "", nullptr);
    if (asked == nullptr) return !MeasuresInInches(AskedLocale());
    const bool metric = *::nl_langinfo_l(_NL_MEASUREMENT_MEASUREMENT, asked) == kMetric;
    ::freelocale(asked);
    return metric;
  }
};

}  // namespace

bool MeasuresInInches(std::string_view locale) {
  const std::size_t mark = locale.find('_');
  if (mark == std::string_view::npos) return false;
  std::string_view territory = locale.substr(mark + 1);
  territory = territory.substr(0, territory.find_first_of(".@"));
  return territory == "US" || territory == "LR" || territory == "MM";
}

template <>
Service<MeasurementUnits>::Where& Service<MeasurementUnits>::Place() {
  static LinuxMeasurementUnits& own = *new LinuxMeasurementUnits;  // never destroyed
  static Where where{own};
  return where;
}

}  // namespace vox
