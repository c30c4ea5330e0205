/// Agent::SiteWatch: notices that a site's directory, or what stands in it, is removed under a running agent.
#pragma once

#include <functional>
#include <string>

#include "agent/base/Loop.h"
#include "agent/site/Site.h"

namespace Agent {

/// Whoever writes tables whose files have been removed goes on without noticing, and nobody sees what it
/// writes. Says so once, from the loop, which outlives this.
class SiteWatch {
 public:
  /// `warn` takes one line for people. Where the system has no watch left, nothing is noticed.
  SiteWatch(Loop& loop, Site const& site, std::function<void(std::string const&)> warn);
  ~SiteWatch();
  SiteWatch(SiteWatch const&) = delete;
  SiteWatch& operator=(SiteWatch const&) = delete;

 private:
  void read();

  Loop& loop_;
  std::string dir_;
  std::function<void(std::string const&)> warn_;
  Fd events_;
};

}  // namespace Agent
