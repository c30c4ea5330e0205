#pragma once

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cstdint>
#include <string>

#include "agent/AgentSite.h"
#include "agent/base/Fd.h"
#include "support/Child.h"
#include "support/Paths.h"

namespace TestSupport {

/// Stands between a client and its server and hands on what either says, of the server only as much as is
/// allowed: a test can stop it at any octet of an answer. The script beside this does so.
class Relay {
 public:
  /// Each is "unix:PATH" or "HOST:PORT".
  Relay(std::string const& listens, std::string const& server)
      : endpoint_(listens),
        state_(::open((folder_.path() + "/state").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600)),
        process_([&, this](Child&) {
          open();
          execute({sourcePath("tests/live/relay"), listens, server, folder_.path() + "/state"}, "/dev/null");
        }) {
    std::array<std::uint64_t, 3> all;  // there once it listens
    EXPECT_TRUE(becomes([&] { return ::pread(state_.get(), all.data(), sizeof all, 0) == sizeof all; }));
  }

  std::string const& endpoint() const { return endpoint_; }
  /// From now on the server may tell so many octets more.
  void allow(std::uint64_t octets) const { allowedIs(words()[1] + octets); }
  void open() const { allowedIs(none); }
  /// All that was allowed is used up, and the server says more.
  bool isStuck() const { return words()[2] != none && words()[2] >= words()[0]; }

 private:
  static constexpr std::uint64_t none = ~std::uint64_t{0};
  std::array<std::uint64_t, 3> words() const {
    std::array<std::uint64_t, 3> all{none, 0, none};
    EXPECT_GE(::pread(state_.get(), all.data(), sizeof all, 0), 0);
    return all;
  }
  void allowedIs(std::uint64_t count) const { EXPECT_EQ(::pwrite(state_.get(), &count, sizeof count, 0), 8); }

  ScratchFolder folder_;
  std::string endpoint_;
  Agent::Fd state_;
  Child process_;
};

}  // namespace TestSupport
