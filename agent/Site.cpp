#include "agent/Site.h"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace Agent {

void Site::create() const {
  if (mkdir(dir_.c_str(), 0755) != 0 && errno != EEXIST) {
    throw std::system_error(errno, std::generic_category(), "cannot make the directory " + dir_);
  }
}

}  // namespace Agent
