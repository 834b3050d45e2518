// ScanClient is one scan interface as an application uses it, whatever the transport, and what its
// pages must be.
//
// Thread rule: a client belongs to one thread, Abort aside.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "sim/Forecast.h"
#include "tests/support/PlainRequest.h"
#include "tests/support/PlainRoad.h"
#include "vox/drivers/ScanRecords.h"

namespace vox::test {

// What a client got of one page.
struct Page {
  bool started = false;
  std::vector<Line> lines;   // as ReadLine gave them, until it failed
  std::uint32_t status = 0;  // interface error status after the page had ended
  bool more = false;         // the device says that another page follows
};

template <class ScanInterface>
class ScanClient {
 public:
  // Reads the device's capabilities at once.
  explicit ScanClient(std::unique_ptr<ScanInterface> interface) : interface_(std::move(interface)) {
    tagSCANDEVINFO capabilities{};
    knows_device_ = interface_->GetDevInfo(&capabilities);
  }

  ScanInterface& Interface() { return *interface_; }
  bool KnowsDevice() const { return knows_device_; }  // the capabilities could be read
  ResolutionRange Range() {
    ResolutionRange range;
    interface_->GetDeviceResolution(&range.x_min, &range.y_min, &range.x_max, &range.y_max);
    return range;
  }
  void Drop() { interface_.reset(); }  // deletes the interface, whatever it is doing

  // Start prepares a page and starts it. ReadLine gives its next line, or none. Finish reads what
  // is left and ends the page; Scan is Start and Finish.
  bool Start(const tagTWSCANPARAM& request, bool preview = false) {
    request_ = request;
    started_ = interface_->PrepareScan(request, std::exchange(first_, false), preview);
    if (!started_) return false;
    interface_->GetScanParam();
    return started_ = interface_->StartScan(preview);
  }
  std::optional<Line> ReadLine() {
    Line line(request_.dwLineSize, 0xA5);
    if (interface_->ReadLine(line.data()) != 0) return std::nullopt;
    return line;
  }
  Page Finish() {
    Page page;
    page.started = started_;
    while (started_ && page.lines.size() < request_.dwImageLength) {
      std::optional<Line> line = ReadLine();
      if (!line) break;
      page.lines.push_back(std::move(*line));
    }
    interface_->EndScan();
    page.status = interface_->GetIfErrorStatus();
    page.more = interface_->IsNextPageExist();
    first_ = !page.more;
    return page;
  }
  Page Scan(const tagTWSCANPARAM& request, bool preview = false) {
    Start(request, preview);
    return Finish();
  }
  // ScanJob scans pages as long as more follow.
  std::vector<Page> ScanJob(const tagTWSCANPARAM& request) {
    std::vector<Page> pages;
    do {
      pages.push_back(Scan(request));
    } while (pages.back().started && pages.back().more);
    return pages;
  }

 private:
  std::unique_ptr<ScanInterface> interface_;
  bool knows_device_ = false;
  bool first_ = true;  // of the job
  bool started_ = false;
  tagTWSCANPARAM request_{};
};

// ExpectedLines gives the client lines that page `page` of a job on the device must become.
std::vector<Line> ExpectedLines(const sim::Forecast& device, const tagTWSCANPARAM& request,
                                const sim::ScanInfo& device_request, std::size_t page);

}  // namespace vox::test
