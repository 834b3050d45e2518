// The name that this computer bears in the network.
//
// Thread rule: any thread.
#pragma once

#include <string>

#include "vox/platform/Export.h"
#include "vox/platform/Service.h"

namespace vox {

class VOX_EXPORT HostName : public Service<HostName> {
 public:
  // Name gives the host name as it was set, domain included if it was set with one; empty when the
  // system does not say.
  virtual std::string Name() = 0;

 protected:
  ~HostName() = default;
};

template <>
VOX_EXPORT Service<HostName>::Where& Service<HostName>::Place();

}  // namespace vox
