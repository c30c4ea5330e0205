#include "adapters/gobgp/OwnRoutes.h"

#include <algorithm>

namespace Gobgp {

namespace {

/// Stands for a route in another form than this program's, or in an unknown one.
constexpr RowValue unlike;

}  // namespace

OwnRoutes::Own& OwnRoutes::ownOf(RowKey const& key) {
  if (!routes_.contains(key)) routes_.put(key, {});
  return *routes_.find(key);
}

void OwnRoutes::queue(RowKey const& key, Own& own) {
  if (own.isQueued || own.wanted == own.present) return;
  own.isQueued = true;
  queue_.push_back(key);
}

void OwnRoutes::wantedIs(RowKey const& key, std::optional<RowValue> const& row) {
  auto const value = row && row->vtep != Wirix::IpAddr() ? row : std::nullopt;
  Own& own = ownOf(key);
  wanted_ += value.has_value();
  wanted_ -= own.wanted.has_value();
  own.wanted = value;
  queue(key, own);
  if (own == Own()) routes_.erase(key);
}

void OwnRoutes::forgetPresent() {
  queue_.clear();
  std::vector<RowKey> gone;
  for (auto const& entry : routes_) {
    Own& own = *routes_.find(entry.key);
    own.present.reset();
    own.isQueued = false;
    if (!own.wanted) gone.push_back(entry.key);
  }
  for (RowKey const& key : gone) routes_.erase(key);
}

void OwnRoutes::presentIs(apipb::Path const& path) {
  auto const key = ownKeyOf(identity_, path);
  if (!key) return;
  auto const row = rowOf(path);
  RowValue value = unlike;
  if (auto const* const found = std::get_if<Row>(&row)) {
    auto announced = attributesOf(identity_, {*key, found->value}, true);
    std::vector<std::string> present(path.pattrs_binary().begin(), path.pattrs_binary().end());
    std::sort(announced.begin(), announced.end());
    std::sort(present.begin(), present.end());
    if (present == announced) value = found->value;
  }
  ownOf(*key).present = value;
}

void OwnRoutes::presentDel(apipb::Path const& path) {
  auto const key = ownKeyOf(identity_, path);
  Own* const own = key ? routes_.find(*key) : nullptr;
  if (!own) return;
  // This may report our own withdrawal, after a later announcement was sent.
  own->present = unlike;
  queue(*key, *own);
}

void OwnRoutes::compare() {
  for (auto const& entry : routes_) queue(entry.key, *routes_.find(entry.key));
}

std::vector<RowKey> OwnRoutes::takeBatch(std::size_t limit, apipb::AddPathStreamRequest& request) {
  std::vector<RowKey> taken;
  while (taken.size() < limit && !queue_.empty()) {
    RowKey const key = queue_.front();
    queue_.pop_front();
    Own* const own = routes_.find(key);
    if (!own) continue;
    own->isQueued = false;
    if (own->wanted != own->present) {
      bool const isWithdrawal = !own->wanted;
      RowValue value = isWithdrawal ? *own->present : *own->wanted;
      if (value.vtep == unlike.vtep) value.vtep = identity_.routerId;
      setPath(*request.add_paths(), identity_, {key, value}, isWithdrawal);
      taken.push_back(key);
      own->present = own->wanted;
    }
    if (!own->wanted) routes_.erase(key);
  }
  return taken;
}

void OwnRoutes::giveBack(std::vector<RowKey> const& keys) {
  for (RowKey const& key : keys) {
    Own& own = ownOf(key);
    own.present = unlike;
    queue(key, own);
  }
}

}  // namespace Gobgp
