#include "vox/platform/PropertyListFile.h"

#include <cerrno>

#include "vox/platform/FileReplacement.h"
#include "vox/platform/PropertyList.h"

namespace vox {
namespace {

DictionaryFile Failed(int error) {
  if (error == EFBIG) return {FileState::Damaged, error, {}};
  const bool missing = error == ENOENT || error == ENOTDIR;
  return {missing ? FileState::Missing : FileState::Unreadable, error, {}};
}

}  // namespace

DictionaryFile ReadDictionaryFile(const std::string& path) {
  std::vector<std::uint8_t> bytes;
  if (const int error = ReadWholeFile(path, kPropertyListBytes, &bytes, nullptr))
    return Failed(error);
  const auto value = ParsePropertyList(bytes);
  const Dictionary* content = value ? value->AsDictionary() : nullptr;
  if (content == nullptr) return {FileState::Damaged, 0, {}};
  return {FileState::Whole, 0, *content};
}

int WriteDictionaryFile(const std::string& path, const Dictionary& content, mode_t new_mode) {
  const auto xml = PropertyListXml(content);
  return xml ? ReplaceFile(path, *xml, new_mode) : EFBIG;
}

}  // namespace vox
