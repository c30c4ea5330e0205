#include "support/Gobgpd.h"

#include <cstdlib>
#include <fstream>
#include <utility>

#include "support/Database.h"

namespace TestSupport {

namespace {

std::string neighbourText(unsigned self, unsigned other, bool isGraceful) {
  std::string text = "[[neighbors]]\n[neighbors.config]\nneighbor-address = \"" + ownLoopback(other) +
                     "\"\npeer-as = " + std::to_string(Gobgpd::asOf(other)) +
                     "\n[neighbors.timers.config]\nconnect-retry = 1\nhold-time = 9\nkeepalive-interval = 3\n"
                     "idle-hold-time-after-reset = 1\n[neighbors.transport.config]\nlocal-address = \"" +
                     ownLoopback(self) + "\"\nremote-port = 1790\n";
  // One side calls: two calls at a time cost a session half a minute.
  if (self > other) text += "passive-mode = true\n";
  if (isGraceful) text += "[neighbors.graceful-restart.config]\nenabled = true\nrestart-time = 60\n";
  text += "[[neighbors.afi-safis]]\n[neighbors.afi-safis.config]\nafi-safi-name = \"l2vpn-evpn\"\n";
  if (isGraceful) text += "[neighbors.afi-safis.mp-graceful-restart.config]\nenabled = true\n";
  return text;
}

}  // namespace

Gobgpd::Gobgpd(unsigned number, std::vector<unsigned> const& neighbours, bool isGraceful)
    : number_(number), isGraceful_(isGraceful) {
  std::ofstream file(folder_.path() + "/gobgpd.toml");
  file << "[global.config]\nas = " << as() << "\nrouter-id = \"" << routerId()
       << "\"\nport = 1790\nlocal-address-list = [\"" << ownLoopback(number) << "\"]\n";
  for (unsigned const other : neighbours) file << neighbourText(number, other, isGraceful);
  file.close();
  start();
}

void Gobgpd::start() {
  std::string const config = folder_.path() + "/gobgpd.toml";
  std::vector<std::string> command{"gobgpd", "-f", config, "--api-hosts", endpoint(), "--pprof-disable"};
  // A speaker that starts anew does not say that it comes back.
  if (isGraceful_ && std::exchange(hasRun_, true)) command.push_back("-r");
  process_ = std::make_unique<Child>([&](Child&) { execute(command, folder_.path() + "/log"); });
  awaitAnswer(client() + "global");
}

std::string Gobgpd::client() const { return "gobgp -u " + ownLoopback(number_) + " "; }

int Gobgpd::command(std::string const& arguments) const {
  return std::system((client() + arguments + " >&2").c_str());
}

}  // namespace TestSupport
