#pragma once

#if QOREVPN_PEER_REDIS

#include <hiredis/hiredis.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Peer.h"

namespace Bench {

/// A Redis server of our own on a unix socket, without persistence. Not running if it is not installed.
class RedisServer {
 public:
  explicit RedisServer(Place const& place) : socket_(place.path() + "/redis.sock") {
    pid_ = ::fork();
    if (pid_ == 0) {
      std::string const directory = place.path();
      ::execlp("redis-server", "redis-server", "--port", "0", "--unixsocket", socket_.c_str(), "--save", "",
               "--appendonly", "no", "--dir", directory.c_str(), "--logfile", "/dev/null",
               "--client-output-buffer-limit", "pubsub", "0", "0", "0", nullptr);
      ::_exit(127);
    }
    for (int tries = 0; tries < 500 && !running_; ++tries) {
      ::usleep(10'000);
      if (::waitpid(pid_, nullptr, WNOHANG) == pid_) {
        pid_ = -1;
        return;
      }
      running_ = ::access(socket_.c_str(), R_OK) == 0;
    }
  }
  ~RedisServer() {
    if (pid_ <= 0) return;
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  RedisServer(RedisServer const&) = delete;
  RedisServer& operator=(RedisServer const&) = delete;

  bool isRunning() const { return running_; }
  std::string const& socket() const { return socket_; }

 private:
  std::string socket_;
  pid_t pid_ = -1;
  bool running_ = false;
};

/// A client's connection. Commands are pipelined, `depth` of them in flight.
class RedisStore {
 public:
  static constexpr char const* name = "Redis";
  static constexpr size_t depth = 500;

  explicit RedisStore(std::string const& socket) : context_(redisConnectUnix(socket.c_str())) {
    if (context_ == nullptr || context_->err != 0) fail("Redis does not answer");
  }
  ~RedisStore() { redisFree(context_); }
  RedisStore(RedisStore const&) = delete;
  RedisStore& operator=(RedisStore const&) = delete;

  void insert(std::span<QorEvpn::Host const> hosts) {
    pipelined(
        hosts, [](QorEvpn::Host const& host) { return Bytes(host); }, "SET", [](redisReply const&) {});
  }
  void overwrite(std::span<QorEvpn::Host const> hosts) { insert(hosts); }
  void remove(std::span<QorEvpn::MacVniPair const> keys) {
    pipelined(
        keys, [](QorEvpn::MacVniPair const& key) { return Bytes(key); }, "DEL", [](redisReply const&) {});
  }
  uint64_t find(std::span<QorEvpn::MacVniPair const> keys) {
    uint64_t sum = 0;
    pipelined(
        keys, [](QorEvpn::MacVniPair const& key) { return Bytes(key); }, "GET",
        [&](redisReply const& reply) {
          if (reply.type == REDIS_REPLY_STRING) sum += Bytes::sumOf(reply.str);
        });
    return sum;
  }
  /// Publishes each row to whoever subscribed.
  void publish(std::span<QorEvpn::Host const> hosts) {
    while (!hosts.empty()) {
      auto const some = hosts.first(std::min(depth, hosts.size()));
      hosts = hosts.subspan(some.size());
      for (QorEvpn::Host const& host : some) {
        Bytes const bytes(host);
        char const* words[] = {"PUBLISH", "host", bytes.key};
        size_t const sizes[] = {7, 4, sizeof bytes};
        redisAppendCommandArgv(context_, 3, words, sizes);
      }
      for (size_t i = 0; i < some.size(); ++i) takeReply([](redisReply const&) {});
    }
  }
  /// Subscribes, says so, and takes `count` rows.
  template <class Ready, class Take>
  void subscribe(uint64_t count, Ready const& ready, Take const& take) {
    redisAppendCommand(context_, "SUBSCRIBE host");
    takeReply([](redisReply const&) {});
    ready();
    for (; count != 0; --count) {
      takeReply(
          [&](redisReply const& reply) { take(Bytes::valueOf(reply.element[2]->str + sizeof(Bytes::key))); });
    }
  }
  double bytes() {
    auto* const reply = static_cast<redisReply*>(redisCommand(context_, "INFO memory"));
    std::string const text(reply->str, reply->len);
    freeReplyObject(reply);
    return std::stod(text.substr(text.find("used_memory:") + 12));
  }

 private:
  template <class Item, class ToBytes, class Action>
  void pipelined(std::span<Item const> items, ToBytes const& toBytes, char const* command,
                 Action const& action) {
    while (!items.empty()) {
      auto const some = items.first(std::min(depth, items.size()));
      items = items.subspan(some.size());
      for (Item const& item : some) {
        Bytes const bytes = toBytes(item);
        char const* const words[] = {command, bytes.key, bytes.value};
        size_t const sizes[] = {3, sizeof bytes.key, sizeof bytes.value};
        redisAppendCommandArgv(context_, command[0] == 'S' ? 3 : 2, const_cast<char const**>(words), sizes);
      }
      for (size_t i = 0; i < some.size(); ++i) takeReply(action);
    }
  }
  template <class Action>
  void takeReply(Action const& action) {
    void* reply = nullptr;
    if (redisGetReply(context_, &reply) != REDIS_OK) fail("Redis went away");
    action(*static_cast<redisReply const*>(reply));
    freeReplyObject(reply);
  }

  redisContext* context_;
};

}  // namespace Bench

#endif
