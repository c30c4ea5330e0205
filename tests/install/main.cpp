// Uses both libraries from an install prefix as an embedder and an EVPN side do.

#include <iostream>

#include "VxlanController/QorBrIdTable.h"
#include "VxlanController/QorEvpnValues.h"
#include "Wirix/EthAddr.h"

int main() {
  QorEvpn::MacVniPair const key(Wirix::EthAddr("02:00:00:00:00:01"), Vxlan::Vni(5000));
  std::cout << key << '\n';
  Brine::Table<Bridging::BridgeId> list;
  if (list.find(Bridging::BridgeId::ofVni(key.vni()))) return 1;
  return key.vni() == Vxlan::Vni(5000) ? 0 : 1;
}
