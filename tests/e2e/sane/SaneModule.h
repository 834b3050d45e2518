// The backend's entry points as a frontend without a loader of its own would find them, and a
// handle with the few steps that tests repeat.
//
//   SaneModule sane;                       // dlopen; ends with dlclose
//   ASSERT_EQ(sane.init(&version, nullptr), SANE_STATUS_GOOD);
//   SaneScanner scanner(sane, "net:127.0.0.2");
//   scanner.Set("mode", "Gray");
//   const SanePage page = scanner.Page();
//
// Thread rule: that of SANE: one thread, cancel aside.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sane/sane.h>

namespace vox::cli::test {

class SaneModule {
 public:
  SaneModule();  // throws std::runtime_error when an entry point is missing
  ~SaneModule();
  SaneModule(const SaneModule&) = delete;
  SaneModule& operator=(const SaneModule&) = delete;

  decltype(&sane_init) init = nullptr;
  decltype(&sane_exit) exit = nullptr;
  decltype(&sane_get_devices) get_devices = nullptr;
  decltype(&sane_open) open = nullptr;
  decltype(&sane_close) close = nullptr;
  decltype(&sane_get_option_descriptor) get_option_descriptor = nullptr;
  decltype(&sane_control_option) control_option = nullptr;
  decltype(&sane_get_parameters) get_parameters = nullptr;
  decltype(&sane_start) start = nullptr;
  decltype(&sane_read) read = nullptr;
  decltype(&sane_cancel) cancel = nullptr;
  decltype(&sane_set_io_mode) set_io_mode = nullptr;
  decltype(&sane_get_select_fd) get_select_fd = nullptr;

  void* Library() const { return library_; }

 private:
  void* library_ = nullptr;
};

// SaneSession is init and exit. Throws when init fails.
class SaneSession {
 public:
  explicit SaneSession(const SaneModule& sane);
  ~SaneSession() { sane_.exit(); }
  SaneSession(const SaneSession&) = delete;
  SaneSession& operator=(const SaneSession&) = delete;

 private:
  const SaneModule& sane_;
};

struct SanePage {
  SANE_Status started = SANE_STATUS_GOOD;
  SANE_Status ended = SANE_STATUS_GOOD;  // EOF of a good page
  SANE_Parameters parameters{};          // after the start
  std::vector<SANE_Byte> bytes;
};

class SaneScanner {
 public:
  SaneScanner(const SaneModule& sane, const std::string& name);  // throws when it does not open
  ~SaneScanner() { Close(); }
  SaneScanner(const SaneScanner&) = delete;
  SaneScanner& operator=(const SaneScanner&) = delete;

  SANE_Handle Handle() const { return handle_; }
  void Close();

  SANE_Int Options() const { return count_; }
  // Index gives the number of an option; throws when there is none of the name.
  SANE_Int Index(const std::string& name) const { return index_.at(name); }
  bool Has(const std::string& name) const { return index_.count(name) != 0; }
  const SANE_Option_Descriptor& Descriptor(const std::string& name) const;

  SANE_Status Set(const std::string& name, SANE_Word value, SANE_Int* info = nullptr,
                  SANE_Word* written = nullptr);
  SANE_Status Set(const std::string& name, const std::string& value, SANE_Int* info = nullptr);
  SANE_Word Word(const std::string& name) const;  // its value
  std::string Text(const std::string& name) const;
  SANE_Parameters Parameters() const;

  SANE_Status Start() { return sane_.start(handle_); }
  void Cancel() { sane_.cancel(handle_); }
  SANE_Status Read(std::vector<SANE_Byte>& bytes, SANE_Int most = 32768);  // appends
  // Page starts and reads to the end, `most` bytes at a time; it does not cancel.
  SanePage Page(SANE_Int most = 32768);

 private:
  const SaneModule& sane_;
  SANE_Handle handle_ = nullptr;
  SANE_Int count_ = 0;
  std::map<std::string, SANE_Int> index_;
};

}  // namespace vox::cli::test
