#include <gtest/gtest.h>

#include "Orb/Text.h"
#include "adapters/gobgp/OwnRoutes.h"

namespace Gobgp {

namespace {

/// What a watch tells of a host's route; it has no octets.
apipb::Path toldPath(Identity const& identity, RowKey const& key) {
  apipb::RouteDistinguisher rd;
  rd.set_admin(Orb::toText(identity.routerId));
  rd.set_assigned(key.vni().value());
  apipb::EvpnMacIpRoute route;
  route.mutable_rd()->set_type_url("type.googleapis.com/apipb.RouteDistinguisherIPAddress");
  route.mutable_rd()->set_value(rd.SerializeAsString());
  route.set_ethernet_tag(key.vni().value());
  route.set_mac_address(Orb::toText(key.mac()));
  route.set_ip_address("<nil>");
  apipb::Path path;
  path.mutable_nlri()->set_type_url("type.googleapis.com/apipb.EVPNMACIPAdvertisementRoute");
  path.mutable_nlri()->set_value(route.SerializeAsString());
  path.set_is_withdraw(true);
  return path;
}

/// A withdrawal of ours is told by the watch when a later announcement is on its way already: what is wanted
/// after that is sent all the same.
TEST(OwnRoutesTest, TakesALateWithdrawalForNoAnswerToALaterAnnouncement) {
  Identity const identity{65001, Wirix::IpAddr("10.99.0.1")};
  RowKey const key(Vxlan::Vni(5000), Wirix::EthAddr("02:00:00:00:00:01"));
  RowValue const value{Wirix::IpAddr("10.99.0.11"), Seqno32(1)};
  OwnRoutes own(identity);
  auto const sends = [&own](std::vector<bool> const& withdrawals) {
    apipb::AddPathStreamRequest request;
    own.takeBatch(9, request);
    std::vector<bool> sent;
    for (auto const& path : request.paths()) sent.push_back(path.is_withdraw());
    EXPECT_EQ(sent, withdrawals);
  };
  for (bool const isWantedAtTheEnd : {true, false}) {
    own.wantedIs(key, value);
    sends({false});
    own.wantedIs(key, std::nullopt);
    sends({true});
    own.wantedIs(key, value);
    sends({false});
    own.presentDel(toldPath(identity, key));
    if (!isWantedAtTheEnd) own.wantedIs(key, std::nullopt);
    sends({!isWantedAtTheEnd});
    sends({});
    own.wantedIs(key, std::nullopt);
    sends(isWantedAtTheEnd ? std::vector{true} : std::vector<bool>{});
    own.presentDel(toldPath(identity, key));
    sends({});
  }
}

}  // namespace

}  // namespace Gobgp
