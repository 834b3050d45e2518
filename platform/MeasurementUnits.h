// The units of length that the user's locale measures in.
//
// Thread rule: any thread, as long as none changes the environment at the same time.
#pragma once

#include <string>
#include <string_view>

#include "vox/platform/Export.h"
#include "vox/platform/Service.h"

namespace vox {

// MeasuresInInches judges a locale by its name alone ("en_US.UTF-8"), for locales that are asked
// for but not installed: true for the territories that keep to inches (US, LR, MM).
VOX_EXPORT bool MeasuresInInches(std::string_view locale);

class VOX_EXPORT MeasurementUnits : public Service<MeasurementUnits> {
 public:
  // Name gives "Centimeters" for a metric locale, else "Inches". The locale is what the environment
  // says for LC_MEASUREMENT, whether the program has taken it on (setlocale) or not.
  virtual std::string Name() = 0;

 protected:
  ~MeasurementUnits() = default;
};

template <>
VOX_EXPORT Service<MeasurementUnits>::Where& Service<MeasurementUnits>::Place();

}  // namespace vox
