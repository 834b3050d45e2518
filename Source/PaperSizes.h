// PaperSizes is the table of paper sizes; it brings together TWAIN's numbers, the library's own
// names and the numbers of devices for scans that are started at their panel. It is read once, from
// the resource PaperSizes.plist, and never changes.
//
// A paper is a dictionary with the keys
//   twainId     integer  TWAIN's TWSS_ number; from 0x8000 on the library's own
//   paperId     string   the library's name ("A4", "B4-ISO", "Letter"); B4 alone is the JIS sheet
//   pushScanId  integer  the device's number
//   name        string   for people
//   width, height  real  in millimetres, upright
// and whatever else the resource holds.
//
// Tests get a fresh table with PaperSizes::Fresh (see Singleton.h) after pointing VOX_RESOURCES at
// a folder of theirs.
// Thread rule: any thread.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "vox/Singleton.h"
#include "vox/platform/Export.h"
#include "vox/platform/PropertyValue.h"

namespace vox {

class VOX_EXPORT PaperSizes : public Singleton<PaperSizes> {
 public:
  using Paper = std::shared_ptr<const Dictionary>;  // null: none

  // enumerator gives the papers, in table order; they live as long as the table.
  const std::vector<Paper>& enumerator() const { return sizes; }

  // paperByKeyWithValue gives the first paper whose value for the key equals this one, in type too;
  // null when there is none, or no value.
  Paper paperByKeyWithValue(const std::string& key,
                            const std::optional<PropertyValue>& value) const;
  Paper paperByTwainId(const std::optional<PropertyValue>& twainId) const;
  Paper paperByPaperId(const std::optional<PropertyValue>& paperId) const;
  Paper paperByPushScanId(const std::optional<PropertyValue>& pushScanId) const;
  // paperIdByTwainId gives the "paperId" of paperByTwainId.
  std::optional<PropertyValue> paperIdByTwainId(const std::optional<PropertyValue>& twainId) const;

  // defaultForMeasurementUnits gives the usual paper where people measure in "Centimeters"; for any
  // other text, and for none, that of the United States. Null, with a line in the system log, when
  // the table does not have it.
  Paper defaultForMeasurementUnits(const std::optional<std::string>& units) const;

 private:
  friend class Singleton<PaperSizes>;
  PaperSizes();
  ~PaperSizes() = default;

  std::vector<Paper> sizes;
  std::optional<PropertyValue> defaultForMetric;  // a paperId
  std::optional<PropertyValue> defaultForUS;      // a paperId
};

template <>
VOX_EXPORT Singleton<PaperSizes>::Slot& Singleton<PaperSizes>::slot();

}  // namespace vox
