// Premises is where a command plays: this machine with its network and settings, or, with
// --virtual, a virtual device and settings of one's own.
//
// Thread rule: the main thread; constructed before the library is used.
#pragma once

#include <memory>
#include <string>

#include "tools/vox/Options.h"

namespace vox::cli {

class CancelWatch;
class VirtualSetup;

class Premises {
 public:
  // `both_sides` is for the paper of a virtual device. Throws Failure.
  Premises(const VirtualOptions& with, bool both_sides, CancelWatch& watch);
  ~Premises();
  Premises(const Premises&) = delete;
  Premises& operator=(const Premises&) = delete;

  bool IsVirtual() const { return virtual_ != nullptr; }
  const std::string& Address() const;  // of the virtual device

  // RememberVirtual puts the virtual device into the registry that it came with. Nothing happens
  // when there is none. Throws Failure.
  void RememberVirtual() const;

 private:
  std::unique_ptr<VirtualSetup> virtual_;
};

}  // namespace vox::cli
