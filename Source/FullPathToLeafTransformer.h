// FullPathToLeafTransformer turns the full path of a file into the name under which the file
// browser shows it.
//
// Thread rule: any thread.
#pragma once

#include <optional>

#include "vox/ValueTransformer.h"
#include "vox/platform/Export.h"

namespace vox {

class VOX_EXPORT FullPathToLeafTransformer : public ValueTransformer {
 public:
  PropertyValue::Type transformedValueClass() const override;
  bool allowsReverseTransformation() const override;
  // Returns: the display name; nil for what is no string, and, with a line in the system log, for a
  //          path under which no file is found.
  std::optional<PropertyValue> transformedValue(
      const std::optional<PropertyValue>& value) const override;

  // submit registers one instance under the name "FullPathToLeafTransformer".
  static void submit();
};

}  // namespace vox
