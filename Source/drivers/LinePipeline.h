// The line pipeline: three threads that move a page from the device to the client, line by line.
// What a line goes through is in LineStages.h as plain functions; here are the hand-overs between
// the threads, drawn above CTwainImageIF.
//
// Thread rule: the three bodies belong to the threads that StartScan creates; a container is shared
// by all of them and by the client (see its fields).
// Owner: a line belongs to the table slot that holds it, else to the stage that works on it, else
// to the pool that keeps it for a line to come (LinePool.h).
#pragma once

#include <atomic>
#include <cstdint>

#include "vox/drivers/LinePool.h"
#include "vox/drivers/ScanRecords.h"
#include "vox/platform/Export.h"

namespace vox {

class CTwainImageIF;

// __DataContainer: one table of lines, for device lines (ScanData) or for client lines (UserData).
struct __DataContainer {
  unsigned char** LineArray = nullptr;  // owned lines (calloc) or null; a slot changes at
                                        // once, by an atomic exchange
  std::atomic<std::int32_t> semid{-1};  // the page's semaphore set, -1 none; same in both tables
  std::atomic<std::int32_t> CurLineReady{-1};   // newest line that is ready, -1 none; stored before
                                                // the post that announces it
  std::atomic<std::int32_t> StartLineReady{0};  // lines below are consumed and freed
};
using DataContainer = __DataContainer;

// __ImageProc: what the two rescaling threads work on. The records are copies, taken when the page
// started: whatever rewrites the request or the block afterwards does not touch a running page.
struct __ImageProc {
  __DataContainer* SData;  // device lines
  __DataContainer* UData;  // client lines
  tagTWSCANPARAM sparam;   // the client's request
  _SCANINFO sinfo;         // the block that the device returned
  CTwainImageIF* dev;
};
using ImageProc = __ImageProc;

// data_thread reads the page (ReadDataAll), then always lets the transport end it (DeviceEndScan,
// once), then keeps a feeder awake until the next page while the session has more of them.
// An exception sets status 2 if there is none and calls the virtual Abort.
VOX_EXPORT void data_thread(CTwainImageIF* dev);

// imageprocX_thread trims each device line to the client's frame and rescales it to its width.
// imageprocY_thread makes the client's lines of them. An exception, a set that is gone or a data
// type that is none of 0, 2 and 3 ends the thread and removes the set, so that nobody waits for it.
VOX_EXPORT void imageprocX_thread(__ImageProc* proc);
VOX_EXPORT void imageprocY_thread(__ImageProc* proc);

// waitLine waits until device line `line` has passed the horizontal stage.
// Returns: false when the semaphore set is gone.
VOX_EXPORT bool waitLine(volatile __DataContainer* data, unsigned int line);

}  // namespace vox
