#include "Brine/Errors.h"

#include <cerrno>
#include <system_error>

namespace Brine {

MountFailure MountFailure::ofErrno(int error, std::string const& what) {
  MountStatus status = MountStatus::noResources;
  switch (error) {
    case ENOENT: status = MountStatus::noTable; break;
    case EACCES:
    case EPERM:
    case EROFS:
    case ELOOP:
    case EISDIR:
    case ENXIO:
    case ENOTDIR: status = MountStatus::notPermitted; break;
    case ENOSPC:
    case EDQUOT:
    case EFBIG: status = MountStatus::noSpace; break;
    default: break;
  }
  return {status, what + ": " + std::generic_category().message(error)};
}

}  // namespace Brine
