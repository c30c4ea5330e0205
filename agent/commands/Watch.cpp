#include "agent/commands/Watch.h"

#include <poll.h>
#include <signal.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <set>
#include <unordered_map>
#include <utility>

#include "agent/base/Log.h"
#include "agent/base/Signals.h"
#include "agent/commands/Commands.h"
#include "agent/site/Mount.h"
#include "agent/tables/Tables.h"
#include "agent/views/Json.h"

namespace Agent {

namespace {

/// Watches one table for the loop below, which polls `fd()`.
class Watcher {
 public:
  virtual ~Watcher() = default;
  /// Writes changes, and changes of the mount status. False when the writer has ended and the watch ends with
  /// it; raises if there is nothing to watch.
  virtual bool deliver() = 0;
  virtual int fd() const = 0;
  virtual bool isToLookAgain() const = 0;
  virtual int exitStatus() const = 0;
};

template <class Row>
class RowWatcher : public Watcher {
 public:
  RowWatcher(WatchOptions const& options, TablePlace const& place, Output& out)
      : options_(options), place_(place), out_(out), colours_(out.hasColours()) {
    table_.onChanged = [this](Key const& key) { changed(key); };
    table_.onCorruption = [this](std::string const& text) {
      std::cerr << "qorevpn: " << place_.label() << ": " << text << "; `qorevpn check` says more\n";
      exitStatus_ = exitFailed;
    };
  }

  bool deliver() override {
    // A table without a descriptor gets no event.
    if (table_.fd() < 0) mount();
    tell();
    bool const isOver = !options_.stay && status_ != Brine::MountStatus::mounted;
    if (isOver) end();
    return !isOver;
  }

  int fd() const override { return table_.fd(); }
  bool isToLookAgain() const override { return mustLookAgain(status_); }
  int exitStatus() const override { return exitStatus_; }

 private:
  using Codec = Brine::Codec<Row>;
  using Key = typename Codec::Key;
  struct Hash {
    std::size_t operator()(Key const& key) const {
      std::uint64_t words[Codec::keyWords];
      Codec::encodeKey(key, words);
      return Codec::hash(words);
    }
  };

  void mount() {
    table_.unmount();
    table_.mount({.directory = place_.directory(Site(options_.dir)),
                  .name = std::string(place_.file),
                  .mode = Brine::Mode::keyshadow});
    if (status_ != Brine::MountStatus::unmounted) return;
    statusMarker();
    // Rows of a table that did not exist before are changes.
    isSynchronised_ = status_ == Brine::MountStatus::noTable && options_.stay;
  }

  std::string now() const { return options_.now ? options_.now() : options_.json ? utcTime() : localTime(); }

  /// Writes the changes of a delivery. Its lines are kept until it is known whether a marker must precede
  /// them.
  void tell() {
    batch_.clear();
    time_ = now();
    table_.deliver();
    bool const isMounted = table_.mountStatus() == Brine::MountStatus::mounted;
    if (isMounted) statusMarker();
    if (char const* const reason = comparisonReason()) marker("resynchronised", reason);
    isSynchronised_ = isSynchronised_ || Brine::isReadable(table_.mountStatus());
    out_.write(batch_);
    if (!isMounted) statusMarker();
  }

  /// Why the last delivery compared the whole table with what was shown; null if it did not. The first one
  /// always does.
  char const* comparisonReason() {
    Brine::Statistics const now = table_.statistics();
    if (now.generation == 0) return nullptr;  // nothing mounted
    Brine::Statistics const last = std::exchange(last_, now);
    if (last.generation == 0) return nullptr;
    if (now.generation != last.generation) return "the table was made anew";
    if (now.incarnation != last.incarnation) return "the writer started again";
    return now.laps != last.laps ? "the writer was faster than this reader" : nullptr;
  }

  void changed(Key const& key) {
    std::optional<Row> const after = table_.find(key);
    auto const known = rows_.find(key);
    std::optional<Row> const before = known == rows_.end() ? std::nullopt : std::optional<Row>(known->second);
    if (after) {
      rows_.insert_or_assign(key, *after);
    } else if (before) {
      rows_.erase(known);
    }
    if (before == after || (!isSynchronised_ && !options_.initial)) return;
    if ((before && matches(options_.filter, *before)) || (after && matches(options_.filter, *after)))
      line(before, after);
  }

  void line(std::optional<Row> const& before, std::optional<Row> const& after) {
    std::string_view const event = !isSynchronised_ ? "present"
                                   : !before        ? "added"
                                   : !after         ? "removed"
                                                    : "changed";
    if (options_.json) {
      nlohmann::ordered_json object = {{"time", time_},
                                       {"table", place_.label()},
                                       {"event", event},
                                       {"before", nullptr},
                                       {"after", nullptr}};
      if (before) object["before"] = rowJson(*before);
      if (after) object["after"] = rowJson(*after);
      Orb::appendTexts(batch_, object.dump(), "\n");
      return;
    }
    std::string_view const colour = !before ? colours_.added : !after ? colours_.removed : colours_.changed;
    Orb::appendTexts(batch_, colours_.faint, time_, colours_.reset, "  ", title(), colour, event,
                     colours_.reset);
    batch_.append(std::string_view("present  ").size() - event.size(), ' ');
    if (options_.text) {
      if (before) Orb::appendTexts(batch_, *before);
      if (before && after) Orb::appendTexts(batch_, " -> ");
      if (after) Orb::appendTexts(batch_, *after);
    } else {
      std::string_view gap;
      for (Field<Row> const& field : TableKind<Row>::fields()) {
        Orb::appendTexts(batch_, gap, field.member, " ", field.text(before ? *before : *after));
        if (before && after && field.text(*before) != field.text(*after)) {
          Orb::appendTexts(batch_, " -> ", colour, field.text(*after), colours_.reset);
        }
        gap = "  ";
      }
    }
    batch_ += '\n';
  }

  void marker(std::string_view event, std::string_view reason) {
    if (options_.json) {
      out_.write(toLine({{"time", time_}, {"table", place_.label()}, {"event", event}, {"reason", reason}}),
                 "\n");
    } else {
      out_.write(colours_.faint, time_, "  ", title(), "-- ", event, ": ", reason, colours_.reset, "\n");
    }
  }

  /// Which table a line is about, where several are watched.
  std::string title() const { return options_.subjects.size() > 1 ? std::string(place_.word) + ": " : ""; }

  /// Writes the mount status where the watch continues without a writer.
  void statusMarker() {
    if (status_ == table_.mountStatus()) return;
    status_ = table_.mountStatus();
    hadWriter_ = hadWriter_ || status_ == Brine::MountStatus::mounted;
    if (!options_.stay) return;
    time_ = now();
    marker(Brine::toText(status_),
           status_ == Brine::MountStatus::mounted ? place_.label() : explain(table_, place_));
  }

  void end() {
    std::string const text = explain(table_, place_);
    if (!hadWriter_ || status_ != Brine::MountStatus::writerGone) throw std::runtime_error(text);
    if (options_.json) {
      marker(Brine::toText(status_), text);
      out_.flush();
    }
    std::cerr << "qorevpn: the end: " << text << '\n';
  }

  WatchOptions const& options_;
  TablePlace const place_;
  Output& out_;
  Colours const colours_;
  Brine::Table<Row> table_;
  Brine::MountStatus status_ = Brine::MountStatus::unmounted;
  bool hadWriter_ = false;
  std::unordered_map<Key, Row, Hash> rows_;
  /// The first delivery is complete: `rows_` was the whole table then, later changes are written.
  bool isSynchronised_ = false;
  Brine::Statistics last_;
  std::string batch_;
  std::string time_;
  int exitStatus_ = exitOk;
};

using Watchers = std::vector<std::unique_ptr<Watcher>>;

Watchers watchersOf(WatchOptions const& options, Output& out) {
  Watchers watchers;
  std::set<std::string_view> seen;
  for (std::string const& subject : options.subjects) {
    if (!seen.insert(subject).second) continue;
    TablePlace const place = placeOf(subject, options.learned, options.filter);
    withRow(place, [&]<class Row>(std::type_identity<Row>) {
      watchers.push_back(std::make_unique<RowWatcher<Row>>(options, place, out));
    });
  }
  return watchers;
}

/// All rows of the beginning have been written; later lines are changes.
void initialEnd(WatchOptions const& options, Output& out) {
  Colours const colours(out.hasColours());
  if (options.json) {
    out.write("{\"event\":\"initial-end\"}\n");
  } else {
    out.write(colours.faint, localTime(), "  -- initial-end: what was there is above, changes follow",
              colours.reset, "\n");
  }
}

int watchAll(WatchOptions const& options, Output& out, int stopFd) {
  Watchers watchers = watchersOf(options, out);
  int status = exitOk;
  for (bool isFirst = true; !watchers.empty(); isFirst = false) {
    std::erase_if(watchers, [&](auto const& watcher) {
      bool const goesOn = watcher->deliver();
      if (watcher->exitStatus() != exitOk) status = watcher->exitStatus();
      return !goesOn;
    });
    if (isFirst && options.initial) initialEnd(options, out);
    out.flush();
    std::vector<pollfd> waits = {{stopFd, POLLIN, 0}, {out.fd(), 0, 0}};
    int timeout = -1;
    for (auto const& watcher : watchers) {
      waits.push_back({watcher->fd(), POLLIN, 0});
      if (watcher->isToLookAgain())
        timeout = static_cast<int>(std::chrono::milliseconds(lookAgainDelay).count());
    }
    if (watchers.empty()) break;
    if (poll(waits.data(), waits.size(), timeout) < 0 && errno != EINTR) throwErrno("poll");
    if (waits[0].revents != 0 || waits[1].revents != 0) break;
  }
  return status;
}

}  // namespace

struct TableWatch::Parts {
  WatchOptions options;
  Watchers watchers;
};

TableWatch::TableWatch(WatchOptions options, Output& out)
    : parts_(std::make_unique<Parts>(Parts{std::move(options), {}})) {
  parts_->watchers = watchersOf(parts_->options, out);
}

TableWatch::~TableWatch() = default;

void TableWatch::deliver() {
  for (auto const& watcher : parts_->watchers) watcher->deliver();
}

int watch(WatchOptions const& options, Output& out, int stopFd) {
  out.stopFdIs(stopFd);
  try {
    return watchAll(options, out, stopFd);
  } catch (OutputClosed const&) {
    return exitOk;
  }
}

void addWatchCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<WatchOptions>();
  CLI::App* const command = app.add_subcommand("watch", "Watch the changes of tables");
  command->add_option("what", options->subjects, "hosts, floods, bridge-ids, state; one or more")
      ->required()
      ->check(CLI::IsMember(tableWords()));
  addViewOptions(*command, *options);
  addRowOptions(*command, *options);
  command->add_flag("--initial", options->initial,
                    "Begin with the rows that are there, and a line `initial-end` behind them");
  command->add_flag("--stay", options->stay,
                    "Wait for the table, and for the next writer when this one ends");
  command->footer(
      "A line a change: added, changed (before -> after) or removed. Ends when the writer of the table "
      "ends.\n"
      "With --json each line is an object: time, table, event, before, after.\n\n"
      "Examples:\n"
      "  qorevpn watch hosts                          what the agent exports, as it changes\n"
      "  qorevpn watch hosts --learned --vni 5000     what EVPN learned in one VNI\n"
      "  qorevpn watch hosts floods --initial --stay --json | jq -c .after");
  command->callback([options, &run] {
    run = [options] {
      Fd const stopFd = signalFd({SIGINT, SIGTERM});
      Output out(STDOUT_FILENO);
      return watch(*options, out, stopFd.get());
    };
  });
}

}  // namespace Agent
