// What lies on the glass or in the feeder of the device that a program is asked to be.
#include "sim/PaperTray.h"
#include "tools/voxsim/DeviceArguments.h"

namespace vox {

std::string LoadPaper(SimArguments& arguments) {
  sim::PaperWish wish{arguments.page_files, arguments.page_limits, {}, arguments.duplex};
  if (arguments.sheets > 0) wish.sheets = arguments.sheets;
  if (arguments.duplex) arguments.device.duplex = 2;
  return sim::LayPaper(wish, arguments.device).text;
}

}  // namespace vox
