#include "vox/SearchOnline.h"

#include <chrono>
#include <functional>
#include <new>
#include <optional>
#include <thread>
#include <vector>

#include "vox/DevicesManager.h"
#include "vox/drivers/net/NetworkComm/tvr302udp.h"
#include "vox/drivers/net/search.h"
#include "vox/drivers/net/searchping.h"
#include "vox/drivers/usb/UsbSearch.h"
#include "vox/platform/FileDescriptor.h"
#include "vox/platform/Mutex.h"
#include "vox/platform/Threads.h"

namespace vox {
namespace {

constexpr std::size_t ONLINE_THREADS = 64;               // devices that are asked at the same time
constexpr std::chrono::milliseconds ONLINE_CANCEL(100);  // between two looks at the delegate

// online_test asks devices at the same time whether they are on line, and tells it in their order.
class online_test {
 public:
  using question = std::function<bool(const DeviceInfo&)>;

  online_test(const DeviceInfoArray& list, question what)
      : devices(list), is_online(std::move(what)), answers(list.size()) {
    has_thread = StartThread(&threads, [this] { ask_all(); });
  }
  // The devices that have not answered are not waited for.
  ~online_test() {
    cancelled.Raise();
    for (std::thread& thread : threads) thread.join();
  }
  online_test(const online_test&) = delete;
  online_test& operator=(const online_test&) = delete;

  // wait gives the answer of one device; nothing when the delegate is cancelled first.
  std::optional<bool> wait(std::size_t index, CancelDelegate* delegate) VOX_EXCLUDES(mutex) {
    if (is_cancelled(delegate)) return std::nullopt;
    if (!has_thread) return answers_question(devices[index]);
    MutexLock lock(mutex);
    while (!answers[index]) {
      answered.WaitFor(lock, ONLINE_CANCEL);
      if (!answers[index] && is_cancelled(delegate)) return std::nullopt;
    }
    return answers[index];
  }

 private:
  void ask_all() {
    RunTogether(devices.size(), ONLINE_THREADS, [this](std::size_t index) { ask(index); });
  }

  void ask(std::size_t index) VOX_EXCLUDES(mutex) {
    const NetInterrupt hurry(cancelled.Get(), 0);
    const bool online = !cancelled.IsRaised() && answers_question(devices[index]);
    const MutexLock lock(mutex);
    answers[index] = online;
    answered.NotifyOne();
  }

  // A device that there is no memory to ask is off.
  bool answers_question(const DeviceInfo& device) const try {
    return is_online(device);
  } catch (const std::bad_alloc&) {
    return false;
  }

  const DeviceInfoArray devices;
  const question is_online;
  EventFd cancelled;
  std::vector<std::thread> threads;  // one, that starts the others
  bool has_thread = false;           // whether that one could be had

  Mutex mutex;
  Condition answered;
  std::vector<std::optional<bool>> answers VOX_GUARDED_BY(mutex);
};

}  // namespace

DeviceInfoDictionary searchDevices(CancelDelegate* delegate, int kinds) {
  DeviceInfoDictionary devices;
  if ((kinds & SEARCH_NETWORK) != 0) devices = searchNetworkDevices(delegate, nullptr);
  if ((kinds & SEARCH_USB) == 0) return devices;
  DeviceInfoDictionary attached = searchUsbDevices(delegate, 0);
  attached.merge(devices);  // of two with one key the attached device stays
  return attached;
}

void DevicesManager::searchAllDevices(CancelDelegate* delegate) {
  appendDevices(vox::searchDevices(delegate, SEARCH_ALL));
}

void DevicesManager::searchUsbDevices(CancelDelegate* delegate) {
  appendDevices(vox::searchDevices(delegate, SEARCH_USB));
}

bool DevicesManager::searchNetworkDevices(CancelDelegate* delegate) {
  appendDevices(vox::searchDevices(delegate, SEARCH_NETWORK));
  return true;
}

bool DevicesManager::searchDevices(CancelDelegate* delegate) {
  searchAllDevices(delegate);
  return true;
}

DeviceInfoArray DevicesManager::filterOnlineDevicesCancelDelegate(const DeviceInfoArray& devices,
                                                                  CancelDelegate* delegate) const
    try {
  const auto is_online = [this](const DeviceInfo& info) {
    return isDeviceOnline(info->String(kDeviceIdKey));
  };
  DeviceInfoArray online, network;
  for (const DeviceInfo& info : devices) {
    if (is_cancelled(delegate)) break;
    if (info == nullptr) continue;
    if (is_device_of_type(*info, kDeviceTypeNetwork)) {
      network.push_back(info);
    } else if (is_online(info)) {
      online.push_back(info);
    }
  }
  const DeviceInfoArray alive = filterWithNetworkPing(network, delegate);
  online_test test(alive, is_online);
  for (std::size_t i = 0; i < alive.size(); ++i) {
    const std::optional<bool> answer = test.wait(i, delegate);
    if (!answer) break;
    if (*answer) online.push_back(alive[i]);
  }
  return online;
} catch (const std::bad_alloc&) {
  return {};
}

}  // namespace vox
