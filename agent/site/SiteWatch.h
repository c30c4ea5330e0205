/// Agent::SiteWatch: detects that a site's directory, or a folder in it, is removed while the agent runs.
#pragma once

#include <functional>
#include <string>

#include "agent/base/Loop.h"
#include "agent/site/Site.h"

namespace Agent {

/// A writer does not notice that the files of its tables were removed, and no reader sees what it writes from
/// then on. This object warns from the loop, once of a folder and once of the directory. The loop must
/// outlive it.
class SiteWatch {
 public:
  /// `warn` takes one line for people. If the system has no file watch left, nothing is detected.
  SiteWatch(Loop& loop, Site const& site, std::function<void(std::string const&)> warn);
  ~SiteWatch();
  SiteWatch(SiteWatch const&) = delete;
  SiteWatch& operator=(SiteWatch const&) = delete;

 private:
  void read();
  void say();

  Loop& loop_;
  std::string dir_;
  std::function<void(std::string const&)> warn_;
  Fd events_;
  std::string removed_;  ///< What was removed first, or the directory itself.
  bool isSaid_ = false;  ///< The former was said.
  Timer timer_;          ///< Until it looks for the directory.
};

}  // namespace Agent
