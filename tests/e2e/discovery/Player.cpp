#include "tests/e2e/discovery/Player.h"

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <iterator>
#include <regex>
#include <stdexcept>
#include <thread>

#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/support/Sanitized.h"
#include "vox/drivers/net/reg_all_dev.h"
#include "vox/drivers/net/search.h"

namespace vox {
namespace {

// What may take a certain time may take this many times as long under a sanitizer.
constexpr int kSlack = test::kSanitized ? 5 : 1;
constexpr std::chrono::milliseconds kCancelTime{200 * kSlack};
constexpr std::chrono::seconds kPatience{10};  // for what comes of a command without an answer
constexpr char kDeviceObjects[] =
    "sysName Agent\n"
    "override 1.3.6.1.2.1.2.2.1.6.1 octet_str 0x020000000001\n"
    "override 1.3.6.1.4.1.32473.405.1.1.1.3.0 octet_str QD7200\n"
    "override 1.3.6.1.4.1.32473.405.4.5.1.1.4.1.1 integer 85000\n"
    "override 1.3.6.1.4.1.32473.405.4.5.1.1.5.1.1 integer 117000\n";

std::multiset<std::string> Wanted(const std::vector<std::string>& ids) {
  if (ids == std::vector<std::string>{"none"}) return {};
  return {ids.begin(), ids.end()};
}

class CancelledAfter final : public CancelDelegate {
 public:
  explicit CancelledAfter(std::chrono::milliseconds time)
      : at(std::chrono::steady_clock::now() + time) {}
  bool isCancelled() override { return std::chrono::steady_clock::now() >= at; }
  const std::chrono::steady_clock::time_point at;
};

RegistrationResult ResultOf(const std::string& word) {
  if (word == "Ok") return RegistrationResult_Ok;
  if (word == "Failed") return RegistrationResult_Failed;
  if (word == "InvalidDevice") return RegistrationResult_InvalidDevice;
  throw std::runtime_error("no result " + word);
}

bool YesOrNo(const std::string& word) {
  if (word != "yes" && word != "no") throw std::runtime_error("yes or no, not " + word);
  return word == "yes";
}

}  // namespace

using test::Step;

void Player::AddDevice(const std::string& id,
                       const std::multimap<std::string, std::string>& options) {
  sim::DeviceOptions device;
  device.name = id;
  for (const auto& [key, value] : options) {
    std::string error;
    if (key == "model") {
      device.model = value;
    } else if (key == "name") {
      device.name = value;
    } else if (key == "other") {
      device.other_address = value;
    } else if (key == "fault") {
      error = sim::ParseFault(value, device.faults);
    } else if (key == "object") {
      error = sim::ParseObject(value, device.objects.emplace_back());
    } else {
      error = "no option " + key;
    }
    if (!error.empty()) throw std::runtime_error(error);
  }
  street_->Add(id, device);
}

// Settle sets the neighbourhood up.
void Player::Settle(const std::vector<Step>& steps) {
  std::size_t count = 0;
  for (const Step& step : steps) {
    if (step.verb == "device" || step.verb == "snmpd") ++count;
    if (step.verb == "devices") count += std::stoul(step.words.at(0));
  }
  street_ = std::make_unique<test::Neighbourhood>(count);
  if (!street_->Error().empty()) return;
  for (const Step& step : steps) {
    if (step.verb == "device") AddDevice(step.words.at(0), step.Options(1));
    if (step.verb == "snmpd") street_->AddSnmpd(step.words.at(0), Folder("agent"), kDeviceObjects);
    if (step.verb != "devices") continue;
    for (std::size_t i = 1; i <= std::stoul(step.words.at(0)); ++i) {
      AddDevice("d" + std::to_string(i), {});
    }
  }
}

void Player::Play(const std::vector<Step>& steps) {
  Settle(steps);
  if (!street_->Error().empty()) GTEST_SKIP() << street_->Error();
  const test::Inside inside(street_->Host());
  for (const Step& step : steps) {
    SCOPED_TRACE("line " + std::to_string(step.line) + ": " + step.verb);
    ASSERT_NO_THROW(Do(step));
  }
}

std::string Player::Value(const DeviceInfo& info, const std::string& key) {
  return info ? info->String(key).value_or("no " + key) : "no device";
}

DeviceInfo Player::Known(const std::string& id) {
  const DeviceInfo info = Manager().infoForDevice(street_->MacText(id));
  return info ? info : throw std::runtime_error("not known: " + id);
}

std::string Player::IpOf(const std::string& id) {
  return Value(Known(id), "ip");
}

void Player::Search(const Step& step) {
  const auto options = step.Options(0);
  const auto cancel = options.find("cancel-at");
  CancelledAt delegate(cancel == options.end() ? 1'000'000 : std::stoi(cancel->second));
  found_ = searchNetworkDevices(&delegate, &answered_);
  Manager().appendDevices(found_);
}

void Player::ExpectDevices(const DeviceInfoArray& devices, const Words& ids) {
  std::multiset<std::string> names;
  for (const DeviceInfo& info : devices) names.insert(street_->IdOf(Value(info, "deviceId")));
  EXPECT_EQ(names, Wanted(ids));
}

void Player::CancelledOnline(const Words& words) {
  CancelledAfter delegate{std::chrono::milliseconds(std::stoi(words.at(0)))};
  Manager().filterOnlineDevicesCancelDelegate(Manager().knownDevices(), &delegate);
  EXPECT_GE(Clock::now(), delegate.at) << "it was over before it was cancelled";
  EXPECT_LT(Clock::now() - delegate.at, kCancelTime);
}

void Player::ExpectPacket(const Words& words) {
  const auto bytes = street_->Device(words.at(0)).Events().Last(sim::EventKind::kRegister).bytes;
  const auto mac = street_->Host().Mac();
  std::size_t of_mac = 0;
  std::string seen, wanted;
  char hex[4];
  for (std::size_t i = 1; i < words.size(); ++i) {
    const auto byte = i <= bytes.size() ? bytes[i - 1] : 0;
    std::snprintf(hex, sizeof hex, "%02X ", byte);
    seen += hex;
    if (words[i] == "mm") std::snprintf(hex, sizeof hex, "%02X ", mac.at(of_mac++));
    wanted += words[i] == "ss" || words[i] == "mm" ? std::string(hex) : words[i] + " ";
  }
  EXPECT_EQ(bytes.size(), words.size() - 1);
  EXPECT_EQ(seen, wanted);
}

void Player::ExpectSaved(bool wanted) {
  EXPECT_EQ(SharedText() != settings_before_, wanted);
}

void Player::ExpectTimes(std::size_t wanted, const std::string& text) {
  const std::string said = Text(Path("said"));
  std::size_t times = 0;
  for (std::size_t at = said.find(text); at != said.npos; at = said.find(text, at + 1)) ++times;
  EXPECT_EQ(times, wanted) << text << " in:\n" << said;
}

void Player::ExpectLists(const Words& ids) {
  static const std::regex mac("([0-9a-f]{2}:){5}[0-9a-f]{2}");
  const std::string said = Text(Path("said"));
  std::multiset<std::string> names;
  for (std::sregex_iterator found(said.begin(), said.end(), mac), end; found != end; ++found) {
    names.insert(street_->IdOf(found->str()));
  }
  EXPECT_EQ(names, Wanted(ids)) << said;
}

void Player::ExpectUnasked(const std::string& id) {
  for (const sim::Event& event : street_->Device(id).Events().All()) {
    EXPECT_FALSE(event.time >= begun_ && event.kind == sim::EventKind::kSnmpRequest) << id;
  }
}

// What is not answered may be on its way.
void Player::ExpectBook(const Words& words) {
  const std::size_t wanted = std::stoul(words.at(1));
  const auto end = Clock::now() + kPatience;
  auto book = street_->Device(words.at(0)).Registrations();
  while (book.size() != wanted && Clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    book = street_->Device(words.at(0)).Registrations();
  }
  EXPECT_EQ(book.size(), wanted);
  if (words.size() < 3) return;
  EXPECT_EQ(book.empty() ? "nobody" : book.back().host_name, words[2]);
}

// The calling thread's, and so its children's, also when they run another program.
void Player::DropRawSockets() {
  if (::prctl(PR_CAPBSET_DROP, CAP_NET_RAW, 0, 0, 0) != 0) throw std::runtime_error("prctl");
  __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
  __user_cap_data_struct data[2] = {};
  if (::syscall(SYS_capget, &header, data) != 0) throw std::runtime_error("capget");
  data[0].effective &= ~(1u << CAP_NET_RAW);
  data[0].permitted &= ~(1u << CAP_NET_RAW);
  if (::syscall(SYS_capset, &header, data) != 0) throw std::runtime_error("capset");
}

// Its output goes into a file: a job server that it starts lives on and would keep a pipe open.
void Player::Vox(const Words& words, const std::string& cancelled_at) {
  const std::string said = "'" + Path("said") + "'";
  std::string command = "cd '" + Folder("work") +
                        "' && PATH='" VOX_JOBD_FOLDER "':$PATH timeout 60 '" VOX_PROGRAM "'";
  for (const std::string& word : words) command.append(" '").append(word).append("'");
  command.append(" >").append(said).append(" 2>&1 </dev/null");
  if (!cancelled_at.empty()) {
    Write(Path("said"), "");
    command.append(" & until grep -q '").append(cancelled_at).append("' ").append(said);
    command.append(" || ! kill -0 $!; do sleep 0.01; done; kill $!; wait $!");
  }
  const int ended = std::system(command.c_str());
  status_ = WIFEXITED(ended) ? WEXITSTATUS(ended) : -1;
}

struct Verb {
  using Words = Player::Words;
  // What the host does: it is timed, and the shared settings before it are kept.
  static const std::map<std::string, void (*)(Player&, const Step&)>& Deeds();
  // All else.
  static const std::map<std::string, void (*)(Player&, const Words&)>& Others();
};

const std::map<std::string, void (*)(Player&, const Step&)>& Verb::Deeds() {
  static const std::map<std::string, void (*)(Player&, const Step&)> deeds = {
      {"search", [](Player& p, const Step& s) { p.Search(s); }},
      {"register",
       [](Player& p, const Step& s) {
         EXPECT_EQ(cmd_register(p.IpOf(s.words.at(0)).c_str()), std::stoi(s.words.at(1)));
       }},
      {"on-device",
       [](Player& p, const Step& s) {
         EXPECT_EQ(registerOnDevice(p.Known(s.words.at(0))), ResultOf(s.words.at(1)));
       }},
      {"unregister",
       [](Player& p, const Step& s) {
         EXPECT_EQ(unregisterOnDevice(p.Known(s.words.at(0))), ResultOf(s.words.at(1)));
       }},
      {"register-all", [](Player& p, const Step& s) { p.ExpectDevices(reg_all_dev(), s.words); }},
      {"ping",
       [](Player& p, const Step& s) {
         p.ExpectDevices(filterWithNetworkPing(p.Manager().knownDevices(), nullptr), s.words);
       }},
      {"online",
       [](Player& p, const Step& s) {
         auto& manager = p.Manager();
         const auto known = manager.knownDevices();
         p.ExpectDevices(manager.filterOnlineDevicesCancelDelegate(known, nullptr), s.words);
       }},
      {"cancelled-online", [](Player& p, const Step& s) { p.CancelledOnline(s.words); }},
      {"vox", [](Player& p, const Step& s) { p.Vox(s.words); }},
      {"vox-cancelled",
       [](Player& p, const Step& s) {
         p.Vox({s.words.begin() + 1, s.words.end()}, s.words.at(0));
       }},
      {"restart", [](Player& p, const Step&) { p.Reload(); }}};
  return deeds;
}

const std::map<std::string, void (*)(Player&, const Verb::Words&)>& Verb::Others() {
  using W = const Words&;
  static const std::map<std::string, void (*)(Player&, W)> others = {
      {"device", [](Player&, W) {}},
      {"devices", [](Player&, W) {}},
      {"snmpd", [](Player&, W) {}},
      {"sleep", [](Player& p, W w) { p.street_->Sleep(w.at(0)); }},
      {"wake", [](Player& p, W w) { p.street_->Wake(w.at(0)); }},
      {"unplug",
       [](Player& p, W w) {
         for (const std::string& id : w) p.street_->Unplug(id);
       }},
      {"plug", [](Player& p, W w) { p.street_->Plug(w.at(0)); }},
      {"move", [](Player& p, W w) { p.street_->Move(w.at(0), w.at(1)); }},
      {"rename", [](Player& p, W w) { p.street_->Rename(w.at(0), w.at(1)); }},
      {"ping-groups", [](Player& p, W w) { p.street_->Host().AdmitToPing(w.at(0)); }},
      {"no-shared-folder",
       [](Player& p, W) { std::filesystem::remove_all(p.Path("root/var/lib/Veltronix Vox")); }},
      {"usb", [](Player&, W w) { Player::Store("Device." + w.at(0), *Usb(w.at(0))); }},
      {"no-raw-sockets", [](Player& p, W) { p.DropRawSockets(); }},
      {"push",
       [](Player& p, W w) { p.Known(w.at(0))->Set("isNetworkPushEnabled", YesOrNo(w.at(1))); }},
      {"found",
       [](Player& p, W w) {
         DeviceInfoArray devices;
         for (const auto& [id, info] : p.found_) devices.push_back(info);
         p.ExpectDevices(devices, w);
       }},
      {"answered", [](Player& p, W w) { EXPECT_EQ(p.answered_, YesOrNo(w.at(0))); }},
      {"value",
       [](Player& p, W w) {
         EXPECT_EQ(p.Value(p.found_[p.street_->MacText(w.at(0))], w.at(1)), w.at(2));
       }},
      {"known", [](Player& p, W w) { p.ExpectDevices(p.Manager().knownDevices(), w); }},
      {"stored",
       [](Player& p, W w) {
         const auto stored = p.StoredDevice(p.street_->MacText(w.at(0)));
         EXPECT_EQ(p.Value(stored ? std::make_shared<Dictionary>(*stored) : nullptr, w.at(1)),
                   w.at(2));
       }},
      {"status",
       [](Player& p, W w) { EXPECT_EQ(p.status_, std::stoi(w.at(0))) << p.Text(p.Path("said")); }},
      {"says",
       [](Player& p, W w) {
         EXPECT_NE(p.Text(p.Path("said")).find(w.at(0)), std::string::npos)
             << w.at(0) << " is not in:\n"
             << p.Text(p.Path("said"));
       }},
      {"says-times", [](Player& p, W w) { p.ExpectTimes(std::stoul(w.at(0)), w.at(1)); }},
      {"lists", [](Player& p, W w) { p.ExpectLists(w); }},
      {"unasked",
       [](Player& p, W w) {
         for (const std::string& id : w) p.ExpectUnasked(id);
       }},
      {"file", [](Player& p, W w) { EXPECT_FALSE(p.Text(p.Path("work/" + w.at(0))).empty()); }},
      {"saved", [](Player& p, W w) { p.ExpectSaved(YesOrNo(w.at(0))); }},
      {"book", [](Player& p, W w) { p.ExpectBook(w); }},
      {"commands",
       [](Player& p, W w) {
         const auto& events = p.street_->Device(w.at(0)).Events();
         EXPECT_EQ(events.Count(sim::EventKind::kRegister), std::stoul(w.at(1)));
       }},
      {"packet", [](Player& p, W w) { p.ExpectPacket(w); }},
      {"less-than",
       [](Player& p, W w) {
         EXPECT_LT(p.took_, std::chrono::milliseconds(kSlack * std::stoi(w.at(0))));
       }},
      {"at-least",
       [](Player& p, W w) { EXPECT_GE(p.took_, std::chrono::milliseconds(std::stoi(w.at(0)))); }}};
  return others;
}

void Player::Do(const Step& step) {
  const auto deed = Verb::Deeds().find(step.verb);
  if (deed == Verb::Deeds().end()) {
    const auto other = Verb::Others().find(step.verb);
    if (other == Verb::Others().end()) throw std::runtime_error("no verb " + step.verb);
    other->second(*this, step.words);
    return;
  }
  settings_before_ = SharedText();
  begun_ = Clock::now();
  deed->second(*this, step);
  took_ = Clock::now() - begun_;
}

}  // namespace vox
