// The settings that vox knows: where each is kept, what it means, what holds when it was never set,
// and how it is read and written.
//
// Thread rule: the main thread.
#pragma once

#include <span>
#include <string>

#include "tools/vox/Json.h"

namespace vox::cli {

struct SettingKey {
  const char* name;
  bool shared;          // for all users of the machine; else the user's own
  const char* meaning;  // for people, one line
  const char* usual;    // what holds when it was never set, in words

  Json (*get)();        // null: nothing
  Json (*get_usual)();  // what holds when it was never set, of the same type; null: nothing
  // Checks and stores a value. Throws Failure 64 for one that it cannot be. Null: it cannot be set.
  void (*set)(const std::string& value);
  void (*reset)();  // forgets what was set
};

// SettingKeys gives the keys, in the order in which they are listed.
std::span<const SettingKey> SettingKeys();

// FindSetting gives a key by its name, or null; capitals count as small letters.
const SettingKey* FindSetting(const std::string& name);

}  // namespace vox::cli
