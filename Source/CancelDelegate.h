// CancelDelegate is whoever may call off a search or a test of many devices.
//
// Thread rule: it is asked on the thread that runs the search.
#pragma once

#include "vox/platform/Export.h"

namespace vox {

class VOX_EXPORT CancelDelegate {
 public:
  virtual ~CancelDelegate() = default;
  // isCancelled is asked between two devices, so it should answer at once. It must not throw.
  virtual bool isCancelled() = 0;
};

// is_cancelled asks a delegate; null is one that does not answer.
inline bool is_cancelled(CancelDelegate* delegate) {
  return delegate != nullptr && delegate->isCancelled();
}

}  // namespace vox
