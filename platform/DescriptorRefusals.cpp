#include "vox/platform/DescriptorRefusals.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <sys/eventfd.h>

#include "vox/platform/FileDescriptor.h"

namespace vox {
namespace {

thread_local std::uint32_t refusals_here = 0;

}  // namespace

bool NoteDescriptorRefusal(int error) {
  if (error != EMFILE && error != ENFILE) return false;
  ++refusals_here;
  return true;
}

std::uint32_t DescriptorRefusalsHere() {
  return refusals_here;
}

bool HaveDescriptors(int count) {
  std::array<FileDescriptor, kMostProbed> held;
  for (int i = 0; i < std::min(count, kMostProbed); ++i) {
    held[static_cast<std::size_t>(i)].Reset(::eventfd(0, EFD_CLOEXEC));
    if (!held[static_cast<std::size_t>(i)] && NoteDescriptorRefusal(errno)) return false;
  }
  return true;
}

}  // namespace vox
