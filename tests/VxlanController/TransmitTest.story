# start over what an earlier run left
3 QorEvpnTxSm()::handleInitialized()
3 QorEvpnTxSm()::handleVniFdbStatus()
3 QorEvpnTxSm()::cleanupStaleBrIdEntries()
3 cleanupStaleVniEntries()
3 cleanupStaleVniEntries() Deleting stale VNI 25
3 cleanupStaleVniEntries() Deleting stale VNI 30
8 QorEvpnTxSm()::cleanupStaleVniEntries(30) Deleting stale host entry (macAddr: 02:00:00:00:00:01, ip: 10.99.0.99)
8 QorEvpnTxSm()::cleanupStaleVniEntries(30) Deleting stale host entry (macAddr: 02:00:00:00:00:03, ip: 10.99.0.99)
8 QorEvpnTxSm()::cleanupStaleVniEntries(30) Deleting stale host entry (macAddr: 02:00:00:00:00:04, ip: 10.99.0.99)
8 QorEvpnTxSm()::cleanupStaleVniEntries(30) Deleting stale flood list entry (ip: 10.99.0.12)
8 QorEvpnTxSm()::cleanupStaleVniEntries(30) Deleting stale flood list entry (ip: 10.99.0.14)
8 QorEvpnTxSm()::cleanupStaleVniEntries(30) Deleting stale flood list entry (ip: 10.99.0.19)
4 cleanupStaleVniEntries() return
4 QorEvpnTxSm()::cleanupStaleBrIdEntries() return
3 QorEvpnTxSm()::handleVniFdbStatus(10)
3 VniFdbStatusSm(10)::handleInitialized()
3 VniFdbStatusSm(10)::handleInitialized()
3 VniFdbStatusSm(10)::handleHost()
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 VniFdbStatusSm(10)::cleanupStaleHostEntries()
8 VniFdbStatusSm(10)::cleanupStaleHostEntries() Deleting stale host entry (macAddr: 02:00:00:00:00:03, ip: 10.99.0.99)
8 VniFdbStatusSm(10)::cleanupStaleHostEntries() Deleting stale host entry (macAddr: 02:00:00:00:00:04, ip: 10.99.0.99)
4 VniFdbStatusSm(10)::cleanupStaleHostEntries() return
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01) return
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:02)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost() return
3 VniFdbStatusSm(10)::handleFloodList()
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 VniFdbStatusSm(10)::cleanupStaleFloodListEntries()
8 VniFdbStatusSm(10)::cleanupStaleFloodListEntries() Deleting stale flood list entry (ip: 10.99.0.19)
4 VniFdbStatusSm(10)::cleanupStaleFloodListEntries() return
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:05)
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:05) QOR-EVPN only supports 'all BUM destination addresses' entries
3 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.12)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.12) return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.13)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.13) return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14) return
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp() return
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized() return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.12)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.12) return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.13)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.13) return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14) return
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp() return
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized() return
4 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00) return
4 VniFdbStatusSm(10)::handleFloodList() return
4 VniFdbStatusSm(10)::handleInitialized() return
4 QorEvpnTxSm()::handleVniFdbStatus(10) return
3 QorEvpnTxSm()::handleVniFdbStatus(20)
3 VniFdbStatusSm(20)::handleInitialized()
3 VniFdbStatusSm(20)::handleHost()
3 VniFdbStatusSm(20)::updateBrIdList()
3 QorEvpnTxSm()::unpublishBrId(20)
4 QorEvpnTxSm()::unpublishBrId(20) return
4 VniFdbStatusSm(20)::updateBrIdList() return
3 VniFdbStatusSm(20)::cleanupStaleHostEntries()
4 VniFdbStatusSm(20)::cleanupStaleHostEntries() return
4 VniFdbStatusSm(20)::handleHost() return
3 VniFdbStatusSm(20)::handleFloodList()
3 VniFdbStatusSm(20)::updateBrIdList()
3 QorEvpnTxSm()::unpublishBrId(20)
4 QorEvpnTxSm()::unpublishBrId(20) return
4 VniFdbStatusSm(20)::updateBrIdList() return
3 VniFdbStatusSm(20)::cleanupStaleFloodListEntries()
4 VniFdbStatusSm(20)::cleanupStaleFloodListEntries() return
4 VniFdbStatusSm(20)::handleFloodList() return
4 VniFdbStatusSm(20)::handleInitialized() return
4 QorEvpnTxSm()::handleVniFdbStatus(20) return
3 QorEvpnTxSm()::handleVniFdbStatus(5)
3 cleanupStaleVniEntries()
3 cleanupStaleVniEntries() Deleting stale VNI 5
4 cleanupStaleVniEntries() return
4 QorEvpnTxSm()::handleVniFdbStatus(5) return
4 QorEvpnTxSm()::handleVniFdbStatus() return
4 QorEvpnTxSm()::handleInitialized() return
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 | 10
= 1 6 6 3 7 9
# a MAC is learned
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:03)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:03) return
= 10:1>11/7/200 10:3>11/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 | 10
= 1 0 1 0 0 0
# and forgotten
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:03)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 | 10
= 0 1 1 0 0 0
# EVPN supplies the same
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
= 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 | 10
= 0 1 1 0 0 0
# and something else
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01) return
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 | 10
= 1 0 1 0 0 0
# unsupported entries leave two records each and do not refresh the identifier
3 VniFdbStatusSm(10)::handleMultiPath(02:00:00:00:00:01)
3 VniFdbStatusSm(10)::handleMultiPath(02:00:00:00:00:01) QOR-EVPN only supports 'all BUM destination addresses' entries
3 VniFdbStatusSm(10)::handleMultiPath(02:00:00:00:00:01)
3 VniFdbStatusSm(10)::handleMultiPath(02:00:00:00:00:01) QOR-EVPN only supports 'all BUM destination addresses' entries
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:06)
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:06) QOR-EVPN only supports 'all BUM destination addresses' entries
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:06)
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:06) QOR-EVPN only supports 'all BUM destination addresses' entries
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 |
= 0 0 0 0 0 0
# the all-BUM address does
3 VniFdbStatusSm(10)::handleMultiPath(00:00:00:00:00:00)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleMultiPath(00:00:00:00:00:00) return
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 | 10
= 0 0 0 0 0 0
# and the full pass
3 VniFdbStatusSm(10)::handleMultiPath()
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleMultiPath() return
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 | 10
= 0 0 0 0 0 0
# a VTEP is switched on
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14) return
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 10>14 40>12 40>14 40>19 | 10
= 0 0 0 1 0 1
# EVPN has it, switched off
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14) return
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 40>12 40>14 40>19 | 10
= 0 0 0 0 1 1
# EVPN withdraws its list
3 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.12)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.12) return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.13)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.13) return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.14) return
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp() return
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized() return
4 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00) return
= 10:1>11/7/200 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 10>13 10>14 40>12 40>14 40>19 | 10
= 0 0 0 3 0 3
# and its status
8 void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init true vni 10
3 VniFdbStatusSm(10)::handleInitialized()
3 VniFdbStatusSm(10)::handleHost()
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 VniFdbStatusSm(10)::cleanupStaleHostEntries()
4 VniFdbStatusSm(10)::cleanupStaleHostEntries() return
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01) return
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:02)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:02) return
4 VniFdbStatusSm(10)::handleHost() return
3 VniFdbStatusSm(10)::handleFloodList()
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 VniFdbStatusSm(10)::cleanupStaleFloodListEntries()
4 VniFdbStatusSm(10)::cleanupStaleFloodListEntries() return
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:05)
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:05) QOR-EVPN only supports 'all BUM destination addresses' entries
3 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00) return
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:06)
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:06) QOR-EVPN only supports 'all BUM destination addresses' entries
4 VniFdbStatusSm(10)::handleFloodList() return
4 VniFdbStatusSm(10)::handleInitialized() return
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 10>13 10>14 40>12 40>14 40>19 | 10
= 2 0 2 0 0 0
# it has one for a VNI served and one for none
8 void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init true vni 20
3 VniFdbStatusSm(20)::handleInitialized()
3 VniFdbStatusSm(20)::handleHost()
3 VniFdbStatusSm(20)::updateBrIdList()
3 QorEvpnTxSm()::unpublishBrId(20)
4 QorEvpnTxSm()::unpublishBrId(20) return
4 VniFdbStatusSm(20)::updateBrIdList() return
3 VniFdbStatusSm(20)::cleanupStaleHostEntries()
4 VniFdbStatusSm(20)::cleanupStaleHostEntries() return
4 VniFdbStatusSm(20)::handleHost() return
3 VniFdbStatusSm(20)::handleFloodList()
3 VniFdbStatusSm(20)::updateBrIdList()
3 QorEvpnTxSm()::unpublishBrId(20)
4 QorEvpnTxSm()::unpublishBrId(20) return
4 VniFdbStatusSm(20)::updateBrIdList() return
3 VniFdbStatusSm(20)::cleanupStaleFloodListEntries()
4 VniFdbStatusSm(20)::cleanupStaleFloodListEntries() return
4 VniFdbStatusSm(20)::handleFloodList() return
4 VniFdbStatusSm(20)::handleInitialized() return
8 void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init true vni 99
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>12 10>13 10>14 40>12 40>14 40>19 | 10
= 0 0 0 0 0 0
# the flood list goes
3 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup()
8 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup() Deleting flood list entry (ip: 10.99.0.12)
8 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup() Deleting flood list entry (ip: 10.99.0.13)
8 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup() Deleting flood list entry (ip: 10.99.0.14)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup() return
4 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00) return
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 40>12 40>14 40>19 | 10
= 0 0 0 0 3 3
# and comes
3 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp()
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp() return
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized() return
4 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00) return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.15)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp(10.99.0.15) return
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>15 40>12 40>14 40>19 | 10
= 0 0 0 1 0 1
# another status of VNI 10 is refused
3 QorEvpnTxSm()::handleVniFdbStatus(10)
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>15 40>12 40>14 40>19 | 10
= 0 0 0 0 0 0
# the same again is not
3 QorEvpnTxSm()::handleVniFdbStatus(10)
4 QorEvpnTxSm()::handleVniFdbStatus(10) return
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>15 40>12 40>14 40>19 | 10
= 0 0 0 0 0 0
# another flood list is refused too
3 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>15 40>12 40>14 40>19 | 10
= 0 0 0 0 0 0
# so is another name of VNI 10
3 QorEvpnTxSm()::handleVniFdbStatus(10x)
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 10>15 40>12 40>14 40>19 | 10
= 0 0 0 0 0 0
# whose end takes the VNI away all the same
3 QorEvpnTxSm()::handleVniFdbStatus(10x)
3 cleanupStaleVniEntries()
3 cleanupStaleVniEntries() Deleting stale VNI 10
8 QorEvpnTxSm()::cleanupStaleVniEntries(10) Deleting stale host entry (macAddr: 02:00:00:00:00:01, ip: 10.99.0.11)
8 QorEvpnTxSm()::cleanupStaleVniEntries(10) Deleting stale host entry (macAddr: 02:00:00:00:00:02, ip: 10.99.0.12)
8 QorEvpnTxSm()::cleanupStaleVniEntries(10) Deleting stale flood list entry (ip: 10.99.0.15)
4 cleanupStaleVniEntries() return
3 VniFdbStatusSm(10)::cleanup()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup()
8 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup() Deleting flood list entry (ip: 10.99.0.15)
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup() return
3 VniFdbStatusSm(10)::handleInitialized()
4 VniFdbStatusSm(10)::cleanup() return
4 QorEvpnTxSm()::handleVniFdbStatus(10x) return
= 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 40>12 40>14 40>19 |
= 0 2 2 0 2 1
# until the next pass
3 QorEvpnTxSm()::handleInitialized()
3 QorEvpnTxSm()::handleVniFdbStatus()
3 QorEvpnTxSm()::cleanupStaleBrIdEntries()
3 cleanupStaleVniEntries()
4 cleanupStaleVniEntries() return
4 QorEvpnTxSm()::cleanupStaleBrIdEntries() return
3 QorEvpnTxSm()::handleVniFdbStatus(10)
3 VniFdbStatusSm(10)::handleInitialized()
3 VniFdbStatusSm(10)::handleHost()
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 VniFdbStatusSm(10)::cleanupStaleHostEntries()
4 VniFdbStatusSm(10)::cleanupStaleHostEntries() return
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:01) return
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:02)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:02) return
4 VniFdbStatusSm(10)::handleHost() return
3 VniFdbStatusSm(10)::handleFloodList()
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 VniFdbStatusSm(10)::cleanupStaleFloodListEntries()
4 VniFdbStatusSm(10)::cleanupStaleFloodListEntries() return
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:05)
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:05) QOR-EVPN only supports 'all BUM destination addresses' entries
3 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp()
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleVtepIp() return
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::handleInitialized() return
4 VniFdbStatusSm(10)::handleFloodList(00:00:00:00:00:00) return
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:06)
3 VniFdbStatusSm(10)::handleFloodList(02:00:00:00:00:06) QOR-EVPN only supports 'all BUM destination addresses' entries
4 VniFdbStatusSm(10)::handleFloodList() return
4 VniFdbStatusSm(10)::handleInitialized() return
4 QorEvpnTxSm()::handleVniFdbStatus(10) return
3 QorEvpnTxSm()::handleVniFdbStatus(20)
4 QorEvpnTxSm()::handleVniFdbStatus(20) return
3 QorEvpnTxSm()::handleVniFdbStatus(5)
3 cleanupStaleVniEntries()
3 cleanupStaleVniEntries() Deleting stale VNI 5
4 cleanupStaleVniEntries() return
4 QorEvpnTxSm()::handleVniFdbStatus(5) return
4 QorEvpnTxSm()::handleVniFdbStatus() return
4 QorEvpnTxSm()::handleInitialized() return
= 10:1>11/7/200 10:2>12/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 40>12 40>14 40>19 | 10
= 2 0 2 0 0 0
# an identifier that is listed is not written
3 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:09)
3 VniFdbStatusSm(10)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(10)
4 QorEvpnTxSm()::publishBrId(10) return
4 VniFdbStatusSm(10)::updateBrIdList() return
4 VniFdbStatusSm(10)::handleHost(02:00:00:00:00:09) return
= 10:1>11/7/200 10:2>12/1/16 10:9>11/1/16 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 40>12 40>14 40>19 | 10
= 1 0 1 0 0 0
# VNI 10 goes
3 QorEvpnTxSm()::handleVniFdbStatus(10)
3 cleanupStaleVniEntries()
3 cleanupStaleVniEntries() Deleting stale VNI 10
8 QorEvpnTxSm()::cleanupStaleVniEntries(10) Deleting stale host entry (macAddr: 02:00:00:00:00:02, ip: 10.99.0.12)
8 QorEvpnTxSm()::cleanupStaleVniEntries(10) Deleting stale host entry (macAddr: 02:00:00:00:00:09, ip: 10.99.0.11)
8 QorEvpnTxSm()::cleanupStaleVniEntries(10) Deleting stale host entry (macAddr: 02:00:00:00:00:01, ip: 10.99.0.11)
4 cleanupStaleVniEntries() return
3 VniFdbStatusSm(10)::cleanup()
3 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup()
4 MacVtepFloodListSm(00:00:00:00:00:00)(10)::cleanup() return
3 VniFdbStatusSm(10)::handleInitialized()
4 VniFdbStatusSm(10)::cleanup() return
4 QorEvpnTxSm()::handleVniFdbStatus(10) return
= 40:1>99/1/16 40:3>99/1/16 40:4>99/1/16 | 40>12 40>14 40>19 |
= 0 3 3 0 0 0
# one that was never served
3 QorEvpnTxSm()::handleVniFdbStatus(40)
3 cleanupStaleVniEntries()
3 cleanupStaleVniEntries() Deleting stale VNI 40
8 QorEvpnTxSm()::cleanupStaleVniEntries(40) Deleting stale host entry (macAddr: 02:00:00:00:00:01, ip: 10.99.0.99)
8 QorEvpnTxSm()::cleanupStaleVniEntries(40) Deleting stale host entry (macAddr: 02:00:00:00:00:03, ip: 10.99.0.99)
8 QorEvpnTxSm()::cleanupStaleVniEntries(40) Deleting stale host entry (macAddr: 02:00:00:00:00:04, ip: 10.99.0.99)
8 QorEvpnTxSm()::cleanupStaleVniEntries(40) Deleting stale flood list entry (ip: 10.99.0.12)
8 QorEvpnTxSm()::cleanupStaleVniEntries(40) Deleting stale flood list entry (ip: 10.99.0.14)
8 QorEvpnTxSm()::cleanupStaleVniEntries(40) Deleting stale flood list entry (ip: 10.99.0.19)
4 cleanupStaleVniEntries() return
4 QorEvpnTxSm()::handleVniFdbStatus(40) return
= | |
= 0 3 3 0 3 3
# VNI 50 comes, unsupported
3 QorEvpnTxSm()::handleVniFdbStatus(50)
3 VniFdbStatusSm(50)::handleInitialized()
3 VniFdbStatusSm(50)::handleHost()
3 VniFdbStatusSm(50)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(50)
4 QorEvpnTxSm()::publishBrId(50) return
4 VniFdbStatusSm(50)::updateBrIdList() return
3 VniFdbStatusSm(50)::cleanupStaleHostEntries()
4 VniFdbStatusSm(50)::cleanupStaleHostEntries() return
4 VniFdbStatusSm(50)::handleHost() return
3 VniFdbStatusSm(50)::handleFloodList()
3 VniFdbStatusSm(50)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(50)
4 QorEvpnTxSm()::publishBrId(50) return
4 VniFdbStatusSm(50)::updateBrIdList() return
3 VniFdbStatusSm(50)::cleanupStaleFloodListEntries()
4 VniFdbStatusSm(50)::cleanupStaleFloodListEntries() return
4 VniFdbStatusSm(50)::handleFloodList() return
4 VniFdbStatusSm(50)::handleInitialized() return
4 QorEvpnTxSm()::handleVniFdbStatus(50) return
= | | 50
= 0 0 0 0 0 0
# in another way
3 VniFdbStatusSm(50)::handleFloodList(02:00:00:00:00:06)
3 VniFdbStatusSm(50)::handleFloodList(02:00:00:00:00:06) QOR-EVPN only supports 'all BUM destination addresses' entries
3 VniFdbStatusSm(50)::handleMultiPath(02:00:00:00:00:01)
3 VniFdbStatusSm(50)::handleMultiPath(02:00:00:00:00:01) QOR-EVPN only supports 'all BUM destination addresses' entries
= | | 50
= 0 0 0 0 0 0
# and is looked at again
3 VniFdbStatusSm(50)::handleMultiPath(00:00:00:00:00:00)
3 VniFdbStatusSm(50)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(50)
4 QorEvpnTxSm()::publishBrId(50) return
4 VniFdbStatusSm(50)::updateBrIdList() return
4 VniFdbStatusSm(50)::handleMultiPath(00:00:00:00:00:00) return
3 VniFdbStatusSm(50)::handleMultiPath(00:00:00:00:00:00)
3 VniFdbStatusSm(50)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(50)
4 QorEvpnTxSm()::publishBrId(50) return
4 VniFdbStatusSm(50)::updateBrIdList() return
4 VniFdbStatusSm(50)::handleMultiPath(00:00:00:00:00:00) return
= | | 50
= 0 0 0 0 0 0
# unsupported entries alone do not take its identifier
3 VniFdbStatusSm(50)::handleFloodList(02:00:00:00:00:06)
3 VniFdbStatusSm(50)::handleFloodList(02:00:00:00:00:06) QOR-EVPN only supports 'all BUM destination addresses' entries
= | | 50
= 0 0 0 0 0 0
# EVPN's status does
8 void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init true vni 50
3 VniFdbStatusSm(50)::handleInitialized()
3 VniFdbStatusSm(50)::handleHost()
3 VniFdbStatusSm(50)::updateBrIdList()
3 QorEvpnTxSm()::unpublishBrId(50)
4 QorEvpnTxSm()::unpublishBrId(50) return
4 VniFdbStatusSm(50)::updateBrIdList() return
3 VniFdbStatusSm(50)::cleanupStaleHostEntries()
4 VniFdbStatusSm(50)::cleanupStaleHostEntries() return
4 VniFdbStatusSm(50)::handleHost() return
3 VniFdbStatusSm(50)::handleFloodList()
3 VniFdbStatusSm(50)::updateBrIdList()
3 QorEvpnTxSm()::unpublishBrId(50)
4 QorEvpnTxSm()::unpublishBrId(50) return
4 VniFdbStatusSm(50)::updateBrIdList() return
3 VniFdbStatusSm(50)::cleanupStaleFloodListEntries()
4 VniFdbStatusSm(50)::cleanupStaleFloodListEntries() return
4 VniFdbStatusSm(50)::handleFloodList() return
4 VniFdbStatusSm(50)::handleInitialized() return
= | |
= 0 0 0 0 0 0
# the machine of VNI 20 is cleaned up, alone and once
3 VniFdbStatusSm(20)::cleanup()
3 MacVtepFloodListSm(00:00:00:00:00:00)(20)::cleanup()
8 MacVtepFloodListSm(00:00:00:00:00:00)(20)::cleanup() Deleting flood list entry (ip: 10.99.0.16)
4 MacVtepFloodListSm(00:00:00:00:00:00)(20)::cleanup() return
3 VniFdbStatusSm(20)::handleInitialized()
4 VniFdbStatusSm(20)::cleanup() return
= | | 20
= 0 0 0 1 1 2
# EVPN's status of VNI 20 goes behind the root's back
8 void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init false vni 20
= | 20>16 | 20
= 0 0 0 1 0 1
# all are
3 QorEvpnTxSm()::cleanup()
3 VniFdbStatusSm(20)::cleanup()
3 MacVtepFloodListSm(00:00:00:00:00:00)(20)::cleanup()
8 MacVtepFloodListSm(00:00:00:00:00:00)(20)::cleanup() Deleting flood list entry (ip: 10.99.0.16)
4 MacVtepFloodListSm(00:00:00:00:00:00)(20)::cleanup() return
3 VniFdbStatusSm(20)::handleInitialized()
4 VniFdbStatusSm(20)::cleanup() return
4 QorEvpnTxSm()::cleanup() return
= | |
= 0 0 0 0 2 1
# deaf until the next start
8 void QorEvpn::QorEvpnTxSm::handleVniStatusFromEvpn(Vxlan::Vni) init false vni 99
= | |
= 0 0 0 0 0 0
# start again
3 QorEvpnTxSm()::handleInitialized()
3 QorEvpnTxSm()::handleVniFdbStatus()
3 QorEvpnTxSm()::cleanupStaleBrIdEntries()
3 cleanupStaleVniEntries()
4 cleanupStaleVniEntries() return
4 QorEvpnTxSm()::cleanupStaleBrIdEntries() return
3 QorEvpnTxSm()::handleVniFdbStatus(30)
3 VniFdbStatusSm(30)::handleInitialized()
3 VniFdbStatusSm(30)::handleHost()
3 VniFdbStatusSm(30)::updateBrIdList()
3 QorEvpnTxSm()::unpublishBrId(30)
4 QorEvpnTxSm()::unpublishBrId(30) return
4 VniFdbStatusSm(30)::updateBrIdList() return
3 VniFdbStatusSm(30)::cleanupStaleHostEntries()
4 VniFdbStatusSm(30)::cleanupStaleHostEntries() return
4 VniFdbStatusSm(30)::handleHost() return
3 VniFdbStatusSm(30)::handleFloodList()
3 VniFdbStatusSm(30)::updateBrIdList()
3 QorEvpnTxSm()::unpublishBrId(30)
4 QorEvpnTxSm()::unpublishBrId(30) return
4 VniFdbStatusSm(30)::updateBrIdList() return
3 VniFdbStatusSm(30)::cleanupStaleFloodListEntries()
4 VniFdbStatusSm(30)::cleanupStaleFloodListEntries() return
4 VniFdbStatusSm(30)::handleFloodList() return
4 VniFdbStatusSm(30)::handleInitialized() return
4 QorEvpnTxSm()::handleVniFdbStatus(30) return
3 QorEvpnTxSm()::handleVniFdbStatus(20)
3 VniFdbStatusSm(20)::handleInitialized()
3 VniFdbStatusSm(20)::handleHost()
3 VniFdbStatusSm(20)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(20)
4 QorEvpnTxSm()::publishBrId(20) return
4 VniFdbStatusSm(20)::updateBrIdList() return
3 VniFdbStatusSm(20)::cleanupStaleHostEntries()
4 VniFdbStatusSm(20)::cleanupStaleHostEntries() return
4 VniFdbStatusSm(20)::handleHost() return
3 VniFdbStatusSm(20)::handleFloodList()
3 VniFdbStatusSm(20)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(20)
4 QorEvpnTxSm()::publishBrId(20) return
4 VniFdbStatusSm(20)::updateBrIdList() return
3 VniFdbStatusSm(20)::cleanupStaleFloodListEntries()
4 VniFdbStatusSm(20)::cleanupStaleFloodListEntries() return
3 VniFdbStatusSm(20)::handleFloodList(00:00:00:00:00:00)
3 VniFdbStatusSm(20)::updateBrIdList()
3 QorEvpnTxSm()::publishBrId(20)
4 QorEvpnTxSm()::publishBrId(20) return
4 VniFdbStatusSm(20)::updateBrIdList() return
3 MacVtepFloodListSm(00:00:00:00:00:00)(20)::handleInitialized()
3 MacVtepFloodListSm(00:00:00:00:00:00)(20)::handleVtepIp()
3 MacVtepFloodListSm(00:00:00:00:00:00)(20)::handleVtepIp(10.99.0.16)
4 MacVtepFloodListSm(00:00:00:00:00:00)(20)::handleVtepIp(10.99.0.16) return
4 MacVtepFloodListSm(00:00:00:00:00:00)(20)::handleVtepIp() return
4 MacVtepFloodListSm(00:00:00:00:00:00)(20)::handleInitialized() return
4 VniFdbStatusSm(20)::handleFloodList(00:00:00:00:00:00) return
4 VniFdbStatusSm(20)::handleFloodList() return
4 VniFdbStatusSm(20)::handleInitialized() return
4 QorEvpnTxSm()::handleVniFdbStatus(20) return
3 QorEvpnTxSm()::handleVniFdbStatus(5)
3 cleanupStaleVniEntries()
3 cleanupStaleVniEntries() Deleting stale VNI 5
4 cleanupStaleVniEntries() return
4 QorEvpnTxSm()::handleVniFdbStatus(5) return
4 QorEvpnTxSm()::handleVniFdbStatus() return
4 QorEvpnTxSm()::handleInitialized() return
= | 20>16 | 20
= 0 0 0 1 0 1
# switched off, the children too
= | 20>16 | 20
= 0 0 0 0 0 0
# destruction writes nothing
= | 20>16 | 20
= 0 0 0 0 0 0
