// Street is a network of devices on loopback: a crier that stands in for the broadcast address, and
// residents that answer it, each from an address of its own, and then the questions put to them.
//
//   Street street;
//   street.Add(Resident("127.0.0.2").Model("QD7200").Name("Office"));
//   const DeviceInfoDictionary found = street.Search();
//
// The crier ends the search with an answer of its own, which no search waits behind; Search().
// Thread rule: residents are added before the search.
#pragma once

#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "sim/SnmpAgent.h"
#include "tests/support/UdpPeer.h"
#include "vox/drivers/net/search.h"
#include "vox/platform/Mutex.h"

namespace vox::test {

inline constexpr char kModelOid[] = "1.3.6.1.4.1.32473.405.1.1.1.3.0";
inline constexpr char kNameOid[] = "1.3.6.1.2.1.1.5.0";
inline constexpr char kMacOid[] = "1.3.6.1.2.1.2.2.1.6.1";
inline constexpr char kWidthOid[] = "1.3.6.1.4.1.32473.405.4.5.1.1.4.1.1";
inline constexpr char kHeightOid[] = "1.3.6.1.4.1.32473.405.4.5.1.1.5.1.1";

// Resident is a device in good order until it is told otherwise.
class Resident {
 public:
  explicit Resident(std::string address);

  Resident& Model(const std::string& model) { return Says(kModelOid, sim::TextValue(model)); }
  Resident& Name(const std::string& name) { return Says(kNameOid, sim::TextValue(name)); }
  Resident& Mac(const Bytes& mac) { return Says(kMacOid, {0x04, mac}); }
  Resident& Says(const std::string& oid, sim::MibValue value);
  Resident& Lacks(const std::string& oid);
  Resident& Cries(int times);                        // answers the broadcast so often
  Resident& CriesRaw(Bytes answer);                  // answers it with this
  Resident& After(std::chrono::milliseconds pause);  // behind the answer before
  Resident& IsSilent();                              // to questions

 private:
  friend class Street;
  std::string address_;
  std::map<std::string, sim::MibValue> objects_;
  int cries_ = 1;
  Bytes raw_;
  std::chrono::milliseconds after_{0};
  bool silent_ = false;
};

class Street {
 public:
  explicit Street(std::uint32_t ms_per_second = 1000);
  Street& Add(const Resident& resident);
  // StaysOpen: the crier adds no answer, so the search ends after a quiet second.
  Street& StaysOpen();

  std::uint16_t Port() const { return port_; }
  DeviceInfoDictionary Search(CancelDelegate* delegate = nullptr, tagNETSEARCH how = {});
  bool Succeeded() const { return success_; }
  // Questions put to a resident so far, in the order in which it was added.
  std::size_t Questions(std::size_t resident) { return houses_[resident]->Requests().size(); }
  std::vector<Bytes> Cries() { return crier_->Requests(); }

 private:
  Answers Cry(const Bytes& request) const;

  mutable Mutex mutex_;  // against the crier's thread
  std::vector<Resident> residents_ VOX_GUARDED_BY(mutex_);
  std::vector<std::shared_ptr<const sim::SnmpAgent>> agents_ VOX_GUARDED_BY(mutex_);
  bool open_ VOX_GUARDED_BY(mutex_) = false;
  std::vector<std::unique_ptr<UdpPeer>> houses_;
  bool success_ = false;
  std::unique_ptr<UdpPeer> crier_;
  std::uint16_t port_;
  NetSettings settings_;
};

// CancelsAt is a delegate that answers true from the n-th question on, 1 being the first.
class CancelsAt : public CancelDelegate {
 public:
  explicit CancelsAt(int question) : question_(question) {}
  bool isCancelled() override { return ++asked >= question_; }
  int asked = 0;

 private:
  const int question_;
};

}  // namespace vox::test
