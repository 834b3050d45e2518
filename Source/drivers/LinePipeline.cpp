#include "vox/drivers/LinePipeline.h"

#include <cstdio>
#include <utility>

#include "vox/DSDebugging.h"
#include "vox/drivers/ScanSession.h"
#include "vox/drivers/TwainImageIF.h"

namespace vox {
namespace {

void report_thread_exception(const char* where) {
  std::fprintf(stderr, "%s: exception\n", where);
}

// run_stage runs the loop of a rescaling thread. Whatever ends it before its last line also ends
// the page, since the client would wait for ever for the lines that are missing.
template <typename Loop>
void run_stage(const char* name, ScanSession& page, Loop loop) {
  try {
    if (page.sizes.depth == 0 || !loop(page)) page.fail(IF_ERR_STS_NONE);
  } catch (...) {
    report_thread_exception(name);
    page.fail(IF_ERR_STS_MEMORY);
  }
}

// scale_line replaces raw line i by its rescaled form. That lies in the same buffer where nothing
// moves, else in the spare one, whose place the raw line takes. False when EndScan has freed it.
bool scale_line(ScanSession& page, std::uint32_t i, LineBuffer& spare) {
  LineBuffer line = page.take_device_line(i);
  if (!line) return false;
  if (page.horizontal.passes_lines()) {
    page.horizontal.pass(line.get());
  } else {
    if (!spare) spare = new_line(page.device_pool.room());
    page.horizontal.run(spare.get(), line.get());
    line.swap(spare);
  }
  page.store_device_line(i, std::move(line));
  page.proc.SData->CurLineReady = static_cast<std::int32_t>(i);
  return true;
}

bool scale_lines(ScanSession& page) {
  LineBuffer spare;
  for (std::uint32_t i = 0; i < page.proc.sinfo.Window.yExtent; ++i) {
    if (page.stopping() || !page.wait(kSemRawLine) || !scale_line(page, i, spare)) return false;
    if (page.stopping() || !page.announce(kSemScaledLine)) return false;
  }
  return true;
}

LineBuffer white_line(ScanSession& page) {
  LineBuffer line = page.client_line();
  page.vertical.white(line.get());
  return line;
}

// pass_line moves a device line to the client as it is.
LineBuffer pass_line(ScanSession& page, std::uint32_t i) {
  if (!waitLine(page.proc.SData, i)) return nullptr;
  LineBuffer line = page.take_device_line(i);
  page.free_device_lines(i);
  return line;
}

// blend_lines adds up the device lines of a span as they come and frees each as soon as it is not
// needed any more, so that a span of any length takes two lines of memory.
LineBuffer blend_lines(ScanSession& page, std::uint32_t j, const LINE_SPAN& span) {
  LineBuffer out = page.client_line();
  page.vertical.begin(j, out.get());
  for (std::uint32_t n = span.lower; n <= span.upper; ++n) {
    if (page.stopping() || !waitLine(page.proc.SData, n)) return nullptr;
    const unsigned char* line = page.device_line(n);
    if (line == nullptr) return nullptr;
    page.vertical.add(line);
    page.free_device_lines(n < span.keep_from ? n : span.keep_from);
  }
  page.vertical.finish();
  page.free_device_lines(span.keep_from);
  return out;
}

LineBuffer make_line(ScanSession& page, std::uint32_t j) {
  const LINE_SPAN span = page.vertical.span(j);
  if (span.white) return white_line(page);
  if (page.vertical.passes_lines()) return pass_line(page, span.upper);
  return blend_lines(page, j, span);
}

bool make_lines(ScanSession& page) {
  for (std::uint32_t j = 0; j < page.proc.sparam.dwImageLength; ++j) {
    if (!page.wait_to_make(j)) return false;
    LineBuffer line = make_line(page, j);
    if (!line) return false;
    page.store_client_line(j, std::move(line));
    page.proc.UData->CurLineReady = static_cast<std::int32_t>(j);
    if (page.stopping() || !page.post(kSemClientLine)) return false;
  }
  return true;
}

// PageEnding lets the transport end the page once, and raises the semaphore in its place when it
// throws instead of doing so.
class PageEnding {
 public:
  explicit PageEnding(CTwainImageIF& dev) : m_dev(dev) {}
  void run(Semaphore& raised) {
    if (std::exchange(m_ran, true)) return;
    try {
      m_dev.DeviceEndScan();
    } catch (...) {
      raised.UpIfNever();
      throw;
    }
  }

 private:
  CTwainImageIF& m_dev;
  bool m_ran = false;
};

// attempt runs one step after an exception; another one is reported and ends there.
template <typename Step>
void attempt(Step step) {
  try {
    step();
  } catch (...) {
    report_thread_exception("data_thread");
  }
}

}  // namespace

// A page that EndScan cut short has not failed: the job's other pages are still wanted.
void data_thread(CTwainImageIF* dev) {
  const WorkerScope scope(*dev);
  PageEnding ending(*dev);
  try {
    const bool read = dev->ReadDataAll();
    const bool cut_short = dev->PageStop() == PAGE_END;
    ending.run(dev->m_semaphore);
    if (!read && !cut_short) {
      DS_LogText("%s:%d:\n", "data_thread", __LINE__);
      dev->CTwainImageIF::Abort();
    }
    dev->settle();
    dev->keep_alive();
  } catch (...) {
    report_thread_exception("data_thread");
    dev->SetIfErrorStatus(IF_ERR_STS_MEMORY);
    attempt([dev] { dev->Abort(); });  // before the page's end, which may forget the job
    attempt([dev, &ending] { ending.run(dev->m_semaphore); });
    dev->multipage = 0;  // the page's end may have found another page
    dev->settle();
  }
}

void imageprocX_thread(__ImageProc* proc) {
  const WorkerScope scope(*proc->dev);
  run_stage("imageprocX_thread", *proc->dev->m_pSession, scale_lines);
}

void imageprocY_thread(__ImageProc* proc) {
  const WorkerScope scope(*proc->dev);
  run_stage("imageprocY_thread", *proc->dev->m_pSession, make_lines);
}

bool waitLine(volatile __DataContainer* data, unsigned int line) {
  const auto ready = [data, line] {
    const std::int32_t newest = data->CurLineReady.load();
    return newest >= 0 && static_cast<unsigned>(newest) >= line;
  };
  while (!ready()) {
    if (wait_semaphore(data->semid.load(), kSemScaledLine) != SemResult::kDone) return false;
  }
  return true;
}

}  // namespace vox
