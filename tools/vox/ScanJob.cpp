#include "tools/vox/ScanJob.h"

#include <cerrno>
#include <chrono>
#include <cstdio>

#include <unistd.h>

#include "tools/vox/KnownDevices.h"
#include "tools/vox/LineReducer.h"
#include "tools/vox/Output.h"
#include "tools/vox/SettingsFailure.h"
#include "tools/voxjobd/Starter.h"
#include "vox/UserPreferences.h"

namespace vox::cli {

namespace {

using Clock = std::chrono::steady_clock;

}  // namespace

ScanJob::ScanJob(const ScanOptions& options, OpenedDevice& device, CancelWatch& watch)
    : options_(options),
      device_(device),
      interface_(device.Interface()),
      watch_(watch),
      plan_(PlanScan(options, device.What())),
      files_(options, watch.Fd()),
      progress_(!options.trace && ::isatty(STDERR_FILENO) == 1),
      trace_(options.trace, options.trace_only && options.json ? PrintOut : TwainTrace::Sink()) {}

void ScanJob::Run() {
  for (const std::string& note : plan_.notes) Note(note);
  CancelWatch::Attachment attachment(watch_, [this] { interface_.Abort(); });
  try {
    trace_.Begin(plan_);
    ScanPages();
    trace_.End();
  } catch (const Failure& failure) {
    StopJob(attachment);
    GiveUp(failure);
  } catch (...) {
    StopJob(attachment);
    throw;
  }
}

void ScanJob::StopJob(CancelWatch::Attachment& attachment) {
  progress_.Clear();
  if (!watch_.Requested()) interface_.Abort();
  attachment.Detach();
}

// The job is stopped on the device; now only whole pages stay.
void ScanJob::GiveUp(const Failure& failure) {
  if (watch_.Requested()) throw CancelledFailure();
  const unsigned kept = files_.PagesKept();
  if (!device_failed_ || kept == 0) throw failure;
  const std::string path = files_.Path() == "-" ? "standard output" : CleanText(files_.Path());
  files_.Drop();
  files_.Finish();
  PrintReports();
  throw Failure(failure.Status(), std::string(failure.what()) + "; the " + std::to_string(kept) +
                                      " page(s) before are in " + path);
}

void ScanJob::ScanPages() {
  unsigned page = 1;
  while (ScanPage(page) && options_.batch) ++page;
  // A cancel that came behind the last page is too late, unless that page's file is still to come.
  if (files_.PagesKept() > 0 && watch_.Requested()) throw CancelledFailure();
  files_.Finish();
  watch_.Finish();
  PrintReports();
}

void ScanJob::StopAtOnePage() {
  progress_.Clear();
  Note("more pages wait on the device; --batch takes them all");
  interface_.Abort();
}

bool ScanJob::ScanPage(unsigned page) {
  if (watch_.Requested()) throw CancelledFailure();
  files_.Open(page);
  progress_.Show(page, 0, plan_.page.height);  // the device may take a minute to begin
  const Clock::time_point start = Clock::now();
  trace_.Page();
  StartPage(page);
  ReadPage(page);
  interface_.EndScan();
  // Asked before the cancel is: an abort says that no page follows.
  const bool more = interface_.IsNextPageExist();
  if (watch_.Requested() || interface_.GetIfErrorStatus() != IF_ERR_STS_NONE) FailPage(page);
  progress_.Clear();
  trace_.EndPage();
  const std::string path = files_.Path();
  files_.End();
  finished_.push_back({page, path, options_.format, options_.turned,
                       std::chrono::duration<double>(Clock::now() - start).count()});
  if (files_.PagesKept() == 0) PrintReports();
  if (more && !options_.batch) StopAtOnePage();
  return more;
}

void ScanJob::StartPage(unsigned page) {
  plan_.request.dwPageNumber = page;
  if (!interface_.PrepareScan(plan_.request, page == 1, options_.preview)) FailPage(page);
  interface_.GetScanParam();
  if (!device_.IsVirtual() && device_.AtUsb() == nullptr) {
    const JobServerPresence server = EnsureJobServer();
    if (!server.running)
      throw Failure(server.forbidden ? ExitStatus::kNoPermission : ExitStatus::kIoError,
                    "cannot start the job server: " + CleanText(server.error) +
                        "; put that right and try again");
  }
  if (!interface_.StartScan(options_.preview)) FailPage(page);
}

void ScanJob::ReadPage(unsigned page) {
  ImageWriter& writer = files_.Writer();
  writer.BeginPage(plan_.page);
  LineReducer reducer(plan_.reduction, plan_.threshold, plan_.page.width);
  std::vector<std::uint8_t> line(plan_.request.dwLineSize);
  for (std::uint32_t y = 0; y < plan_.page.height; ++y) {
    // A status beside a line means that the line was made up: the device is lost.
    if (interface_.ReadLine(line.data()) != 0 || interface_.GetIfErrorStatus() != IF_ERR_STS_NONE)
      FailPage(page);
    writer.WriteLine(reducer.Reduce(line));
    progress_.Show(page, y + 1, plan_.page.height);
    trace_.Lines(y + 1, y + 1 == plan_.page.height);
  }
}

void ScanJob::FailPage(unsigned page) {
  if (watch_.Requested()) trace_.Cancel();
  if (watch_.Requested()) throw CancelledFailure();
  trace_.Fail(interface_.GetIfErrorStatus());
  device_failed_ = true;
  const std::string what = page == 1 ? "scan" : "scan page " + std::to_string(page);
  throw device_.Trouble(what, interface_.GetIfErrorStatus());
}

void ScanJob::PrintReports() {
  for (const PageReport& page : finished_) {
    if (options_.output != "-" && !options_.trace_only)
      PrintOut(options_.json ? PageJson(page, plan_) : PageWords(page, plan_));
  }
  finished_.clear();
}

namespace {

// A device that is named by its address counts as used, too, when it is the one remembered there.
DeviceInfo RecordOf(const OpenedDevice& device) {
  if (device.Remembered() != nullptr || device.AtUsb() != nullptr) return device.Remembered();
  const DeviceInfoArray there = RememberedAt(device.Address());
  return there.size() == 1 ? there.front() : nullptr;
}

void RememberUse(const OpenedDevice& device) {
  if (device.IsVirtual()) return;
  const DeviceInfo known = RecordOf(device);
  if (known == nullptr) return;
  UserPreferences& preferences = UserPreferences::instance();
  const auto id = known->String(kDeviceIdKey);
  if (preferences.lastScannerDeviceId() == id) return;
  preferences.setLastScannerDeviceId(id);
  const StoreOutcome outcome = preferences.lastOutcome();
  if (outcome.error != 0)
    Note(SettingsFailure(Store::kUser, "keep which device was used last in", outcome.path,
                         outcome.error)
             .what());
}

}  // namespace

void RunScan(const ScanOptions& options) {
  CancelWatch watch;
  const Premises premises(options.device.with, options.duplex, watch);
  OpenedDevice device(options.device.name, premises);
  ScanJob(options, device, watch).Run();
  RememberUse(device);
}

void RunInfo(const InfoOptions& options) {
  CancelWatch watch;
  const Premises premises(options.device.with, false, watch);
  OpenedDevice device(options.device.name, premises);
  const DeviceReport report{device.Name(), device.Address(),    device.IsVirtual(),
                            device.What(), device.Remembered(), device.AtUsb()};
  PrintOut(options.json ? DeviceJson(report) : DeviceWords(report));
  watch.Finish();
}

}  // namespace vox::cli
