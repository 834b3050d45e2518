#include "vox/FullPathToLeafTransformer.h"

#include "vox/platform/DisplayNames.h"
#include "vox/platform/SystemLog.h"

namespace vox {

PropertyValue::Type FullPathToLeafTransformer::transformedValueClass() const {
  return PropertyValue::Type::kString;
}

bool FullPathToLeafTransformer::allowsReverseTransformation() const {
  return false;
}

std::optional<PropertyValue> FullPathToLeafTransformer::transformedValue(
    const std::optional<PropertyValue>& value) const {
  const std::string* const path = value ? value->AsString() : nullptr;
  if (path == nullptr) return std::nullopt;
  auto name = DisplayNames::Current().NameOf(*path);
  if (name) return std::move(*name);
  LogToSystem("%s: failed to get display name for path %s",
              "-[FullPathToLeafTransformer transformedValue:]", path->c_str());
  return std::nullopt;
}

void FullPathToLeafTransformer::submit() {
  setValueTransformerForName(std::make_shared<FullPathToLeafTransformer>(),
                             "FullPathToLeafTransformer");
}

}  // namespace vox
