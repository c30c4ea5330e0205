#include "agent/Site.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

namespace Agent {

Site Site::made(std::string dir) {
  auto const fail = [&dir](int error, char const* what) {
    throw std::system_error(error, std::generic_category(), what + dir);
  };
  if (mkdir(dir.c_str(), 0755) == 0) {
    // Its readers need it, whatever the umask.
    if (chmod(dir.c_str(), 0755) != 0) fail(errno, "cannot open to readers: ");
  } else if (errno != EEXIST) {
    fail(errno, "cannot make the directory ");
  }
  struct stat status;
  if (stat(dir.c_str(), &status) != 0) fail(errno, "");
  if (!S_ISDIR(status.st_mode)) fail(ENOTDIR, "");
  // Whoever owns it could put other files in the place of root's.
  if (geteuid() == 0 && status.st_uid != 0) fail(EPERM, "root does not work in another user's directory, ");
  return Site(std::move(dir));
}

}  // namespace Agent
