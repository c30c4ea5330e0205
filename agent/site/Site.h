/// The names and places of a site's tables.
///
///   DIR/              0755; --dir, by default a directory of its own below /dev/shm
///     exported/       written by the agent, read by the EVPN side
///       host          HostTable
///       flood         FloodTable
///       brId          bridge identifiers of the VNIs that the controller serves
///     learned/        written by the EVPN side, read by the agent
///       host
///       flood
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
  static constexpr std::string_view hostTable = "host";
  static constexpr std::string_view floodTable = "flood";
  static constexpr std::string_view brIdTable = "brId";

  /// Raises UsageError where the path is too long for the control socket.
  explicit Site(std::string dir = std::string(defaultDir));

  std::string const& dir() const { return dir_; }
  std::string exported() const { return dir_ + "/exported"; }
  std::string learned() const { return dir_ + "/learned"; }
  std::string controlSocket() const { return dir_ + "/control"; }

  /// The site, after making its directory, not its folders. Raises std::system_error naming the directory,
  /// also where it is no directory, or where we are root and it is another user's; UsageError as above.
  static Site made(std::string dir);

 private:
  std::string dir_;
};

}  // namespace Agent
