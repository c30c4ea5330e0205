/// Agent::Site: the places of a site. Which tables it has, agent/tables says.
///
///   DIR/              0755; --dir, by default a directory of its own below /dev/shm
///     exported/       tables that the agent writes and the EVPN side reads
///       state         whether they are whole
///     learned/        tables that the EVPN side writes and the agent reads
///       state         what the EVPN side says of itself: capability, whole (agent/site/EvpnState.h)
///       control       socket of the running EVPN side
///     control         socket of the running agent (agent/site/Control.h)
///
/// The two folders of tables are made by their writers, so that the EVPN side may run as another user: make
/// `learned` for it beforehand then, for the site's directory is writable for its owner only.
#pragma once

#include <string>
#include <string_view>

namespace Agent {

class Site {
 public:
  static constexpr std::string_view defaultDir = "/dev/shm/qorevpn";

  /// Raises UsageError where the path is too long for the control socket.
  explicit Site(std::string dir = std::string(defaultDir));

  std::string const& dir() const { return dir_; }
  std::string exported() const { return dir_ + "/exported"; }
  std::string learned() const { return dir_ + "/learned"; }
  std::string controlSocket() const { return dir_ + "/control"; }
  /// The EVPN side's, in the folder that it may write.
  std::string evpnControlSocket() const { return learned() + "/control"; }

  /// The site, after making its directory, not its folders. Raises std::system_error naming the directory,
  /// also where it is no directory, or where we are root and it is another user's; UsageError as above.
  static Site made(std::string dir);

 private:
  std::string dir_;
};

}  // namespace Agent
