#include "sim/usbbus/UsbBus.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include <poll.h>
#include <sys/stat.h>
#include <umockdev.h>
#include <unistd.h>

#include "sim/usbbus/MonitorSend.h"
#include "sim/usbbus/UsbNode.h"
#include "sim/usbbus/UsbText.h"

namespace vox::sim {
namespace {

constexpr int kGreatestBus = 255, kGreatestPort = 15;
constexpr int kGreatestAddress = 127;
constexpr std::size_t kGreatestDepth = 6;  // hubs between, and the device
constexpr std::size_t kGreatestPacket = 1024;

using NodePtr = std::shared_ptr<UsbNode>;

void Check(const UsbDescription& description) {
  const auto& ports = description.ports;
  bool fits = description.bus > 0 && description.bus <= kGreatestBus && !ports.empty() &&
              ports.size() <= kGreatestDepth;
  for (const int port : ports) fits = fits && port > 0 && port <= kGreatestPort;
  for (const UsbInterface& interface : description.interfaces) {
    for (const UsbEndpoint& endpoint : interface.endpoints) {
      fits = fits && endpoint.packet > 0 && endpoint.packet <= kGreatestPacket;
    }
  }
  if (!fits) throw std::runtime_error("no USB device is like this");
}

// What umockdev's objects hold of a node; it is given back when they let go of it.
void* Held(const NodePtr& node) {
  return new NodePtr(node);
}
NodePtr& NodeOf(void* held) {
  return *static_cast<NodePtr*>(held);
}
void LetGo(void* held, GClosure*) {
  delete static_cast<NodePtr*>(held);
}

gboolean OnIoctl(UMockdevIoctlBase*, UMockdevIoctlClient* client, void* held) {
  return NodeOf(held)->OnIoctl(client) ? TRUE : FALSE;
}

// Of umockdev 0.17 neither client-vanished nor notify::connected says that a program let go of a
// node; its object's end does.
void OnGone(void* held, GObject* client) {
  NodeOf(held)->OnGone(client);
  LetGo(held, nullptr);
}
void OnConnected(UMockdevIoctlBase*, UMockdevIoctlClient* client, void* held) {
  g_object_weak_ref(G_OBJECT(client), OnGone, Held(NodeOf(held)));
}

template <class Handler>
void OnSignal(UMockdevIoctlBase* base, const char* signal, Handler handler, const NodePtr& node) {
  g_signal_connect_data(base, signal, G_CALLBACK(handler), Held(node), LetGo, GConnectFlags{});
}

}  // namespace

struct UsbBus::Testbed {
  Testbed() : bed(umockdev_testbed_new()) {
    if (umockdev_in_mock_environment()) return;
    g_object_unref(bed);
    throw std::runtime_error("an emulated bus needs LD_PRELOAD=libumockdev-preload.so.0");
  }
  ~Testbed() {
    for (const auto& [path, base] : handlers) {
      umockdev_testbed_detach_ioctl(bed, path.c_str(), nullptr);
      g_object_unref(base);
    }
    g_object_unref(bed);
  }
  Testbed(const Testbed&) = delete;
  Testbed& operator=(const Testbed&) = delete;

  std::string Root() const {
    char* const root = umockdev_testbed_get_root_dir(bed);
    std::string text = root;
    g_free(root);
    return text;
  }

  void Add(const std::string& text) {
    GError* error = nullptr;
    if (umockdev_testbed_add_from_string(bed, text.c_str(), &error)) return;
    const std::string why = error != nullptr ? error->message : "umockdev";
    g_clear_error(&error);
    throw std::runtime_error(why);
  }

  void Serve(const std::string& path, const NodePtr& node) {
    UMockdevIoctlBase* const base = umockdev_ioctl_base_new();
    OnSignal(base, "handle-ioctl", OnIoctl, node);
    OnSignal(base, "client-connected", OnConnected, node);
    umockdev_testbed_attach_ioctl(bed, path.c_str(), base, nullptr);
    handlers[path] = base;
  }

  UMockdevTestbed* const bed;
  std::map<std::string, UMockdevIoctlBase*> handlers;  // by node
};

UsbBus::UsbBus()
    : testbed_(std::make_unique<Testbed>()),
      root_(testbed_->Root()),
      pump_([this] { PumpWhenWoken(); }) {
  if (!SendsToMonitorsThatAreGone()) throw std::runtime_error("no sendmsg in this system");
  ::chmod(root_.c_str(), 0777);  // other users take part: each listens for events in there
}

UsbBus::~UsbBus() {
  stop_.Raise();
  pump_.join();
}

std::string UsbBus::Plug(const UsbDescription& description, UsbDeviceModel& model) {
  Check(description);
  std::string name = UsbName(description.bus, description.ports);
  {
    const MutexLock lock(mutex_);
    if (nodes_.contains(name) || hubs_.contains(name)) {
      throw std::runtime_error("a device is at " + name + " already");
    }
    AddHubs(description);
    const int address = ++addresses_[description.bus];
    if (address > kGreatestAddress) throw std::runtime_error("the bus has no address left");
    const auto node = std::make_shared<UsbNode>(description, address, model);
    // The node's ioctls are served before the device is seen.
    testbed_->Serve(UsbNodePath(description.bus, address), node);
    testbed_->Add(UsbDeviceText(description, address));
    node->MakeFile(root_);
    nodes_[name] = node;
  }
  model.OnPlugged([woken = woken_] { woken->Raise(); });
  return name;
}

void UsbBus::AddHubs(const UsbDescription& description) {
  std::vector<int> way;
  for (const int port : description.ports) {
    const std::string name = UsbName(description.bus, way);
    if (nodes_.contains(name)) throw std::runtime_error("the device at " + name + " is no hub");
    if (hubs_.insert(name).second) {
      testbed_->Add(UsbHubText(description.bus, way, ++addresses_[description.bus]));
    }
    way.push_back(port);
  }
}

// The event alone does not always take the device out of the testbed, so it is removed as well; it
// may be gone by then, which umockdev would complain of.
void UsbBus::Unplug(const std::string& name) {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(name);
  if (found == nodes_.end()) return;
  const NodePtr node = found->second;
  nodes_.erase(found);
  gone_.push_back(node);
  node->Unplug();
  const UsbDescription& description = node->Description();
  const std::string path = UsbSysPath(description.bus, description.ports);
  umockdev_testbed_uevent(testbed_->bed, path.c_str(), "remove");
  if (::access((root_ + path).c_str(), F_OK) == 0) {
    umockdev_testbed_remove_device(testbed_->bed, path.c_str());
  }
  ::unlink((root_ + UsbNodePath(description.bus, node->Address())).c_str());
}

void UsbBus::SetNodeMode(const std::string& name, unsigned mode) {
  const std::string path = Node(name);
  if (path.empty() || ::chmod((root_ + path).c_str(), mode) != 0) {
    throw std::runtime_error(name + ": " + std::strerror(errno));
  }
}

bool UsbBus::HasDriver(const std::string& name, std::size_t interface) {
  const NodePtr node = Find(name);
  return node && node->HasDriver(interface);
}

std::string UsbBus::Node(const std::string& name) {
  const NodePtr node = Find(name);
  return node ? UsbNodePath(node->Description().bus, node->Address()) : std::string();
}

UsbBus::NodePtr UsbBus::Find(const std::string& name) {
  const MutexLock lock(mutex_);
  const auto found = nodes_.find(name);
  return found != nodes_.end() ? found->second : nullptr;
}

void UsbBus::PumpWhenWoken() {
  std::array<pollfd, 2> waits = {{{stop_.Get(), POLLIN, 0}, {woken_->Get(), POLLIN, 0}}};
  while (true) {
    if (::poll(waits.data(), waits.size(), -1) < 0 && errno != EINTR) return;
    if (stop_.IsRaised()) return;
    woken_->Clear();
    std::vector<NodePtr> nodes;
    {
      const MutexLock lock(mutex_);
      for (const auto& [name, node] : nodes_) nodes.push_back(node);
    }
    for (const NodePtr& node : nodes) node->Pump();
  }
}

}  // namespace vox::sim
