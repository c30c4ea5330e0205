#include <fstream>

#include "adapters/SwitchUser.h"
#include "support/Paths.h"

using Agent::SourceState;
using namespace TestSupport;
using Ovsdb::Json;

namespace {

/// The octets to answer a request with.
using Script = std::function<std::string(Json const& request, int attempt)>;

/// A server that answers requests by a script, and notes all that it hears.
FakeServer::Answer answering(Script const& script, std::vector<Json>* heard = nullptr) {
  return [=](std::string& input, int attempt) {
    std::string output;
    // The shortest beginning that is JSON is the next message.
    for (std::size_t end = input.find('}'); end != std::string::npos; end = input.find('}', end + 1)) {
      std::string const beginning = input.substr(0, end + 1);
      if (!Json::accept(beginning)) continue;
      Json const message = Json::parse(beginning);
      if (heard) heard->push_back(message);
      if (message.contains("method")) output += script(message, attempt);
      input.erase(0, end + 1);
      end = 0;
    }
    return output;
  };
}

std::string answer(Json const& request, Json const& result, Json const& error = nullptr) {
  return Json({{"id", request["id"]}, {"result", result}, {"error", error}}).dump();
}

Json schema() {
  static Json const result = [] {
    std::ifstream file("/usr/share/openvswitch/vtep.ovsschema");
    return Json::parse(file);
  }();
  return result;
}

/// What it answers to a request for its rows.
Json rows() { return Json::parse(sourceText("tests/adapters/FaultTest.json")); }
std::set<std::string> const entriesOfRows = {"vni 5000", "mac 5000 02:00:00:00:00:0a 10.99.0.11"};

/// What a server answers with which nothing is wrong.
std::string rightAnswer(Json const& request) {
  if (request["method"] == "get_schema") return answer(request, schema());
  if (request["method"] == "monitor") return answer(request, rows());
  return answer(request, request["params"]);
}

/// A way to go wrong: the answer to `method`, on the first three attempts.
struct Fault {
  std::string method;
  std::function<std::string(Json const&)> wrong;
  std::string report;
};

auto constantly(std::string text) {
  return [text = std::move(text)](Json const&) { return text; };
}
auto without(char const* table, char const* column) {
  Json lacking = schema();
  column == nullptr ? lacking["tables"].erase(table) : lacking["tables"][table]["columns"].erase(column);
  return [lacking](Json const& request) { return answer(request, lacking); };
}
auto withRow(char const* table, Json const& row) {
  Json wrong = rows();
  wrong[table]["00000000-0000-0000-0000-000000000009"] = row;
  return [wrong](Json const& request) { return answer(request, wrong); };
}

TEST(SwitchFaults, areNamedAndTriedAgainAfterGrowingPauses) {
  std::vector<Fault> const faults = {
      {"get_schema", constantly("HTTP/1.1 400 Bad Request\r\n"), "malformed JSON: 'H'"},
      {"get_schema", constantly(R"({"id":1,"result":tru,"error":null})"), "malformed JSON: "},
      {"get_schema", constantly(R"({"id":1]})"), "malformed JSON: ']' closes nothing"},
      {"get_schema", constantly("{" + std::string(99, '[')), "nested too deeply"},
      {"get_schema",
       [](Json const& request) {
         return Json({{"id", request["id"]}, {"error", {{"error", "unknown database"}}}}).dump();
       },
       "no database hardware_vtep: unknown database"},
      {"get_schema", without("Mcast_Macs_Remote", nullptr), "lacks table Mcast_Macs_Remote"},
      {"get_schema", without("Ucast_Macs_Local", "locator"),
       "lacks column locator of table Ucast_Macs_Local"},
      {"get_schema", constantly(""), "no answer within"},
      {"get_schema", constantly(R"({"id":77,"result":{},"error":null})"), "an answer that nobody asked for"},
      {"monitor", [](Json const& request) { return answer(request, rows()).substr(0, 300) + "CLOSE"; },
       "closed by the server"},
      {"monitor",
       [](Json const& request) {
         return answer(request, nullptr, {{"error", "not owner"}, {"details", "no rights"}});
       },
       "cannot be monitored: not owner: no rights"},
      {"monitor", withRow("Ucast_Macs_Local", {{"new", {{"MAC", 7}}}}),
       "table Ucast_Macs_Local, row 00000000-0000-0000-0000-000000000009: "},
      {"monitor", withRow("Physical_Locator", {1}),
       "table Physical_Locator, row 00000000-0000-0000-0000-000000000009: "}};
  for (Fault const& fault : faults) {
    SCOPED_TRACE(fault.report);
    ScratchFolder folder;
    Ovsdb::Pauses pauses = SwitchUser::shortPauses();
    if (fault.report == "no answer within") pauses.silence = std::chrono::milliseconds(50);
    SwitchUser user({"tor1", "unix:" + folder.path() + "/sock", {}, pauses});
    user.until([&] { return user.wasReported("No such file or directory; tries again in 1 ms"); });
    EXPECT_EQ(user.tor.state(), SourceState::connecting);
    FakeServer server(user.loop, boundSocket(folder.path() + "/sock"),
                      answering([&](Json const& request, int attempt) {
                        bool const isWrong = attempt < 3 && request["method"] == fault.method;
                        return isWrong ? fault.wrong(request) : rightAnswer(request);
                      }));
    user.untilSynced();
    EXPECT_EQ(user.entries, entriesOfRows);
    EXPECT_TRUE(user.wasReported("unix:" + folder.path() + "/sock: "));
    EXPECT_TRUE(user.wasReported(fault.report));
    EXPECT_TRUE(user.wasReported("; tries again in 4 ms"));
  }
}

TEST(SwitchFaults, areNoneWhereAServerIsSlowAndAsksItself) {
  ScratchFolder folder;
  SwitchUser user("unix:" + folder.path() + "/sock");
  std::vector<Json> heard;
  Script const script = [](Json const& request, int) {
    // A schema of 10 kB would take as many turns.
    if (request["method"] != "get_schema") return rightAnswer(request);
    Json brief = schema();
    for (char const* table : {"ACL", "ACL_entry", "Tunnel", "Global", "Manager", "Logical_Router"}) {
      brief["tables"].erase(table);
    }
    return " " + answer(request, brief) + "\n";
  };
  FakeServer server(user.loop, boundSocket(folder.path() + "/sock"), answering(script, &heard));
  server.isSlow = true;
  user.untilSynced();
  EXPECT_EQ(user.entries, entriesOfRows);
  server.say(Json({{"id", "x"}, {"method", "echo"}, {"params", {"a", 1}}}).dump());
  server.say(Json({{"id", "y"}, {"method", "steal"}, {"params", Json::array()}}).dump());
  Json gone;
  gone["Ucast_Macs_Local"]["00000000-0000-0000-0000-000000000003"]["old"] = Json::object();
  server.say(Json({{"id", nullptr}, {"method", "update"}, {"params", {"switch", gone}}}).dump());
  user.untilEntries({"vni 5000"});
  user.until([&] { return heard.size() == 4; });
  EXPECT_EQ(heard[2], Json::parse(R"({"id":"x","result":["a",1],"error":null})"));
  EXPECT_EQ(heard[3]["error"], "unknown method");
  EXPECT_TRUE(user.reports.size() == 0) << user.reports.back();
}

// Of the rows that are wanted the database refuses one, for ever: the others are written all the same.
TEST(SwitchFaults, ofARowHoldUpNoOther) {
  ScratchFolder folder;
  SwitchUser user("unix:" + folder.path() + "/sock");
  std::set<std::string> written;
  int refusals = 0;
  Script const script = [&](Json const& request, int) {
    if (request["method"] != "transact") return rightAnswer(request);
    Json const& operations = request["params"];
    std::set<std::string> macs;
    for (Json const& operation : operations) {
      if (operation.is_object() && operation.value("table", "") == "Ucast_Macs_Remote")
        macs.insert(operation["row"]["MAC"].get<std::string>());
    }
    if (macs.contains("02:00:00:00:00:03")) {
      ++refusals;
      return answer(request, {nullptr, {{"error", "constraint violation"}, {"details", "not this one"}}});
    }
    for (std::string const& mac : macs) EXPECT_TRUE(written.insert(mac).second) << mac << " twice";
    return answer(request, {Json::object()});
  };
  FakeServer server(user.loop, boundSocket(folder.path() + "/sock"), answering(script));
  for (int i = 1; i <= 9; ++i)
    user.wanted.macIs(keyOf(5000, "02:00:00:00:00:0" + std::to_string(i)), "10.99.0.12");
  user.until([&] { return written.size() == 8 && refusals >= 5; });
  EXPECT_TRUE(
      user.wasReported("refused remote rows of 9 MACs: constraint violation: not this one; tries again in"));
  EXPECT_TRUE(
      user.wasReported("refused remote rows of VNI 5000, MAC 02:00:00:00:00:03: constraint violation"));
  EXPECT_EQ(user.syncs, 1);
  EXPECT_NE(user.tor.lastError(), "");
}

}  // namespace
