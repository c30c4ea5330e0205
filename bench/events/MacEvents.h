#pragma once

#include "Harness.h"
#include "Trace/Trace.h"
#include "VxlanController/QorEvpnTxSm.h"

namespace Bench {

/// The transmit machines between a controller's status and a host table, whatever maps and table they are
/// built with: what one MAC event costs from the controller's `macVtepTableIs` to the row.
class MacEvents {
 public:
  /// `endTurn` ends a turn of the table's writer.
  MacEvents(Orb::Ptr<QorEvpn::HostTable> const& hosts, Orb::Ptr<QorEvpn::FloodTable> const& floods,
            uint32_t vnis, std::function<void()> endTurn)
      : endTurn_(std::move(endTurn)) {
    auto const dir = Orb::makePtr<Orb::Dir>(Orb::Name("vnis"));
    for (uint32_t vni = 1; vni <= vnis; ++vni) {
      statuses_.push_back(
          Orb::makePtr<VxlanController::VniFdbStatusV2>(Orb::Name(std::to_string(vni)), Vxlan::Vni(vni)));
      dir->entryIs(statuses_.back());
    }
    machine_ =
        QorEvpn::qorEvpnTxSmFactory(dir, Orb::makePtr<VxlanController::VniStatusDirV2>(Orb::Name("evpn")),
                                    Orb::makePtr<QorEvpn::QorBrIdList>(Orb::Name("bridges")), hosts, floods);
  }

  /// Nanoseconds an event: every VNI learns `macs` MAC addresses, VNI by VNI, all with that sequence number.
  /// A MAC address's number is taken `step` apart from the next one's, as numbers come that were dealt over
  /// the VNIs.
  double learn(uint32_t macs, uint32_t seqNo, uint32_t step) {
    uint64_t events = 0;
    double const time = seconds(Clock::cpu, [&] {
      for (uint32_t vni = 0; vni < statuses_.size(); ++vni) {
        for (uint32_t i = 0; i < macs; ++i) {
          auto const mac = Wirix::EthAddr::ofValue(0x020000000000U + uint64_t{i} * step + vni);
          statuses_[vni]->macVtepTableIs(
              VxlanController::MacVtepV2(mac, Wirix::IpAddr(0x0A630000U + i % 251), Seqno32(seqNo)));
          if (++events % 64 == 0) endTurn_();
        }
      }
      endTurn_();
    });
    return time * 1e9 / static_cast<double>(events);
  }

 private:
  std::function<void()> endTurn_;
  std::vector<Orb::Ptr<VxlanController::VniFdbStatusV2>> statuses_;
  Orb::Ptr<QorEvpn::QorEvpnTxSm> machine_;
};

struct EventFigures {
  double cached, traced, startUp, again;
};

/// `make(vnis)` gives a fresh `MacEvents`.
template <class Make>
EventFigures measureEvents(uint32_t rows, Make const& make) {
  EventFigures figures{};
  {
    auto few = make(1U);
    few->learn(256, 0, 1);
    uint32_t seqNo = 1;
    auto const pass = [&](uint32_t passes) {
      double sum = 0;
      for (uint32_t i = 0; i < passes; ++i) sum += few->learn(256, seqNo++, 1);
      return sum / passes;
    };
    pass(rows / 2560);
    figures.cached = pass(rows / 256);
    auto const former = Trace::sinkIs([](Trace::Record const& record) { use(record.text.size()); });
    Trace::levelsIs("VxlanControllerEvpnTxSm", Trace::allLevels);
    figures.traced = pass(rows / 2560);
    Trace::levelsIs("VxlanControllerEvpnTxSm", 0);
    Trace::sinkIs(former);
  }
  auto all = make(vniCount);
  figures.startUp = all->learn(rows / vniCount, 0, vniCount);
  figures.again = all->learn(rows / vniCount, 1, vniCount);
  return figures;
}

}  // namespace Bench
