// voxsim-usb: runs a program on a machine whose USB is an emulated one with virtual scanners.
#include <cstdio>
#include <exception>
#include <new>
#include <string>

#include "tools/voxsim-usb/Arguments.h"
#include "tools/voxsim-usb/Preload.h"
#include "tools/voxsim-usb/Session.h"

namespace vox {
namespace {

int Fail(int status, const std::string& text) {
  std::fprintf(stderr, "voxsim-usb: %s\n", text.c_str());
  return status;
}

int Run(int argc, char** argv) {
  UsbArguments arguments;
  const int status = ParseArguments(argc, argv, arguments);
  if (status >= 0) return status;
  const std::string error = Preload(argv);
  if (!error.empty()) return Fail(kIoError, error);
  const std::string paper = LoadPaper(arguments.sim);
  if (!paper.empty()) return Fail(kInvalid, paper);
  BlockSignals();
  return RunSession(arguments);
}

}  // namespace
}  // namespace vox

int main(int argc, char** argv) {
  try {
    return vox::Run(argc, argv);
  } catch (const std::bad_alloc&) {
    return vox::Fail(vox::kNoMemory, "out of memory");
  } catch (const std::exception& error) {
    return vox::Fail(vox::kIoError, error.what());
  }
}
