#include "agent/base/Loop.h"

#include <signal.h>
#include <sys/epoll.h>
#include <sys/timerfd.h>

#include <algorithm>
#include <array>

#include "agent/base/Signals.h"

namespace Agent {

Loop::Loop() : epoll_(checked(epoll_create1(EPOLL_CLOEXEC), "epoll_create1")) {}

void Loop::watch(int fd, Handler handler, std::uint32_t events) {
  epoll_event event{};
  event.events = events;
  event.data.fd = fd;
  int const operation = handlers_.contains(fd) ? EPOLL_CTL_MOD : EPOLL_CTL_ADD;
  checked(epoll_ctl(epoll_.get(), operation, fd, &event), "epoll_ctl");
  handlers_[fd] = std::make_shared<Handler>(std::move(handler));
}

void Loop::watchInput(int fd, Handler handler) { watch(fd, std::move(handler), EPOLLIN); }

void Loop::unwatch(int fd) {
  if (handlers_.erase(fd) != 0) epoll_ctl(epoll_.get(), EPOLL_CTL_DEL, fd, nullptr);
}

void Loop::takeSignals() {
  signals_ = signalFd({SIGHUP, SIGINT, SIGTERM});
  watchInput(signals_.get(), [this] {
    int const signal = takeSignal(signals_);
    if (signal == SIGHUP && hangup_) hangup_();
    if (signal == 0 || signal == SIGHUP) return;
    stopSignal_ = signal;
    stop();
  });
}

void Loop::run() {
  while (!stopped_) turn();
  stopped_ = false;
}

void Loop::turn() {
  std::array<epoll_event, 16> events;
  int const count = epoll_wait(epoll_.get(), events.data(), static_cast<int>(events.size()), -1);
  if (count < 0 && errno != EINTR) throwErrno("epoll_wait");
  for (int i = 0; i < count && !stopped_; ++i) {
    // An earlier handler of this turn may have taken this one off.
    auto const found = handlers_.find(events[static_cast<std::size_t>(i)].data.fd);
    if (found == handlers_.end()) continue;
    auto const handler = found->second;
    (*handler)();
  }
  if (turnEnd_) turnEnd_();
}

Timer::Timer(Loop& loop, Loop::Handler handler)
    : loop_(loop), timer_(checked(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK), "timerfd")) {
  loop_.watchInput(timer_.get(), [this, handler = std::move(handler)] {
    std::uint64_t expirations;
    if (read(timer_.get(), &expirations, sizeof expirations) < 0) return;
    running_ = false;
    handler();
  });
}

Timer::~Timer() { loop_.unwatch(timer_.get()); }

void Timer::start(std::chrono::nanoseconds delay) {
  // A delay of zero would switch the timer off.
  auto const wait = std::max(delay, std::chrono::nanoseconds(1));
  auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(wait);
  itimerspec setting{};
  setting.it_value.tv_sec = seconds.count();
  setting.it_value.tv_nsec = (wait - seconds).count();
  checked(timerfd_settime(timer_.get(), 0, &setting, nullptr), "timerfd_settime");
  running_ = true;
}

void Timer::cancel() {
  itimerspec const off{};
  checked(timerfd_settime(timer_.get(), 0, &off, nullptr), "timerfd_settime");
  running_ = false;
}

}  // namespace Agent
