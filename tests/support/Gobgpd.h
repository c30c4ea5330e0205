#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/Child.h"
#include "support/Paths.h"

namespace TestSupport {

/// A BGP EVPN speaker, gobgpd, on a loopback address of this process's own. Speakers are numbered from 1;
/// each has AS 65000 + number, router identifier 10.99.0.number, and sessions with the others that it is told
/// of.
class Gobgpd {
 public:
  /// Runs when this returns; sessions take some seconds. `isGraceful`: restarts gracefully, where the
  /// neighbour does so too. A speaker of this version that has EVPN routes of its own ends with a panic when
  /// such a neighbour goes.
  Gobgpd(unsigned number, std::vector<unsigned> const& neighbours, bool isGraceful = false);

  void start();
  /// SIGKILL.
  void kill() { process_.reset(); }
  pid_t pid() const { return process_->pid(); }

  static unsigned asOf(unsigned number) { return 65000 + number; }
  unsigned as() const { return asOf(number_); }
  std::string routerId() const { return "10.99.0." + std::to_string(number_); }
  /// Where its interface is served, HOST:PORT.
  std::string endpoint() const { return ownLoopback(number_) + ":50051"; }
  /// Runs its command line client: the exit status.
  int command(std::string const& arguments) const;

 private:
  std::string client() const;

  unsigned number_;
  bool isGraceful_, hasRun_ = false;
  ScratchFolder folder_;
  std::unique_ptr<Child> process_;
};

}  // namespace TestSupport
