#include "agent/site/Mount.h"

namespace Agent {

namespace {

constexpr std::string_view hostFile = TableKind<QorEvpn::Host>::file;
constexpr std::string_view floodFile = TableKind<QorEvpn::FloodEntry>::file;

std::string message(Brine::MountOptions const& options, Brine::MountStatus status,
                    std::string const& detail) {
  std::string const place = options.directory + "/" + options.name;
  if (status == Brine::MountStatus::busy) {
    return place + ": busy: " + detail + "; a site has one agent and one EVPN side";
  }
  std::string text = place + ": cannot be written: " + std::string(toText(status));
  if (!detail.empty()) text += ": " + detail;
  bool const mendable = status == Brine::MountStatus::corrupt || status == Brine::MountStatus::incompatible;
  return mendable ? text + "; --repair keeps what is sound of it" : text;
}

}  // namespace

MountError::MountError(Brine::MountOptions const& options, Brine::MountStatus status,
                       std::string const& detail)
    : runtime_error(message(options, status, detail)) {}

TablePair::TablePair(std::string const& name, std::string place)
    : folder(std::move(place)),
      host(QorEvpn::hostTableFactory(Orb::Name(name + "/" + std::string(hostFile)))),
      flood(QorEvpn::floodTableFactory(Orb::Name(name + "/" + std::string(floodFile)))) {}

void TablePair::mountAsWriter(bool repair) {
  Agent::mountAsWriter(*host, folder, hostFile, repair);
  Agent::mountAsWriter(*flood, folder, floodFile, repair);
}

void TablePair::mountAsReader() {
  host->mount({.directory = folder, .name = std::string(hostFile), .mode = Brine::Mode::keyshadow});
  flood->mount({.directory = folder, .name = std::string(floodFile), .mode = Brine::Mode::keyshadow});
}

void TablePair::unmount() {
  host->unmount();
  flood->unmount();
}

bool TablePair::deliver(std::uint64_t limit) {
  bool const isMoreOfHosts = host->deliver(limit).isMore;
  bool const isMoreOfFloods = flood->deliver(limit).isMore;
  return !isMoreOfHosts && !isMoreOfFloods;
}

void TablePair::endTurn() {
  host->endTurn();
  flood->endTurn();
}

std::uint64_t TablePair::rows() const { return host->statistics().rows + flood->statistics().rows; }

std::uint64_t TablePair::laps() const { return host->statistics().laps + flood->statistics().laps; }

bool mustLookAgain(Brine::MountStatus status) {
  return status == Brine::MountStatus::noResources || status == Brine::MountStatus::notPermitted;
}

Follower::Follower(Loop& loop, TablePair& tables, Loop::Handler told, std::uint64_t limit)
    : loop_(loop), tables_(tables), told_(std::move(told)), limit_(limit), again_(loop, [this] {
        deliverSome();
      }) {
  mount();
  lookAgain();
}

Follower::~Follower() { unwatch(); }

void Follower::deliver(std::uint64_t limit) {
  // A table without a descriptor gets no event.
  bool const waits = tables_.host->fd() >= 0 && tables_.flood->fd() >= 0;
  if (!waits) {
    unwatch();
    tables_.unmount();
    mount();
  }
  isUpToDate_ = tables_.deliver(limit);
  lookAgain();
  told_();
}

void Follower::mount() {
  tables_.mountAsReader();
  for (int const fd : {tables_.host->fd(), tables_.flood->fd()}) {
    if (fd >= 0) loop_.watchInput(fd, [this] { deliverSome(); });
  }
}

void Follower::lookAgain() {
  bool const either =
      mustLookAgain(tables_.host->mountStatus()) || mustLookAgain(tables_.flood->mountStatus());
  if (either && !again_.isRunning()) again_.start(lookAgainDelay);
}

void Follower::unwatch() {
  loop_.unwatch(tables_.host->fd());
  loop_.unwatch(tables_.flood->fd());
}

}  // namespace Agent
