// Handle is what a frontend gets from sane_open: a scanner, its options, and the pages that are
// scanned with it. One function stands for each call of the standard.
//
// Thread rule: one thread at a time, but for Cancel: see Job.
#pragma once

#include <cstdint>
#include <string>

#include <sane/sane.h>

#include "frontends/sane/Devices.h"
#include "frontends/sane/Job.h"
#include "frontends/sane/Options.h"
#include "frontends/sane/Scanner.h"

namespace vox::sane {

class Handle {
 public:
  // Throws as Scanner, Options and Job do.
  Handle(const std::string& name, Devices& devices, const JobTimes& times = {});
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;

  const SANE_Option_Descriptor* Descriptor(SANE_Int option) const {
    return options_.Descriptor(option);
  }
  // Control: INVAL for a set while a page is open.
  SANE_Status Control(SANE_Int option, SANE_Word action, void* value, SANE_Int* info);

  // Parameters gives those of the page that is open, else an estimate; of an area that is empty, no
  // pixel.
  SANE_Status Parameters(SANE_Parameters* into) const;

  // These throw cli::Failure and std::bad_alloc.
  SANE_Status Start();
  SANE_Status Read(SANE_Byte* data, SANE_Int max_length, SANE_Int* length);
  void Cancel() noexcept { job_.Cancel(); }
  // SetIoMode and SelectFd: INVAL when no page is open.
  SANE_Status SetIoMode(bool non_blocking);
  SANE_Status SelectFd(SANE_Int* fd) const;

  // IsForeign: see Job.
  bool IsForeign() const { return job_.IsForeign(); }

 private:
  Scanner scanner_;
  Options options_;
  cli::ScanPlan plan_;  // of the page that was started last
  bool waits_ = true;   // Read waits for bytes
  Job job_;
};

}  // namespace vox::sane
