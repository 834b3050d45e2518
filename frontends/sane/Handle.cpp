#include "frontends/sane/Handle.h"

#include "frontends/sane/Log.h"
#include "tools/vox/Failure.h"

namespace vox::sane {

namespace {

SANE_Parameters ParametersOf(const cli::PageFormat& page) {
  SANE_Parameters parameters{};
  parameters.format = page.bits == 24 ? SANE_FRAME_RGB : SANE_FRAME_GRAY;
  parameters.last_frame = SANE_TRUE;
  parameters.bytes_per_line = static_cast<SANE_Int>(page.LineBytes());
  parameters.pixels_per_line = static_cast<SANE_Int>(page.width);
  parameters.lines = static_cast<SANE_Int>(page.height);
  parameters.depth = page.bits == 1 ? 1 : 8;
  return parameters;
}

unsigned BitsOf(cli::Mode mode) {
  return mode == cli::Mode::kLineart ? 1 : mode == cli::Mode::kGray ? 8 : 24;
}

}  // namespace

Handle::Handle(const std::string& name, Devices& devices, const JobTimes& times)
    : scanner_(name, devices), options_(scanner_.What()), job_(scanner_, times) {}

SANE_Status Handle::Control(SANE_Int option, SANE_Word action, void* value, SANE_Int* info) {
  SANE_Int what = 0;
  if (info != nullptr) *info = 0;
  if (action == SANE_ACTION_GET_VALUE) return options_.Get(option, value);
  if (action != SANE_ACTION_SET_VALUE || job_.IsOpen()) return SANE_STATUS_INVAL;
  const SANE_Status status = options_.Set(option, value, &what);
  if (info != nullptr) *info = what;
  return status;
}

SANE_Status Handle::Parameters(SANE_Parameters* into) const {
  if (into == nullptr) return SANE_STATUS_INVAL;
  try {
    *into = ParametersOf(job_.IsOpen() ? plan_.page : options_.Plan().page);
  } catch (const cli::Failure&) {
    *into = ParametersOf({0, 0, BitsOf(options_.Values().mode), 0, 0});
  }
  return SANE_STATUS_GOOD;
}

SANE_Status Handle::Start() {
  if (job_.IsOpen()) return SANE_STATUS_INVAL;
  plan_ = options_.Plan();
  waits_ = true;
  Log(3, "start of %u x %u pixels", plan_.page.width, plan_.page.height);
  return job_.Start(options_.Values(), plan_);
}

SANE_Status Handle::Read(SANE_Byte* data, SANE_Int max_length, SANE_Int* length) {
  if (length != nullptr) *length = 0;
  if (data == nullptr || length == nullptr || max_length < 0) return SANE_STATUS_INVAL;
  std::size_t got = 0;
  const SANE_Status status = job_.Read({data, static_cast<std::size_t>(max_length)}, waits_, &got);
  *length = static_cast<SANE_Int>(got);
  return status;
}

SANE_Status Handle::SetIoMode(bool non_blocking) {
  if (!job_.IsOpen()) return SANE_STATUS_INVAL;
  waits_ = !non_blocking;
  return SANE_STATUS_GOOD;
}

SANE_Status Handle::SelectFd(SANE_Int* fd) const {
  if (fd == nullptr || !job_.IsOpen()) return SANE_STATUS_INVAL;
  *fd = job_.ReadyFd();
  return SANE_STATUS_GOOD;
}

}  // namespace vox::sane
