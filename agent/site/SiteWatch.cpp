#include "agent/site/SiteWatch.h"

#include <sys/inotify.h>

namespace Agent {

SiteWatch::SiteWatch(Loop& loop, Site const& site, std::function<void(std::string const&)> warn)
    : loop_(loop),
      dir_(site.dir()),
      warn_(std::move(warn)),
      events_(inotify_init1(IN_CLOEXEC | IN_NONBLOCK)) {
  if (!events_) return;
  std::uint32_t const removals = IN_DELETE | IN_MOVED_FROM | IN_DELETE_SELF | IN_MOVE_SELF;
  if (inotify_add_watch(events_.get(), dir_.c_str(), removals | IN_ONLYDIR) < 0) return;
  loop_.watchInput(events_.get(), [this] { read(); });
}

SiteWatch::~SiteWatch() {
  if (events_) loop_.unwatch(events_.get());
}

void SiteWatch::read() {
  alignas(inotify_event) char buffer[sizeof(inotify_event) + NAME_MAX + 1];
  if (::read(events_.get(), buffer, sizeof buffer) <= 0) return;
  inotify_event const* const event = static_cast<inotify_event const*>(static_cast<void const*>(buffer));
  std::string const what = event->len == 0 ? dir_ : dir_ + '/' + event->name;
  warn_(what + " was removed: nobody sees what is written from now on; start again");
  loop_.unwatch(events_.get());
}

}  // namespace Agent
