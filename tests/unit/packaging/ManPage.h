// ManPage reads the source of a man page for the options that it knows: those of each synopsis
// (.SY to .YS), those that a tagged paragraph (.TP) explains, and those that it mentions at all.
#pragma once

#include <map>
#include <string>

#include "tests/unit/packaging/ProgramHelp.h"

namespace vox::test {

struct ManPage {
  std::map<std::string, Options> synopses;  // by what .SY names, as "vox scan"
  Options explained;
  Options mentioned;
};

ManPage ReadManPage(const std::string& source);

}  // namespace vox::test
