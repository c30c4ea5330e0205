#include <gtest/gtest.h>

#include <vector>

#include "Orb/Errors.h"
#include "Vxlan/VniExt.h"
#include "VxlanController/QorEvpnValues.h"

namespace {

using namespace QorEvpn;
using Vxlan::Vni;
using Wirix::EthAddr, Wirix::IpAddr;

// Computed by a separate program in another language.
TEST(Hash, KnownAnswers) {
  constexpr uint32_t wang[][2] = {
      {0x00000000, 0xcaa3caa3}, {0x00000001, 0x12d60bf6}, {0x00000002, 0x25ac1fe5},
      {0x7fffffff, 0x7827b96a}, {0x80000000, 0x6551e551}, {0xffffffff, 0xbd55fc18},
      {0xdeadbeef, 0x92da7565}, {0x00ffffff, 0x664af807}, {0x55555555, 0x7cd73d9a}};
  for (auto const& [seed, hash] : wang) EXPECT_EQ(Impl::wangHash(seed), hash) << seed;
  // Hashes lie in shared tables: a change of any mix below makes every table that exists unreadable.
  EXPECT_EQ(MacVniPair().hash(), 0xcaa3caa3U);
  EXPECT_EQ(MacVniPair(EthAddr(0x0200, 0, 1), Vni(5000)).hash(), 0x69dab4dbU);
  EXPECT_EQ(MacVniPair(EthAddr::ofValue(~0ULL), Vni(Vni::max)).hash(), 0xbbe1e6b6U);
  EXPECT_EQ(VniVtepPair(Vni(5000), IpAddr(0x0a63000b)).hash(), 0x362d3e3eU);
  EXPECT_EQ(VniVtepPair(Vni(Vni::max), IpAddr(0xffffffff)).hash(), 0xeb04cb80U);
}

// In ascending order; each is checked against each.
template <class T>
void expectOrder(std::vector<T> const& sorted) {
  for (size_t i = 0; i < sorted.size(); ++i) {
    for (size_t j = 0; j < sorted.size(); ++j) {
      EXPECT_EQ(sorted[i] < sorted[j], i < j) << i << " " << j;
      EXPECT_EQ(sorted[i] == sorted[j], i == j) << i << " " << j;
    }
  }
}

TEST(Order, HostsByMacThenVniFloodEntriesByVniThenAddress) {
  expectOrder<EthAddr>({EthAddr(), EthAddr(0, 0, 0xffff), EthAddr(0, 1, 0), EthAddr(0x00ff, 0, 0),
                        EthAddr(0x0100, 0, 0), EthAddr(0x8000, 0, 0)});
  EthAddr const low(0, 0, 1);
  EthAddr const high(0, 1, 0);
  expectOrder<MacVniPair>({{low, Vni(1)}, {low, Vni(Vni::max)}, {high, Vni(0)}, {high, Vni(2)}});
  IpAddr const one(1);
  IpAddr const top(0x80000000);
  expectOrder<VniVtepPair>({{Vni(0), top}, {Vni(1), one}, {Vni(1), top}, {Vni(2), IpAddr()}});
}

TEST(Host, EveryFieldCounts) {
  Host const plain(MacVniPair(EthAddr(0, 0, 1), Vni(1)));
  EXPECT_EQ(plain.preference(), 16);
  std::vector<Host> all(5, plain);
  all[1].vtepAddrIs(IpAddr(1));
  all[2].seqNoIs(Seqno32(1));
  all[3].preferenceIs(0);
  all[4] = Host(MacVniPair(EthAddr(0, 0, 1), Vni(2)));
  for (size_t i = 0; i < all.size(); ++i) {
    for (size_t j = 0; j < all.size(); ++j) EXPECT_EQ(all[i] == all[j], i == j) << i << " " << j;
  }
}

TEST(Vni, Range) {
  EXPECT_EQ(Vni(16777215).value(), 16777215U);
  for (uint64_t const value : {0x1000000ULL, 0xffffffffULL, 0x100000005ULL})
    EXPECT_THROW(Vni{value}, Orb::RangeError);
  EXPECT_THROW(Vxlan::VniExt(16777216), Orb::RangeError);
}

}  // namespace
