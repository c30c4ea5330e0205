#include "adapters/gobgp/OwnRouteList.h"

#include <stdexcept>

#include "adapters/gobgp/Channel.h"

namespace Gobgp {

std::vector<Row> listOwnRoutes(std::string const& endpoint, Identity const& identity,
                               std::chrono::seconds limit) {
  std::vector<Row> rows;
  std::string cause;
  Agent::Loop loop;
  auto const fail = [&](std::string const& what) {
    cause = what;
    loop.stop();
  };
  auto const take = [&](std::string_view octets) {
    apipb::ListPathResponse answer;
    if (!answer.ParseFromArray(octets.data(), static_cast<int>(octets.size())))
      return fail("its answer cannot be read");
    for (apipb::Path const& path : answer.destination().paths()) {
      auto const key = isLearned(path) ? std::nullopt : ownKeyOf(identity, path);
      if (!key) continue;
      auto const row = rowOf(path);
      auto const* const found = std::get_if<Row>(&row);
      rows.push_back({*key, found ? found->value : RowValue()});
    }
  };
  apipb::ListPathRequest request;
  setEvpn(*request.mutable_family());
  request.set_enable_attribute_binary(true);
  Channel channel(loop, Agent::HostPort(endpoint), fail);
  auto const end = [&](Status const& status) {
    if (!status.isOk()) return fail(status.message);
    loop.stop();
  };
  channel.call("/apipb.GobgpApi/ListPath", request.SerializeAsString(), {take, end}, limit);
  loop.run();
  if (!cause.empty()) throw std::runtime_error("the speaker at " + endpoint + ": " + cause);
  return rows;
}

}  // namespace Gobgp
