#include "vox/PaperSizes.h"

#include "vox/platform/PropertyListFile.h"
#include "vox/platform/Resources.h"
#include "vox/platform/SystemLog.h"

namespace vox {

template <>
Singleton<PaperSizes>::Slot& Singleton<PaperSizes>::slot() {
  static Slot& slot = *new Slot;  // never destroyed: threads may outlive main
  return slot;
}

PaperSizes::PaperSizes() {
  const DictionaryFile file = ReadDictionaryFile(ResourcePath("PaperSizes", "plist"));
  defaultForMetric = file.content.Value("defaultForMetric");
  defaultForUS = file.content.Value("defaultForUS");
  const Array* papers = file.content.AsArray("sizes");
  if (papers == nullptr) return;
  for (const PropertyValue& paper : *papers) {
    if (const Dictionary* dictionary = paper.AsDictionary())
      sizes.push_back(std::make_shared<const Dictionary>(*dictionary));
  }
}

PaperSizes::Paper PaperSizes::paperByKeyWithValue(const std::string& key,
                                                  const std::optional<PropertyValue>& value) const {
  if (!value) return nullptr;
  for (const Paper& paper : sizes) {
    const PropertyValue* own = paper->Find(key);
    if (own != nullptr && *value == *own) return paper;
  }
  return nullptr;
}

PaperSizes::Paper PaperSizes::paperByTwainId(const std::optional<PropertyValue>& twainId) const {
  return paperByKeyWithValue("twainId", twainId);
}

PaperSizes::Paper PaperSizes::paperByPaperId(const std::optional<PropertyValue>& paperId) const {
  return paperByKeyWithValue("paperId", paperId);
}

PaperSizes::Paper PaperSizes::paperByPushScanId(
    const std::optional<PropertyValue>& pushScanId) const {
  return paperByKeyWithValue("pushScanId", pushScanId);
}

std::optional<PropertyValue> PaperSizes::paperIdByTwainId(
    const std::optional<PropertyValue>& twainId) const {
  const Paper paper = paperByTwainId(twainId);
  return paper ? paper->Value("paperId") : std::nullopt;
}

PaperSizes::Paper PaperSizes::defaultForMeasurementUnits(
    const std::optional<std::string>& units) const {
  Paper paper = paperByPaperId(units == "Centimeters" ? defaultForMetric : defaultForUS);
  if (!paper) {
    LogToSystem("%s: there is no default paper for %s", "-[PaperSizes defaultForMeasurementUnits:]",
                units ? units->c_str() : "(null)");
  }
  return paper;
}

}  // namespace vox
