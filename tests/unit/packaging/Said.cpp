#include "tests/unit/packaging/Said.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include <gtest/gtest.h>

namespace vox::test {

std::string Said(const std::string& command, int* status) {
  std::string text;
  FILE* const pipe = ::popen(command.c_str(), "r");
  if (pipe == nullptr) return *status = -1, text;
  for (int c = std::fgetc(pipe); c != EOF; c = std::fgetc(pipe)) text += static_cast<char>(c);
  *status = ::pclose(pipe);
  return text;
}

bool IsHere(const std::string& program) {
  return std::system(("command -v " + program + " >/dev/null").c_str()) == 0;
}

std::string TextOf(const std::string& path) {
  std::ifstream in(path);
  EXPECT_TRUE(in.good()) << path;
  return std::string(std::istreambuf_iterator<char>(in), {});
}

}  // namespace vox::test
