// UsbShape makes the small virtual scanner at USB that a few words describe, so that two processes
// know the same one: "sheets=10 both-sides blocks=1,4096,3 joined".
//
//   blocks=N,N...  bytes of a page's blocks in turn     packet=N  bytes of a bulk packet
//   joined         a block behind its header in one packet
//   in-two         device information: its header, then the record
//   sheets=N       in the feeder, each side a chart     both-sides  with charts on their backs
//   reload         the sheets are back when a job has ended
//   empty          nothing lies on the glass            serial=S
//
// Throws: std::runtime_error for another word. Thread rule: pure function.
#pragma once

#include <string>

#include "sim/DeviceOptions.h"

namespace vox::test {

sim::DeviceOptions UsbShape(const std::string& words);

}  // namespace vox::test
