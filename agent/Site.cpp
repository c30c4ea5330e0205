#include "agent/Site.h"

#include <sys/stat.h>

#include <cerrno>
#include <system_error>

namespace Agent {

Site Site::made(std::string dir) {
  if (mkdir(dir.c_str(), 0755) != 0 && errno != EEXIST) {
    throw std::system_error(errno, std::generic_category(), "cannot make the directory " + dir);
  }
  return Site(std::move(dir));
}

}  // namespace Agent
