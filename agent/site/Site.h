/// Agent::Site: the paths of a site's files. agent/tables lists its tables.
///
///   DIR/              0755; --dir, by default a directory of its own below /dev/shm
///     exported/       tables that the agent writes and the EVPN side reads
///       state         whether these tables are whole (agent/site/EvpnState.h)
///     learned/        tables that the EVPN side writes and the agent reads
///       state         the EVPN side's capability, and whether its tables are whole
///       control       socket of the running EVPN side
///     control         socket of the running agent (agent/site/Control.h)
///
/// Each folder of tables is made by its writer, so that the EVPN side may run as another user. In that case
/// create `learned` for that user first: only the owner may write to the site's directory.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

class Site {
 public:
  static constexpr std::string_view defaultDir = "/dev/shm/qorevpn";

  /// Raises UsageError if the path is too long for the control socket.
  explicit Site(std::string dir = std::string(defaultDir));

  std::string const& dir() const { return dir_; }
  std::string exported() const { return dir_ + "/exported"; }
  std::string learned() const { return dir_ + "/learned"; }
  std::string controlSocket() const { return dir_ + "/control"; }
  /// The EVPN side's control socket, in the folder that it may write.
  std::string evpnControlSocket() const { return learned() + "/control"; }

  /// Makes the site's directory, without its folders, and returns the site. Raises std::system_error naming
  /// the directory, also if the path is not a directory, or if this process is root's and the directory
  /// another user's; UsageError as above.
  static Site made(std::string dir);

 private:
  std::string dir_;
};

}  // namespace Agent
