// The vector paths of the line kernels: the versions of their code that this machine can run, from
// the one without vectors to the widest.
//
// Thread rule: one thread at a time, while no other one runs kernels.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <hwy/targets.h>

namespace vox::test {

// VectorPath makes all kernels of the process take one path while it lives.
class VectorPath {
 public:
  explicit VectorPath(std::int64_t target) { Choose(target); }
  ~VectorPath() { Choose(0); }
  VectorPath(const VectorPath&) = delete;
  VectorPath& operator=(const VectorPath&) = delete;

  static std::vector<std::int64_t> All() { return hwy::SupportedAndGeneratedTargets(); }
  static std::string Name(std::int64_t target) { return hwy::TargetName(target); }

 private:
  // 0 is the best that the machine has.
  static void Choose(std::int64_t target) {
    hwy::SetSupportedTargetsForTest(target);
    hwy::GetChosenTarget().Update(hwy::SupportedTargets());
  }
};

}  // namespace vox::test
