#include "agent/site/EvpnState.h"

#include "agent/site/Mount.h"

namespace Agent {

std::string_view toText(EvpnState::Capability capability) {
  switch (capability) {
    case EvpnState::Capability::unsaid: return "not said";
    case EvpnState::Capability::off: return "off";
    case EvpnState::Capability::on: return "on";
    case EvpnState::Capability::assumed: return "assumed";
  }
  return {};
}

void appendText(std::string& out, EvpnState const& state) {
  Orb::appendTexts(out, state.isWhole ? "whole" : "not whole", ", capability ", toText(state.capability));
}

EvpnStateWriter::EvpnStateWriter(std::string const& folder, bool repair) {
  mountAsWriter(table_, folder, EvpnState::file, repair);
  if (!table_.find(0)) stateIs({});
}

EvpnState EvpnStateWriter::state() const { return table_.find(0).value_or(EvpnState()); }

void EvpnStateWriter::stateIs(EvpnState const& state) {
  if (table_.find(0) != state) table_.write(state);
}

EvpnStateReader::EvpnStateReader(Loop& loop, std::string folder, Loop::Handler told)
    : loop_(loop), folder_(std::move(folder)), told_(std::move(told)), again_(loop, [this] {
        deliver();
        told_();
      }) {
  mount();
  take();
}

EvpnStateReader::~EvpnStateReader() { loop_.unwatch(table_.fd()); }

void EvpnStateReader::deliver() {
  if (table_.fd() < 0) {  // no descriptor was left, so no event will come
    table_.unmount();
    mount();
  }
  take();
}

void EvpnStateReader::mount() {
  table_.mount({.directory = folder_, .name = std::string(EvpnState::file), .mode = Brine::Mode::keyshadow});
  if (table_.fd() < 0) return;
  loop_.watchInput(table_.fd(), [this] {
    deliver();
    told_();
  });
}

/// If the row cannot be read now, the last one stays.
void EvpnStateReader::take() {
  table_.deliver();
  if (table_.isReadable()) {
    try {
      state_ = table_.find(0);
    } catch (Brine::CorruptionError const&) {
    }
  }
  if (mustLookAgain(table_.mountStatus()) && !again_.isRunning()) again_.start(lookAgainDelay);
}

}  // namespace Agent
