#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/Child.h"
#include "support/Paths.h"

namespace TestSupport {

/// Runs a command of a shell; its standard output. A check fails where its exit status is not 0.
std::string shell(std::string const& command);

/// Runs a command that asks a server until it succeeds, which it does once the server listens and answers.
void awaitAnswer(std::string const& command);

/// A hardware_vtep database in a folder of its own, served by the packaged server.
class Database {
 public:
  /// `options`: further ones of the server, such as --remote.
  explicit Database(std::vector<std::string> options = {});

  std::string const& folder() const { return folder_.path(); }
  std::string endpoint() const { return "unix:" + folder() + "/db.sock"; }
  /// The port that the server chose for a remote such as "pssl:0:127.0.0.1".
  std::string port() const;

  void start();
  void kill() { server_.reset(); }
  pid_t pid() const { return server_->pid(); }
  /// A command of vtep-ctl; its output.
  std::string vtep(std::string const& command) const;
  /// The rows of a table of remote MACs, each "MAC LOGICAL-SWITCH VTEP...", in order.
  std::vector<std::string> remoteMacs(std::string const& logicalSwitch) const;
  std::size_t rows(std::string const& table) const;

 private:
  ScratchFolder folder_;
  std::vector<std::string> options_;
  std::unique_ptr<Child> server_;
};

}  // namespace TestSupport
