#include "agent/site/SiteWatch.h"

#include <sys/inotify.h>

#include <filesystem>
#include <utility>

namespace Agent {

SiteWatch::SiteWatch(Loop& loop, Site const& site, std::function<void(std::string const&)> warn)
    : loop_(loop),
      dir_(site.dir()),
      warn_(std::move(warn)),
      events_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      timer_(loop, [this] { say(); }) {
  if (!events_) return;
  std::uint32_t const removals = IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF;
  if (inotify_add_watch(events_.get(), dir_.c_str(), removals | IN_ONLYDIR) < 0) return;
  loop_.watchInput(events_.get(), [this] { read(); });
}

SiteWatch::~SiteWatch() {
  if (events_) loop_.unwatch(events_.get());
}

/// Looks for the directory itself and the folders in it; sockets come and go.
void SiteWatch::read() {
  alignas(inotify_event) char buffer[4096];
  ssize_t const size = ::read(events_.get(), buffer, sizeof buffer);
  for (char const* at = buffer; at < buffer + size && removed_.empty();) {
    inotify_event const* const event = static_cast<inotify_event const*>(static_cast<void const*>(at));
    if (event->len == 0) removed_ = dir_;
    if ((event->mask & IN_ISDIR) != 0 && event->len != 0) removed_ = dir_ + '/' + event->name;
    at += sizeof *event + event->len;
  }
  if (removed_.empty()) return;
  loop_.unwatch(events_.get());
  timer_.start(std::chrono::milliseconds(200));
}

/// The folders go before the directory that holds them, so the first removal says too little.
void SiteWatch::say() {
  std::error_code ignored;
  bool const isGone = removed_ == dir_ || !std::filesystem::exists(dir_, ignored);
  if (isGone) removed_ = dir_;
  if (isGone || !std::exchange(isSaid_, true))
    warn_(removed_ + " was removed: nobody sees what is written from now on; start again");
  if (!isGone) timer_.start(std::chrono::seconds(1));
}

}  // namespace Agent
