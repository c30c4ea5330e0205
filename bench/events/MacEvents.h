#pragma once

#include <algorithm>
#include <random>
#include <span>

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
    uint64_t const events = uint64_t{macs} * statuses_.size();
    return timed(events, [&] {
      for (uint32_t vni = 0; vni < statuses_.size(); ++vni) {
        for (uint32_t i = 0; i < macs; ++i) event(vni, i, step, seqNo);
      }
    });
  }

  /// Nanoseconds an event: those MAC addresses of the first VNI change, with rising sequence numbers. The
  /// order is random, as no processor can foresee what switches will report.
  double change(std::span<uint32_t const> macs) {
    return timed(macs.size(), [&] {
      for (uint32_t const i : macs) event(0, i, 1, ++seqNo_);
    });
  }

 private:
  static constexpr uint64_t turn = 64;

  void event(uint32_t vni, uint32_t i, uint32_t step, uint32_t seqNo) {
    auto const mac = Wirix::EthAddr::ofValue(0x020000000000U + uint64_t{i} * step + vni);
    statuses_[vni]->macVtepTableIs(
        VxlanController::MacVtepV2(mac, Wirix::IpAddr(0x0A630000U + i % 251), Seqno32(seqNo)));
    if (++events_ % turn == 0) endTurn_();
  }
  template <class Work>
  double timed(uint64_t events, Work const& work) {
    double const time = seconds(Clock::cpu, [&] {
      work();
      endTurn_();
    });
    return time * 1e9 / static_cast<double>(events);
  }

  std::function<void()> endTurn_;
  uint64_t events_ = 0;
  uint32_t seqNo_ = 0;
  std::vector<Orb::Ptr<VxlanController::VniFdbStatusV2>> statuses_;
  Orb::Ptr<QorEvpn::QorEvpnTxSm> machine_;
};

struct EventFigures {
  double cached, traced, startUp, again;
};

/// For the process that asked.
inline void sayFigures(EventFigures const& figures) {
  for (double const figure : {figures.cached, figures.traced, figures.startUp, figures.again}) say(figure);
}

/// `make(vnis)` gives a fresh `MacEvents`.
template <class Make>
EventFigures measureEvents(uint32_t rows, Make const& make) {
  constexpr uint32_t few = 256;
  EventFigures figures{};
  {
    auto one = make(1U);
    one->learn(few, 0, 1);
    std::mt19937 random(1);
    std::vector<uint32_t> order(4096);
    for (uint32_t& mac : order) mac = static_cast<uint32_t>(random() % few);
    // Many short passes and their median: what else the machine does meets some of them only.
    auto const median = [&](size_t events) {
      std::vector<double> passes(std::max<size_t>(events / order.size(), 1));
      for (double& pass : passes) pass = one->change(order);
      std::ranges::nth_element(passes, passes.begin() + static_cast<ptrdiff_t>(passes.size() / 2));
      return passes[passes.size() / 2];
    };
    median(rows / 10);
    figures.cached = median(rows);
    auto const former = Trace::sinkIs([](Trace::Record const& record) { use(record.text.size()); });
    Trace::levelsIs("VxlanControllerEvpnTxSm", Trace::allLevels);
    figures.traced = median(rows / 10);
    Trace::levelsIs("VxlanControllerEvpnTxSm", 0);
    Trace::sinkIs(former);
  }
  warmMemory();
  auto all = make(vniCount);
  figures.startUp = all->learn(rows / vniCount, 0, vniCount);
  figures.again = all->learn(rows / vniCount, 1, vniCount);
  return figures;
}

}  // namespace Bench
