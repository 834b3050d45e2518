// ResourceFolder makes the library read its tables from a folder of the test.
#pragma once

#include <fstream>
#include <string>

#include "tests/unit/core/Scratch.h"

namespace vox {

class ResourceFolder {
 public:
  ResourceFolder() : variable_("VOX_RESOURCES", scratch_.Path("")) {}
  // Put stores a resource with this element as its top level.
  void Put(const std::string& name, const std::string& element) const {
    PutBytes(name, "<plist version=\"1.0\">" + element + "</plist>");
  }
  void PutBytes(const std::string& name, const std::string& bytes) const {
    std::ofstream(scratch_.Path(name + ".plist")) << bytes;
  }

 private:
  Scratch scratch_;
  Variable variable_;
};

}  // namespace vox
