// TwainTrace writes down, on standard error, the TWAIN operations that a data source would receive
// from an application for a scan, with the results that it would give, as DSDebugging.h prints
// them:
//
//   Begin           the source is opened, capabilities and the area are set, it is enabled
//   Page            the page is announced and its size asked for
//   Lines           strips of the page are handed over; the last one is the whole page's end
//   EndPage         the transfer is ended
//   Fail, Cancel    what the operation under way ends with; once, the rest is about tidying up
//   End             the source is disabled and closed, in whatever state the scan is
//
// With a sink each operation goes there as well, as JSON:
//   {"group":1,"attribute":1,"message":6,"capability":257,"result":0,"condition":0}
//
// Thread rule: one thread at a time.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "tools/vox/Request.h"

namespace vox::cli {

class TwainTrace {
 public:
  using Sink = std::function<void(const std::string&)>;  // takes one line of JSON

  // Off, nothing is written. `sink` may be empty.
  explicit TwainTrace(bool on, Sink sink = {}) : on_(on), sink_(std::move(sink)) {}
  TwainTrace(const TwainTrace&) = delete;
  TwainTrace& operator=(const TwainTrace&) = delete;
  ~TwainTrace();  // ends it; what cannot be written then is left out

  void Begin(const ScanPlan& plan);
  void Page();
  // Lines tells that so many lines of the page have been read; `whole` that it was the last one.
  void Lines(std::uint32_t lines, bool whole);
  void EndPage();
  // `status` is the interface error status, 0 to 8.
  void Fail(std::uint32_t status);
  void Cancel();
  void End();

 private:
  struct Operation;
  void Do(const Operation& operation);
  void SetCapabilities(const ScanPlan& plan);
  std::uint32_t LinesOfStrip() const;

  const bool on_;
  const Sink sink_;
  bool begun_ = false;
  bool page_ = false;             // a page is under way
  std::uint32_t line_size_ = 1;   // bytes
  std::uint32_t lines_told_ = 0;  // of the page, in strips
};

}  // namespace vox::cli
