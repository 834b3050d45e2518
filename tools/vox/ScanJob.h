// ScanJob is one `vox scan`: page after page from the device into files.
//
//   for each page:  open its file -> PrepareScan -> GetScanParam -> StartScan
//                   -> ReadLine x lines, each written -> EndScan -> the file appears
//   until the device says that no page follows, or one page was all that was wanted
//
// A page that ends in an error status leaves no file, and the job is aborted on the device at once.
// Pages that were whole before it are kept, also those of a file that holds many; after a cancel
// such a file does not appear.
//
// Thread rule: the main thread; the device's Abort may come from the cancel watch at any time.
#pragma once

#include <string>
#include <vector>

#include "tools/vox/CancelWatch.h"
#include "tools/vox/Failure.h"
#include "tools/vox/OpenedDevice.h"
#include "tools/vox/PageFiles.h"
#include "tools/vox/Progress.h"
#include "tools/vox/Report.h"
#include "tools/vox/Request.h"
#include "tools/vox/TwainTrace.h"

namespace vox::cli {

class ScanJob {
 public:
  ScanJob(const ScanOptions& options, OpenedDevice& device, CancelWatch& watch);

  // Run throws Failure. What was written is said on standard output.
  void Run();

 private:
  void ScanPages();
  bool ScanPage(unsigned page);  // whether another page follows
  void StartPage(unsigned page);
  void ReadPage(unsigned page);
  void StopAtOnePage();
  void StopJob(CancelWatch::Attachment& attachment);
  void PrintReports();
  [[noreturn]] void FailPage(unsigned page);
  [[noreturn]] void GiveUp(const Failure& failure);

  const ScanOptions& options_;
  OpenedDevice& device_;
  CTwainImageIF& interface_;
  CancelWatch& watch_;
  ScanPlan plan_;
  PageFiles files_;
  Progress progress_;
  TwainTrace trace_;
  bool device_failed_ = false;        // the failure on its way is the device's, not a file's
  std::vector<PageReport> finished_;  // pages whose file is not there yet
};

// RunScan and RunInfo carry a command out. They throw Failure.
void RunScan(const ScanOptions& options);
void RunInfo(const InfoOptions& options);

}  // namespace vox::cli
