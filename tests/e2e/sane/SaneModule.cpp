#include "tests/e2e/sane/SaneModule.h"

#include <stdexcept>

#include <dlfcn.h>

namespace vox::cli::test {

namespace {

template <typename Entry>
void Find(void* library, const char* name, Entry& entry) {
  entry = reinterpret_cast<Entry>(::dlsym(library, name));
  if (entry == nullptr) throw std::runtime_error(std::string("no entry point ") + name);
}

}  // namespace

SaneModule::SaneModule() : library_(::dlopen(SANE_VOX_MODULE, RTLD_NOW | RTLD_LOCAL)) {
  if (library_ == nullptr) throw std::runtime_error(::dlerror());
  Find(library_, "sane_vox_init", init);
  Find(library_, "sane_vox_exit", exit);
  Find(library_, "sane_vox_get_devices", get_devices);
  Find(library_, "sane_vox_open", open);
  Find(library_, "sane_vox_close", close);
  Find(library_, "sane_vox_get_option_descriptor", get_option_descriptor);
  Find(library_, "sane_vox_control_option", control_option);
  Find(library_, "sane_vox_get_parameters", get_parameters);
  Find(library_, "sane_vox_start", start);
  Find(library_, "sane_vox_read", read);
  Find(library_, "sane_vox_cancel", cancel);
  Find(library_, "sane_vox_set_io_mode", set_io_mode);
  Find(library_, "sane_vox_get_select_fd", get_select_fd);
}

SaneModule::~SaneModule() {
  if (library_ != nullptr) ::dlclose(library_);
}

SaneSession::SaneSession(const SaneModule& sane) : sane_(sane) {
  SANE_Int version = 0;
  if (sane.init(&version, nullptr) != SANE_STATUS_GOOD) throw std::runtime_error("no init");
}

SaneScanner::SaneScanner(const SaneModule& sane, const std::string& name) : sane_(sane) {
  const SANE_Status status = sane.open(name.c_str(), &handle_);
  if (status != SANE_STATUS_GOOD)
    throw std::runtime_error(name + " does not open: status " + std::to_string(status));
  if (sane.control_option(handle_, 0, SANE_ACTION_GET_VALUE, &count_, nullptr) != SANE_STATUS_GOOD)
    throw std::runtime_error("no count of options");
  for (SANE_Int i = 1; i < count_; ++i) {
    const SANE_Option_Descriptor* descriptor = sane.get_option_descriptor(handle_, i);
    if (descriptor == nullptr) throw std::runtime_error("option without a descriptor");
    if (descriptor->type != SANE_TYPE_GROUP) index_[descriptor->name] = i;
  }
}

void SaneScanner::Close() {
  if (handle_ != nullptr) sane_.close(handle_);
  handle_ = nullptr;
}

const SANE_Option_Descriptor& SaneScanner::Descriptor(const std::string& name) const {
  return *sane_.get_option_descriptor(handle_, Index(name));
}

SANE_Status SaneScanner::Set(const std::string& name, SANE_Word value, SANE_Int* info,
                             SANE_Word* written) {
  const SANE_Status status =
      sane_.control_option(handle_, Index(name), SANE_ACTION_SET_VALUE, &value, info);
  if (written != nullptr) *written = value;
  return status;
}

SANE_Status SaneScanner::Set(const std::string& name, const std::string& value, SANE_Int* info) {
  std::string text = value;
  text.resize(static_cast<std::size_t>(Descriptor(name).size) + value.size() + 1);
  return sane_.control_option(handle_, Index(name), SANE_ACTION_SET_VALUE, text.data(), info);
}

SANE_Word SaneScanner::Word(const std::string& name) const {
  SANE_Word value = 0;
  if (sane_.control_option(handle_, Index(name), SANE_ACTION_GET_VALUE, &value, nullptr) !=
      SANE_STATUS_GOOD)
    throw std::runtime_error(name + " cannot be read");
  return value;
}

std::string SaneScanner::Text(const std::string& name) const {
  std::vector<char> text(static_cast<std::size_t>(Descriptor(name).size) + 1);
  if (sane_.control_option(handle_, Index(name), SANE_ACTION_GET_VALUE, text.data(), nullptr) !=
      SANE_STATUS_GOOD)
    throw std::runtime_error(name + " cannot be read");
  return text.data();
}

SANE_Parameters SaneScanner::Parameters() const {
  SANE_Parameters parameters{};
  if (sane_.get_parameters(handle_, &parameters) != SANE_STATUS_GOOD)
    throw std::runtime_error("no parameters");
  return parameters;
}

SANE_Status SaneScanner::Read(std::vector<SANE_Byte>& bytes, SANE_Int most) {
  const std::size_t before = bytes.size();
  bytes.resize(before + static_cast<std::size_t>(most));
  SANE_Int length = -1;
  const SANE_Status status = sane_.read(handle_, bytes.data() + before, most, &length);
  if (length < 0 || length > most) throw std::runtime_error("a length that cannot be");
  if (status != SANE_STATUS_GOOD && length != 0)
    throw std::runtime_error("bytes with another status than good");
  bytes.resize(before + static_cast<std::size_t>(length));
  return status;
}

SanePage SaneScanner::Page(SANE_Int most) {
  SanePage page;
  page.started = page.ended = Start();
  if (page.started != SANE_STATUS_GOOD) return page;
  page.parameters = Parameters();
  do {
    const std::size_t before = page.bytes.size();
    page.ended = Read(page.bytes, most);
    if (page.ended == SANE_STATUS_GOOD && page.bytes.size() == before)
      throw std::runtime_error("no byte in blocking mode");
  } while (page.ended == SANE_STATUS_GOOD);
  return page;
}

}  // namespace vox::cli::test
