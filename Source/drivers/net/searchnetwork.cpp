#include <atomic>
#include <cstring>
#include <deque>
#include <memory>
#include <new>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/drivers/net/NetworkComm/tvr302udpsnmp.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/net/searchdevice.h"
#include "vox/platform/Mutex.h"
#include "vox/platform/Threads.h"

namespace vox {
namespace {

constexpr std::int32_t SEARCH_ANSWERS = 256;  // that count
constexpr std::int32_t SEARCH_SECONDS = 1;    // of quiet that end the query
constexpr std::size_t SEARCH_THREADS = 64;    // devices that are asked at the same time

struct records_deleter {
  std::int32_t count;
  void operator()(snmp_simple_pdu* pdus) const { WNXSNMP_FreeSnmpSimplePdu(count, pdus); }
};
using records_owner = std::unique_ptr<snmp_simple_pdu, records_deleter>;

records_owner new_records(std::int32_t count) {
  return records_owner(WNXSNMP_MallocSnmpSimplePdu(count, 1), records_deleter{count});
}

// found_device is a supported device that has answered.
struct found_device {
  std::string ip, model;
  DeviceInfo info = nullptr;  // once it is known
  bool failed = false;        // to be known
};

// descriptor_watch tells at its end whether sockets were refused meanwhile.
class descriptor_watch {
 public:
  explicit descriptor_watch(const tagNETSEARCH& what) : how(what) {}
  ~descriptor_watch() {
    if (how.pbNoDescriptors && netDescriptorsRefused != before) *how.pbNoDescriptors = true;
  }
  descriptor_watch(const descriptor_watch&) = delete;
  descriptor_watch& operator=(const descriptor_watch&) = delete;

 private:
  const tagNETSEARCH& how;
  const std::uint32_t before = netDescriptorsRefused;
};

void note_no_memory(const tagNETSEARCH& how) {
  if (how.pbNoMemory) *how.pbNoMemory = true;
}

// device_search asks the devices of a search, in threads of its own, while more answers come in.
// Devices are numbered as they answered.
class device_search {
 public:
  device_search(CancelDelegate* who, const tagNETSEARCH& what) : delegate(who), how(what) {}
  ~device_search() { close(); }
  device_search(const device_search&) = delete;
  device_search& operator=(const device_search&) = delete;

  // take gives whether the search goes on after an answer.
  bool take(const snmp_simple_pdu& answer) VOX_EXCLUDES(mutex) try {
    if (is_cancelled(delegate)) return false;
    const auto model = answered_model(answer);
    if (model && is_qd7xxx(model->c_str())) add(dotted_text(answer.IPAddress.ulAddress), *model);
    return true;
  } catch (const std::bad_alloc&) {
    no_memory = true;
    return true;  // the answer is dropped
  }

  // finish waits until every device has been asked.
  DeviceInfoDictionary finish() VOX_EXCLUDES(mutex) {
    close();
    if (no_memory) note_no_memory(how);
    const MutexLock lock(mutex);
    DeviceInfoDictionary known;
    for (const found_device& device : devices) {
      if (device.info) known[*device.info->String(kDeviceIdKey)] = device.info;
    }
    return known;
  }

 private:
  // add has a device asked, unless the same answer came before and there is hope for it.
  void add(const std::string& ip, const std::string& model) VOX_EXCLUDES(mutex) {
    const MutexLock lock(mutex);
    for (const found_device& device : devices) {
      if (device.ip == ip && device.model == model && !device.failed) return;
    }
    devices.push_back({ip, model});
    arrived.NotifyOne();
    if (devices.size() - asked > idle && threads.size() < SEARCH_THREADS) {
      StartThread(&threads, [this] { ask_devices(); });
    }
  }

  // close has the waiting devices asked, by this thread too, and ends the threads.
  void close() VOX_EXCLUDES(mutex) {
    {
      const MutexLock lock(mutex);
      closed = true;
      arrived.NotifyAll();
    }
    ask_devices();
    for (std::thread& thread : threads) thread.join();
    threads.clear();
  }

  void ask_devices() VOX_EXCLUDES(mutex) {
    while (found_device* const device = next_device()) ask(device);
  }

  // next_device waits for a device to ask; null when no more will come.
  found_device* next_device() VOX_EXCLUDES(mutex) {
    MutexLock lock(mutex);
    ++idle;
    while (asked == devices.size() && !closed) arrived.Wait(lock);
    --idle;
    if (asked == devices.size()) return nullptr;
    return &devices[asked++];
  }

  void ask(found_device* device) VOX_EXCLUDES(mutex) try {
    const DeviceInfo info = info_of(*device);
    {
      const MutexLock lock(mutex);
      device->info = info;
      device->failed = info == nullptr;
    }
    if (info) tell(info);
  } catch (const std::bad_alloc&) {  // the device is known, but not told of
    no_memory = true;
  }

  // A device's ip and model do not change once it is in the list, so they are read unlocked.
  DeviceInfo info_of(const found_device& device) try {
    DeviceInfo info;
    ask_device(device.ip, device.model, &info, how.nStopFd);
    return info;
  } catch (const std::bad_alloc&) {
    no_memory = true;
    return nullptr;
  }

  void tell(const DeviceInfo& info) VOX_EXCLUDES(telling) {
    const MutexLock lock(telling);
    if (how.found && told.insert(*info->String(kDeviceIdKey)).second) how.found(info);
  }

  CancelDelegate* const delegate;
  const tagNETSEARCH& how;

  std::vector<std::thread> threads;  // the searching thread's
  std::atomic<bool> no_memory{false};

  Mutex mutex;
  Condition arrived;
  std::deque<found_device> devices VOX_GUARDED_BY(mutex);  // elements stay where they are
  std::size_t asked VOX_GUARDED_BY(mutex) = 0;             // devices[0, asked) are no more waiting
  std::size_t idle VOX_GUARDED_BY(mutex) = 0;              // threads that wait for a device
  bool closed VOX_GUARDED_BY(mutex) = false;

  Mutex telling;
  std::set<std::string> told VOX_GUARDED_BY(telling);
};

}  // namespace

DeviceInfoDictionary searchNetworkDevices(CancelDelegate* delegate, bool* success) {
  return searchNetworkDevices(delegate, success, tagNETSEARCH());
}

DeviceInfoDictionary searchNetworkDevices(CancelDelegate* delegate, bool* success,
                                          const tagNETSEARCH& how) try {
  if (success) *success = false;
  const descriptor_watch descriptors(how);
  const records_owner request = new_records(1), answers = new_records(SEARCH_ANSWERS);
  if (!request || !answers) throw std::bad_alloc();
  request->byCommand = WNXSNMP_PDU_GETNEXT;
  std::memcpy(request->szComName, "public", sizeof "public");
  std::memcpy(request->lpSnmpSimpleVal[0].szOid, OID_MODEL_COLUMN, sizeof OID_MODEL_COLUMN);
  device_search search(delegate, how);
  std::optional<NetInterrupt> stop;
  if (how.nStopFd >= 0) stop.emplace(how.nStopFd, 0);
  std::int32_t count = 0;
  const bool answered =
      multi_snmp_request_each(
          how.pszAddress, SEARCH_SECONDS, request.get(), answers.get(), SEARCH_ANSWERS, &count,
          [&search](const snmp_simple_pdu& answer) { return search.take(answer); }) == NET_OK;
  stop.reset();
  if (success) *success = answered;
  return search.finish();
} catch (const std::bad_alloc&) {
  note_no_memory(how);
  return {};
}

}  // namespace vox
