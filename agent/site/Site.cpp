#include "agent/site/Site.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

#include "agent/base/UsageError.h"

namespace Agent {

Site::Site(std::string dir) : dir_(std::move(dir)) {
  // A socket's address ends with a zero byte.
  constexpr std::size_t socketLimit = sizeof(sockaddr_un::sun_path) - 1;
  if (std::size_t const size = controlSocket().size(); size > socketLimit) {
    throw UsageError(dir_ + ": longer than the " + std::to_string(dir_.size() - (size - socketLimit)) +
                     " bytes that the address of a control socket leaves to a site's directory");
  }
}

Site Site::made(std::string dir) {
  Site site(dir);
  auto const fail = [&dir](int error, char const* what) {
    throw std::system_error(error, std::generic_category(), what + dir);
  };
  if (mkdir(dir.c_str(), 0755) == 0) {
    // Readers need these permissions; the umask must not remove them.
    if (chmod(dir.c_str(), 0755) != 0) fail(errno, "cannot open to readers: ");
  } else if (errno != EEXIST) {
    fail(errno, "cannot make the directory ");
  }
  struct stat status;
  if (stat(dir.c_str(), &status) != 0) fail(errno, "");
  if (!S_ISDIR(status.st_mode)) fail(ENOTDIR, "");
  // Its owner could replace root's files.
  if (geteuid() == 0 && status.st_uid != 0) fail(EPERM, "root does not work in another user's directory, ");
  return site;
}

}  // namespace Agent
