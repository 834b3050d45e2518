#include "tests/unit/search/Street.h"

#include <arpa/inet.h>

namespace vox::test {
namespace {

constexpr const char* kCrier = "127.0.0.250";

UdpPeer::Script Says(const std::shared_ptr<const sim::SnmpAgent>& agent) {
  return [agent](const Bytes& request) {
    const auto answer = agent->Answer(request);
    return answer ? Answers{Answer(*answer)} : Answers{};
  };
}

}  // namespace

Resident::Resident(std::string address) : address_(std::move(address)) {
  in_addr parsed{};
  inet_pton(AF_INET, address_.c_str(), &parsed);
  const auto last = static_cast<std::uint8_t>(ntohl(parsed.s_addr));
  Model("QD7200").Name("Scanner " + std::to_string(last)).Mac({2, 0, 0, 0, 0, last});
  Says(kWidthOid, sim::IntegerValue(85000)).Says(kHeightOid, sim::IntegerValue(117000));
}

Resident& Resident::Says(const std::string& oid, sim::MibValue value) {
  objects_[oid] = std::move(value);
  return *this;
}
Resident& Resident::Lacks(const std::string& oid) {
  objects_.erase(oid);
  return *this;
}
Resident& Resident::Cries(int times) {
  cries_ = times;
  return *this;
}
Resident& Resident::CriesRaw(Bytes answer) {
  raw_ = std::move(answer);
  return *this;
}
Resident& Resident::After(std::chrono::milliseconds pause) {
  after_ = pause;
  return *this;
}
Resident& Resident::IsSilent() {
  silent_ = true;
  return *this;
}

Street::Street(std::uint32_t ms_per_second)
    : crier_(
          std::make_unique<UdpPeer>([this](const Bytes& request) { return Cry(request); }, kCrier)),
      port_(crier_->Port()),
      settings_(port_, ms_per_second) {}

Street& Street::Add(const Resident& resident) {
  auto agent = std::make_shared<sim::SnmpAgent>("public");
  for (const auto& [oid, value] : resident.objects_) {
    agent->Add(oid, {[value = value] { return value; }, nullptr, nullptr});
  }
  houses_.push_back(std::make_unique<UdpPeer>(resident.silent_ ? Silent() : Says(agent),
                                              resident.address_.c_str(), port_));
  const MutexLock lock(mutex_);
  residents_.push_back(resident);
  agents_.push_back(agent);
  return *this;
}

Street& Street::StaysOpen() {
  const MutexLock lock(mutex_);
  open_ = true;
  return *this;
}

DeviceInfoDictionary Street::Search(CancelDelegate* delegate, tagNETSEARCH how) {
  how.pszAddress = kCrier;
  return searchNetworkDevices(delegate, &success_, how);
}

Answers Street::Cry(const Bytes& request) const {
  const MutexLock lock(mutex_);
  Answers answers;
  for (std::size_t i = 0; i < residents_.size(); ++i) {
    const Resident& resident = residents_[i];
    const auto said = agents_[i]->Answer(request);
    for (int time = 0; time < resident.cries_; ++time) {
      Answer answer(resident.raw_.empty() ? said.value_or(Bytes{}) : resident.raw_);
      answers.push_back(answer.From(resident.address_.c_str()).After(resident.after_));
    }
  }
  if (!open_) {
    sim::SnmpAgent nobody("public");
    answers.emplace_back(nobody.Answer(request).value_or(Bytes{}));
  }
  return answers;
}

}  // namespace vox::test
