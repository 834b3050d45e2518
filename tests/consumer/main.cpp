// Uses the installed library as a stranger would: one include, one call.
#include <cstdio>
#include <string>

#include <vox/vox.h>

int main() {
  const std::string text = vox::IfErrorText(8);
  std::printf("%s\n", text.c_str());
  return text == " no document" ? 0 : 1;
}
