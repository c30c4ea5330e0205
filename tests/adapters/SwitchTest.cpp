#include "adapters/SwitchUser.h"
#include "support/Database.h"

using Agent::SourceState;
using namespace TestSupport;

namespace {

// A snapshot, then every kind of change.
TEST(Switch, tellsWhatItsDatabaseHolds) {
  Database database;
  database.vtep(
      "add-ps tor1 -- set Physical_Switch tor1 tunnel_ips=10.99.0.11"
      " -- add-ls red -- set Logical_Switch red tunnel_key=5000 -- add-ls blue"
      " -- add-ucast-local red 02:00:00:00:00:0A 10.99.0.11 -- add-ucast-local blue 02:00:00:00:00:0b "
      "10.99.0.11"
      " -- add-mcast-local red unknown-dst 10.99.0.11 -- add-mcast-local red 01:00:5e:00:00:07 10.99.0.11");
  SwitchUser user(database.endpoint());
  user.untilSynced();
  std::set<std::string> const first = {"vni 5000", "mac 5000 02:00:00:00:00:0a 10.99.0.11",
                                       "flood 5000 00:00:00:00:00:00 10.99.0.11",
                                       "flood 5000 01:00:5e:00:00:07 10.99.0.11"};
  EXPECT_EQ(user.entries, first);
  EXPECT_EQ(user.wanted.own, std::set{Wirix::IpAddr("10.99.0.11")});

  // A logical switch comes to have a VNI, a MAC moves, a list grows and becomes one of service nodes.
  database.vtep("set Logical_Switch blue tunnel_key=5001");
  user.untilEntries({"vni 5000", "mac 5000 02:00:00:00:00:0a 10.99.0.11",
                     "flood 5000 00:00:00:00:00:00 10.99.0.11", "flood 5000 01:00:5e:00:00:07 10.99.0.11",
                     "vni 5001", "mac 5001 02:00:00:00:00:0b 10.99.0.11"});
  database.vtep(
      "add-ucast-local red 02:00:00:00:00:0A 10.99.0.19 -- del-mcast-local red 01:00:5e:00:00:07 10.99.0.11"
      " -- add-mcast-local red unknown-dst 10.99.0.18 -- set Logical_Switch blue tunnel_key=5002");
  user.untilEntries({"vni 5000", "mac 5000 02:00:00:00:00:0a 10.99.0.19",
                     "flood 5000 00:00:00:00:00:00 10.99.0.11", "flood 5000 00:00:00:00:00:00 10.99.0.18",
                     "vni 5002", "mac 5002 02:00:00:00:00:0b 10.99.0.11"});
  database.vtep(
      "set Logical_Switch red replication_mode=service_node -- clear-local-macs blue -- del-ls blue");
  user.untilEntries({"vni 5000", "mac 5000 02:00:00:00:00:0a 10.99.0.19",
                     "multipath 5000 00:00:00:00:00:00 10.99.0.11 10.99.0.18"});
}

TEST(Switch, leavesOutWhatNoEventHolds) {
  Database database;
  database.vtep(
      "add-ls red -- set Logical_Switch red tunnel_key=5000 -- add-ls far"
      " -- set Logical_Switch far tunnel_key=16777216 -- add-ucast-local red unknown-dst 10.99.0.11"
      " -- add-ucast-local red 02:00:00:00:00:0c fd00::1 -- add-mcast-local red 02:00:00:00:00:0d 10.99.0.11"
      " -- add-ucast-local red 02:00:00:00:00:0e 10.99.0.11");
  SwitchUser user(database.endpoint());
  user.untilSynced();
  EXPECT_EQ(user.entries, (std::set<std::string>{"vni 5000", "mac 5000 02:00:00:00:00:0e 10.99.0.11"}));
  std::map<std::string_view, std::size_t> const faults = {
      {"logical switch whose tunnel_key is no VNI", 1},
      {"MAC that is none", 1},
      {"multicast MAC that is no group's", 1},
      {"address that is not IPv4, and what is behind it", 1}};
  EXPECT_EQ(user.tor.leftOut(), faults);
  for (char const* part :
       {"tunnel_key 16777216 is no VNI", "'unknown-dst' is no MAC address", "'fd00::1' is no IPv4 address",
        "'02:00:00:00:00:0d' is neither a group's nor unknown-dst"}) {
    EXPECT_TRUE(user.wasReported(part)) << part;
  }
}

TEST(Switch, writesOnlyDifferencesAndSharesLocators) {
  Database database;
  database.vtep(
      "add-ps tor1 -- set Physical_Switch tor1 tunnel_ips=10.99.0.11 -- add-ls red"
      " -- set Logical_Switch red tunnel_key=5000 -- add-mcast-local red unknown-dst 10.99.0.10"
      " -- add-ls other -- add-ucast-remote other 02:00:00:00:00:99 10.99.0.99"
      " -- add-ucast-remote red 02:00:00:00:00:01 10.99.0.12 -- add-ucast-remote red 02:00:00:00:00:02 "
      "10.99.0.13"
      " -- add-ucast-remote red 02:00:00:00:00:09 10.99.0.19 -- add-mcast-remote red unknown-dst 10.99.0.19");
  SwitchUser user(database.endpoint());
  auto const becomes = [&](std::vector<std::string> const& expected) {
    user.until([&] { return database.remoteMacs("red") == expected; });
  };
  user.wanted.macIs(keyOf(5000, "02:00:00:00:00:01"), "10.99.0.12");  // is there
  user.wanted.macIs(keyOf(5000, "02:00:00:00:00:02"), "10.99.0.12");  // moved
  user.wanted.macIs(keyOf(5000, "02:00:00:00:00:03"), "10.99.0.14");
  user.wanted.macIs(keyOf(5000, "02:00:00:00:00:04"), "10.99.0.14");
  user.wanted.macIs(keyOf(5000, "02:00:00:00:00:05"), "10.99.0.11");  // its own
  user.wanted.macIs(keyOf(5001, "02:00:00:00:00:06"), "10.99.0.14");  // of a VNI that it has not got
  user.wanted.floodIs(keyOf(5000), {"10.99.0.10", "10.99.0.11", "10.99.0.14"});

  // Rows that nobody asked for may be another source's that has not spoken yet.
  becomes({"02:00:00:00:00:01 10.99.0.12", "02:00:00:00:00:02 10.99.0.12", "02:00:00:00:00:03 10.99.0.14",
           "02:00:00:00:00:04 10.99.0.14", "02:00:00:00:00:09 10.99.0.19", "unknown-dst 10.99.0.14",
           "unknown-dst 10.99.0.19"});
  EXPECT_EQ(user.tor.remote().transactions(), 1U);
  user.wanted.settledIs(true);
  becomes({"02:00:00:00:00:01 10.99.0.12", "02:00:00:00:00:02 10.99.0.12", "02:00:00:00:00:03 10.99.0.14",
           "02:00:00:00:00:04 10.99.0.14", "unknown-dst 10.99.0.14"});
  EXPECT_EQ(database.remoteMacs("other"), std::vector<std::string>{"02:00:00:00:00:99 10.99.0.99"});
  EXPECT_EQ(database.rows("Physical_Locator"), 4U);  // .10, .12, .14, .99

  // Rows that somebody else changes are put right, and a VNI that comes gets what it missed.
  database.vtep(
      "add-ucast-remote red 02:00:00:00:00:77 10.99.0.77 -- del-ucast-remote red 02:00:00:00:00:03"
      " -- add-ucast-remote red 02:00:00:00:00:04 10.99.0.12 -- add-ls late"
      " -- set Logical_Switch late tunnel_key=5001");
  user.wanted.macIs(keyOf(5000, "02:00:00:00:00:01"), "");
  user.wanted.floodIs(keyOf(5000), {});
  becomes({"02:00:00:00:00:02 10.99.0.12", "02:00:00:00:00:03 10.99.0.14", "02:00:00:00:00:04 10.99.0.14"});
  user.until([&] {
    return database.remoteMacs("late") == std::vector<std::string>{"02:00:00:00:00:06 10.99.0.14"};
  });

  // Killed and started again, it is written what changed meanwhile, and nothing else.
  database.kill();
  user.until([&] { return user.tor.state() == SourceState::lost; });
  EXPECT_EQ(user.tor.lastError(), "closed by the server");
  user.wanted.macIs(keyOf(5000, "02:00:00:00:00:02"), "10.99.0.15");
  auto const before = user.tor.remote().transactions();
  database.start();
  becomes({"02:00:00:00:00:02 10.99.0.15", "02:00:00:00:00:03 10.99.0.14", "02:00:00:00:00:04 10.99.0.14"});
  EXPECT_EQ(user.tor.remote().transactions(), before + 1);
  EXPECT_EQ(user.tor.remote().refusals(), 0U);
}

// So many that every message is cut into several turns of the loop.
TEST(Switch, takesManyRowsInSlices) {
  Database database;
  constexpr unsigned macs = 400;
  std::string command = "add-ls red -- set Logical_Switch red tunnel_key=5000";
  auto const mac = [](unsigned i) { return Wirix::EthAddr::ofValue(0x020000000000 + i); };
  for (unsigned i = 0; i < macs; ++i)
    Orb::appendTexts(command, " -- add-ucast-local red ", mac(i), " 10.99.0.11");
  database.vtep(command);
  SwitchUser user(database.endpoint());
  for (unsigned i = 0; i < macs; ++i) user.wanted.macIs({Vxlan::Vni(5000), mac(macs + i)}, "10.99.0.12");
  user.untilSynced();
  EXPECT_EQ(user.entries.size(), macs + 1U);
  user.until([&] { return user.tor.remoteRows() == macs; });
  database.vtep("clear-local-macs red");
  user.untilEntries({"vni 5000"});
}

TEST(Switch, speaksTlsAndNamesWrongCertificates) {
  ScratchFolder keys;
  std::string const prefix = keys.path() + '/';
  for (std::string const name : {"right", "wrong"}) {
    shell("openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=" +
          name + " -keyout " + prefix + name + ".key -out " + prefix + name + ".crt 2>/dev/null");
  }
  auto const file = [&](std::string const& name) { return prefix + name; };
  Database database({"--remote=pssl:0:127.0.0.1", "--private-key=" + file("right.key"),
                     "--certificate=" + file("right.crt"), "--ca-cert=" + file("right.crt")});
  database.vtep("add-ls red -- set Logical_Switch red tunnel_key=5000");
  std::string const endpoint = "ssl:127.0.0.1:" + database.port();
  Ovsdb::TlsFiles const right{file("right.key"), file("right.crt"), file("right.crt")};
  SwitchUser user({"tor1", endpoint, right, SwitchUser::shortPauses()});
  user.untilSynced();
  EXPECT_EQ(user.entries, std::set<std::string>{"vni 5000"});

  struct Case {
    Ovsdb::TlsFiles files;
    std::string report;
  };
  for (Case const& each :
       {Case{{file("right.key"), file("right.crt"), file("wrong.crt")}, "certificate verify failed"},
        Case{{file("wrong.key"), file("wrong.crt"), file("right.crt")}, "alert"},
        Case{{file("wrong.key"), file("right.crt"), file("right.crt")}, "key values mismatch"},
        Case{{file("none.key"), file("right.crt"), file("right.crt")}, "none.key': No such file"}}) {
    SwitchUser other({"tor1", endpoint, each.files, SwitchUser::shortPauses()});
    other.until([&] { return other.wasReported(each.report); });
    EXPECT_TRUE(other.wasReported(endpoint + ": "));
    EXPECT_NE(other.tor.state(), SourceState::synced);
  }
}

}  // namespace
