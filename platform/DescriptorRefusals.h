// File descriptors that the system refused: who failed to find or to reach something tells by them
// whether it could look at all.
//
// Thread rule: any thread; the count is the calling thread's.
#pragma once

#include <cstdint>

#include "vox/platform/Export.h"

namespace vox {

// NoteDescriptorRefusal counts `error`, an errno, if it says that this process (EMFILE) or the
// machine (ENFILE) has no descriptor left. Returns: whether it does.
bool NoteDescriptorRefusal(int error);

// DescriptorRefusalsHere gives how often the calling thread met one.
VOX_EXPORT std::uint32_t DescriptorRefusalsHere();

// HaveDescriptors tells whether `count` descriptors, kMostProbed at most, can be had now, for those
// who do not learn it from what they call. A refusal is counted.
inline constexpr int kMostProbed = 16;
VOX_EXPORT bool HaveDescriptors(int count);

}  // namespace vox
