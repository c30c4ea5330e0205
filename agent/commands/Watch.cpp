#include "agent/commands/Watch.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <time.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <unordered_map>
#include <utility>

#include "agent/base/Fd.h"
#include "agent/commands/Commands.h"
#include "agent/site/Mount.h"
#include "agent/views/Json.h"

namespace Agent {

namespace {

/// Now, "2026-11-21T03:41:02.123Z"; for people the local time of day, "03:41:02.123".
std::string timeText(bool forPeople) {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  tm parts{};
  char text[32];
  std::size_t length;
  if (forPeople) {
    localtime_r(&now.tv_sec, &parts);
    length = strftime(text, sizeof text, "%H:%M:%S", &parts);
  } else {
    gmtime_r(&now.tv_sec, &parts);
    length = strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &parts);
  }
  std::string result(text, length);
  std::string const milliseconds = std::to_string(1000 + now.tv_nsec / 1000000);
  Orb::appendTexts(result, ".", std::string_view(milliseconds).substr(1), forPeople ? "" : "Z");
  return result;
}

template <class Row>
class Watcher {
 public:
  Watcher(WatchOptions const& options, TablePlace const& place, Output& out)
      : options_(options), place_(place), out_(out), colours_(out.hasColours()) {
    table_.onChanged = [this](Key const& key) { changed(key); };
    table_.onCorruption = [this](std::string const& text) {
      std::cerr << "qorevpn: " << place_.label() << ": " << text << "; `qorevpn check` says more\n";
      exitStatus_ = exitFailed;
    };
  }

  int run(int stopFd) {
    mount();
    statusMarker();
    // What comes to a table that was not there yet is news.
    isSynchronised_ = status_ == Brine::MountStatus::noTable && options_.stay;
    for (;;) {
      deliver();
      out_.flush();
      if (!options_.stay && status_ != Brine::MountStatus::mounted) return end();
      std::array<pollfd, 3> waits = {{{table_.fd(), POLLIN, 0}, {stopFd, POLLIN, 0}, {out_.fd(), 0, 0}}};
      int const timeout =
          mustLookAgain(status_) ? static_cast<int>(std::chrono::milliseconds(lookAgainDelay).count()) : -1;
      if (poll(waits.data(), waits.size(), timeout) < 0 && errno != EINTR) throwErrno("poll");
      if (waits[1].revents != 0 || waits[2].revents != 0) return exitStatus_;
      // Without a descriptor the table does not even wait.
      if (table_.fd() < 0) mount();
    }
  }

 private:
  using Codec = Brine::Codec<Row>;
  using Key = typename Codec::Key;
  struct Hash {
    std::size_t operator()(Key const& key) const { return key.hash(); }
  };

  void mount() {
    table_.unmount();
    table_.mount(place_.options(Site(options_.dir), Brine::Mode::keyshadow));
  }

  /// Writes what a delivery tells. Its lines are kept until it is known whether a marker must precede them.
  void deliver() {
    batch_.clear();
    time_ = timeText(options_.form() != Form::json);
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
    if ((before && options_.filter.matches(*before)) || (after && options_.filter.matches(*after)))
      line(before, after);
  }

  void line(std::optional<Row> const& before, std::optional<Row> const& after) {
    std::string_view const event = !isSynchronised_ ? "present"
                                   : !before        ? "added"
                                   : !after         ? "removed"
                                                    : "changed";
    if (options_.json) {
      nlohmann::ordered_json object = {
          {"time", time_}, {"event", event}, {"before", nullptr}, {"after", nullptr}};
      if (before) object["before"] = rowJson(*before);
      if (after) object["after"] = rowJson(*after);
      Orb::appendTexts(batch_, object.dump(), "\n");
      return;
    }
    std::string_view const colour = !before ? colours_.added : !after ? colours_.removed : colours_.changed;
    Orb::appendTexts(batch_, colours_.faint, time_, colours_.reset, "  ", colour, event, colours_.reset);
    batch_.append(std::string_view("present  ").size() - event.size(), ' ');
    if (options_.text) {
      if (before) Orb::appendTexts(batch_, *before);
      if (before && after) Orb::appendTexts(batch_, " -> ");
      if (after) Orb::appendTexts(batch_, *after);
    } else {
      std::string_view gap;
      for (Column<Row> const& column : columnsOf<Row>()) {
        Orb::appendTexts(batch_, gap, column.member, " ", column.text(before ? *before : *after));
        if (before && after && column.text(*before) != column.text(*after)) {
          Orb::appendTexts(batch_, " -> ", colour, column.text(*after), colours_.reset);
        }
        gap = "  ";
      }
    }
    batch_ += '\n';
  }

  void marker(std::string_view event, std::string_view reason) {
    if (options_.json) {
      out_.write(toLine({{"time", time_}, {"event", event}, {"reason", reason}}), "\n");
    } else {
      out_.write(colours_.faint, time_, "  -- ", event, ": ", reason, colours_.reset, "\n");
    }
  }

  /// Where the watch goes on whatever becomes of the table, says what became of it.
  void statusMarker() {
    if (status_ == table_.mountStatus()) return;
    status_ = table_.mountStatus();
    hadWriter_ = hadWriter_ || status_ == Brine::MountStatus::mounted;
    if (!options_.stay) return;
    time_ = timeText(options_.form() != Form::json);
    marker(Brine::toText(status_),
           status_ == Brine::MountStatus::mounted ? place_.label() : explain(table_, place_));
  }

  int end() {
    std::string const text = explain(table_, place_);
    if (!hadWriter_ || status_ != Brine::MountStatus::writerGone) throw std::runtime_error(text);
    if (options_.json) {
      marker(Brine::toText(status_), text);
      out_.flush();
    }
    std::cerr << "qorevpn: the end: " << text << '\n';
    return exitStatus_;
  }

  WatchOptions const& options_;
  TablePlace const place_;
  Output& out_;
  Colours const colours_;
  Brine::Table<Row> table_;
  Brine::MountStatus status_ = Brine::MountStatus::unmounted;
  bool hadWriter_ = false;
  std::unordered_map<Key, Row, Hash> rows_;
  /// The first delivery is behind us: `rows_` was the whole table then, what comes now is news.
  bool isSynchronised_ = false;
  Brine::Statistics last_;
  std::string batch_;
  std::string time_;
  int exitStatus_ = exitOk;
};

}  // namespace

int watch(WatchOptions const& options, Output& out, int stopFd) {
  TablePlace const place = placeOf(options.subject, options.learned, options.filter);
  out.stopFdIs(stopFd);
  try {
    return withKind(place.kind, [&]<class Row>(std::type_identity<Row>) {
      return Watcher<Row>(options, place, out).run(stopFd);
    });
  } catch (OutputClosed const&) {
    return exitOk;
  }
}

void addWatchCommand(CLI::App& app, Run& run) {
  auto const options = std::make_shared<WatchOptions>();
  CLI::App* const command = app.add_subcommand("watch", "Watch the changes of a table");
  command->add_option("what", options->subject, "hosts, floods or bridge-ids")
      ->required()
      ->check(CLI::IsMember({"hosts", "floods", "bridge-ids"}));
  addViewOptions(*command, *options);
  addRowOptions(*command, *options);
  command->add_flag("--initial", options->initial, "Begin with the rows that are there");
  command->add_flag("--stay", options->stay,
                    "Wait for the table, and for the next writer when this one ends");
  command->footer(
      "A line a change: added, changed (before -> after) or removed. Ends when the writer of the table "
      "ends.\n"
      "With --json each line is an object: time, event, before, after.\n\n"
      "Examples:\n"
      "  qorevpn watch hosts                          what the agent exports, as it changes\n"
      "  qorevpn watch hosts --learned --vni 5000     what EVPN learned in one VNI\n"
      "  qorevpn watch floods --initial --stay --json | jq -c .after");
  command->callback([options, &run] {
    run = [options] {
      sigset_t stops;
      sigemptyset(&stops);
      sigaddset(&stops, SIGINT);
      sigaddset(&stops, SIGTERM);
      sigprocmask(SIG_BLOCK, &stops, nullptr);
      Fd const stopFd(checked(signalfd(-1, &stops, SFD_CLOEXEC), "signalfd"));
      Output out(STDOUT_FILENO);
      return watch(*options, out, stopFd.get());
    };
  });
}

}  // namespace Agent
