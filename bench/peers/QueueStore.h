#pragma once

#if QOREVPN_PEER_BOOST

#pragma GCC system_header  // Boost's templates do not meet this project's warnings.

#include <unistd.h>

#include <boost/interprocess/ipc/message_queue.hpp>

#include "Peer.h"

namespace Bench {

/// Boost's message queue in shared memory: one reader each, since a message goes to whoever takes it first.
/// The writer waits for a reader that is slow.
class QueueStore {
 public:
  explicit QueueStore(unsigned number)
      : name_("qorevpn-bench-queue-" + std::to_string(::getpid()) + "-" + std::to_string(number)),
        owner_(true) {
    using namespace boost::interprocess;
    message_queue::remove(name_.c_str());
    queue_ = std::make_unique<message_queue>(create_only, name_.c_str(), 8192, sizeof(QorEvpn::Host));
  }
  explicit QueueStore(std::string const& name) : name_(name), owner_(false) {
    using namespace boost::interprocess;
    queue_ = std::make_unique<message_queue>(open_only, name_.c_str());
  }
  ~QueueStore() {
    if (owner_) boost::interprocess::message_queue::remove(name_.c_str());
  }
  QueueStore(QueueStore const&) = delete;
  QueueStore& operator=(QueueStore const&) = delete;

  std::string const& name() const { return name_; }
  void send(QorEvpn::Host const& host) { queue_->send(&host, sizeof host, 0); }
  uint64_t receive() {
    QorEvpn::Host host;
    size_t size = 0;
    unsigned priority = 0;
    queue_->receive(&host, sizeof host, size, priority);
    return sumOf(host);
  }

 private:
  std::string name_;
  bool owner_;
  std::unique_ptr<boost::interprocess::message_queue> queue_;
};

}  // namespace Bench

#endif
