// The calls of the SANE standard, version 1.0 (https://sane-project.gitlab.io/standard/), under the
// names that libsane looks for, and under their plain names for programs that link to this backend
// alone. Nothing here or below calls one of them: another backend's may answer.
//
// Exceptions end here. One that unwinds a cancelled thread is none of those that are caught.
#include <cstring>
#include <exception>
#include <new>
#include <system_error>

#include <sane/sane.h>

#include "frontends/sane/Backend.h"
#include "frontends/sane/Log.h"
#include "frontends/sane/Status.h"
#include "tools/vox/Failure.h"

namespace {

using vox::sane::Backend;
using vox::sane::Handle;

constexpr int kBuild = 0;

template <typename Call>
SANE_Status Guard(const char* what, const Call& call) {
  try {
    return call();
  } catch (const vox::cli::Failure& failure) {
    vox::sane::Log(1, "%s: %s", what, failure.what());
    return vox::sane::StatusOf(failure);
  } catch (const std::bad_alloc&) {
    return SANE_STATUS_NO_MEM;
  } catch (const std::system_error& error) {
    vox::sane::Log(1, "%s: %s", what, error.what());
    return SANE_STATUS_NO_MEM;  // of threads or descriptors: nothing else here throws it
  } catch (const std::exception& error) {
    vox::sane::Log(1, "%s: %s", what, error.what());
    return SANE_STATUS_IO_ERROR;
  }
}

// C lets a program give any number for an action or a status; C++ may not even read one that has no
// name.
template <typename Enum>
SANE_Word NumberOf(const Enum& named) {
  SANE_Word number = 0;
  static_assert(sizeof number == sizeof named);
  std::memcpy(&number, &named, sizeof number);
  return number;
}

// Of an open handle; INVAL for anything else.
template <typename Call>
SANE_Status OfHandle(const char* what, SANE_Handle handle, const Call& call) {
  return Guard(what, [&] {
    Handle* const open = Backend::Find(handle);
    return open != nullptr ? call(*open) : SANE_STATUS_INVAL;
  });
}

}  // namespace

extern "C" {

#define VOX_SANE_ENTRY __attribute__((visibility("default")))
#define VOX_SANE_ALIAS(name) __attribute__((visibility("default"), alias(#name)))

VOX_SANE_ENTRY SANE_Status sane_vox_init(SANE_Int* version_code, SANE_Auth_Callback /*authorize*/) {
  return Guard("sane_init", [&] {
    if (version_code != nullptr)
      *version_code = SANE_VERSION_CODE(SANE_CURRENT_MAJOR, SANE_CURRENT_MINOR, kBuild);
    Backend::Begin();
    return SANE_STATUS_GOOD;
  });
}

VOX_SANE_ENTRY void sane_vox_exit() {
  Guard("sane_exit", [] {
    Backend::End();
    return SANE_STATUS_GOOD;
  });
}

VOX_SANE_ENTRY SANE_Status sane_vox_get_devices(const SANE_Device*** device_list,
                                                SANE_Bool local_only) {
  return Guard("sane_get_devices", [&] {
    Backend* const backend = Backend::Current();
    if (backend == nullptr || device_list == nullptr) return SANE_STATUS_INVAL;
    *device_list = backend->List(local_only != SANE_FALSE);
    return SANE_STATUS_GOOD;
  });
}

VOX_SANE_ENTRY SANE_Status sane_vox_open(SANE_String_Const name, SANE_Handle* handle) {
  return Guard("sane_open", [&] {
    Backend* const backend = Backend::Current();
    if (backend == nullptr || handle == nullptr) return SANE_STATUS_INVAL;
    *handle = backend->Open(name != nullptr ? name : "");
    return SANE_STATUS_GOOD;
  });
}

VOX_SANE_ENTRY void sane_vox_close(SANE_Handle handle) {
  Guard("sane_close", [&] {
    Backend::Close(handle);
    return SANE_STATUS_GOOD;
  });
}

VOX_SANE_ENTRY const SANE_Option_Descriptor* sane_vox_get_option_descriptor(SANE_Handle handle,
                                                                            SANE_Int option) {
  const Handle* const open = Backend::Find(handle);
  return open != nullptr ? open->Descriptor(option) : nullptr;
}

VOX_SANE_ENTRY SANE_Status sane_vox_control_option(SANE_Handle handle, SANE_Int option,
                                                   SANE_Action action, void* value,
                                                   SANE_Int* info) {
  return OfHandle("sane_control_option", handle, [&](Handle& open) {
    return open.Control(option, NumberOf(action), value, info);
  });
}

VOX_SANE_ENTRY SANE_Status sane_vox_get_parameters(SANE_Handle handle, SANE_Parameters* params) {
  return OfHandle("sane_get_parameters", handle,
                  [&](Handle& open) { return open.Parameters(params); });
}

VOX_SANE_ENTRY SANE_Status sane_vox_start(SANE_Handle handle) {
  return OfHandle("sane_start", handle, [](Handle& open) { return open.Start(); });
}

VOX_SANE_ENTRY SANE_Status sane_vox_read(SANE_Handle handle, SANE_Byte* data, SANE_Int max_length,
                                         SANE_Int* length) {
  if (length != nullptr) *length = 0;
  return OfHandle("sane_read", handle,
                  [&](Handle& open) { return open.Read(data, max_length, length); });
}

VOX_SANE_ENTRY void sane_vox_cancel(SANE_Handle handle) {
  Handle* const open = Backend::Find(handle);
  if (open != nullptr) open->Cancel();
}

VOX_SANE_ENTRY SANE_Status sane_vox_set_io_mode(SANE_Handle handle, SANE_Bool non_blocking) {
  return OfHandle("sane_set_io_mode", handle,
                  [&](Handle& open) { return open.SetIoMode(non_blocking != SANE_FALSE); });
}

VOX_SANE_ENTRY SANE_Status sane_vox_get_select_fd(SANE_Handle handle, SANE_Int* fd) {
  return OfHandle("sane_get_select_fd", handle, [&](Handle& open) { return open.SelectFd(fd); });
}

VOX_SANE_ENTRY SANE_String_Const sane_vox_strstatus(SANE_Status status) {
  return vox::sane::StatusText(NumberOf(status));
}

VOX_SANE_ALIAS(sane_vox_init) SANE_Status sane_init(SANE_Int*, SANE_Auth_Callback);
VOX_SANE_ALIAS(sane_vox_exit) void sane_exit();
VOX_SANE_ALIAS(sane_vox_get_devices) SANE_Status sane_get_devices(const SANE_Device***, SANE_Bool);
VOX_SANE_ALIAS(sane_vox_open) SANE_Status sane_open(SANE_String_Const, SANE_Handle*);
VOX_SANE_ALIAS(sane_vox_close) void sane_close(SANE_Handle);
VOX_SANE_ALIAS(sane_vox_get_option_descriptor)
const SANE_Option_Descriptor* sane_get_option_descriptor(SANE_Handle, SANE_Int);
VOX_SANE_ALIAS(sane_vox_control_option)
SANE_Status sane_control_option(SANE_Handle, SANE_Int, SANE_Action, void*, SANE_Int*);
VOX_SANE_ALIAS(sane_vox_get_parameters)
SANE_Status sane_get_parameters(SANE_Handle, SANE_Parameters*);
VOX_SANE_ALIAS(sane_vox_start) SANE_Status sane_start(SANE_Handle);
VOX_SANE_ALIAS(sane_vox_read) SANE_Status sane_read(SANE_Handle, SANE_Byte*, SANE_Int, SANE_Int*);
VOX_SANE_ALIAS(sane_vox_cancel) void sane_cancel(SANE_Handle);
VOX_SANE_ALIAS(sane_vox_set_io_mode) SANE_Status sane_set_io_mode(SANE_Handle, SANE_Bool);
VOX_SANE_ALIAS(sane_vox_get_select_fd) SANE_Status sane_get_select_fd(SANE_Handle, SANE_Int*);
VOX_SANE_ALIAS(sane_vox_strstatus) SANE_String_Const sane_strstatus(SANE_Status);

}  // extern "C"
