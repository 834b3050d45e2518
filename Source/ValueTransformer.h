// ValueTransformer turns one value into another for display; transformers are found by name.
//
// Thread rule: the registry from any thread; a transformer's own calls must bear any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "vox/platform/Export.h"
#include "vox/platform/PropertyValue.h"

namespace vox {

class VOX_EXPORT ValueTransformer {
 public:
  virtual ~ValueTransformer() = default;

  // The type of what transformedValue gives.
  virtual PropertyValue::Type transformedValueClass() const = 0;
  virtual bool allowsReverseTransformation() const = 0;
  virtual std::optional<PropertyValue> transformedValue(
      const std::optional<PropertyValue>& value) const = 0;

  // setValueTransformerForName registers a transformer for this process; it takes the place of one
  // that bears the name, and null takes the name away.
  static void setValueTransformerForName(std::shared_ptr<const ValueTransformer> transformer,
                                         const std::string& name);
  // Returns: the transformer of that name, or null.
  static std::shared_ptr<const ValueTransformer> valueTransformerForName(const std::string& name);
};

}  // namespace vox
