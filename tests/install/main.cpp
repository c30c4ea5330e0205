// Uses both libraries from an install prefix as an embedder does.

#include <iostream>

#include "VxlanController/QorEvpnValues.h"
#include "Wirix/EthAddr.h"

int main() {
  QorEvpn::MacVniPair const key(Wirix::EthAddr("02:00:00:00:00:01"), Vxlan::Vni(5000));
  std::cout << key << '\n';
  return key.vni() == Vxlan::Vni(5000) ? 0 : 1;
}
