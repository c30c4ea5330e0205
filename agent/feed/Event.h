/// Agent::Event: one event of a feed, which is JSON Lines, one object a line:
///
///   {"t":0.047,"from":"controller","op":"mac","vni":5000,"mac":"02:00:00:00:00:01",
///    "vtep":"10.99.0.11","seq":1}
///
///   key          meaning                                                       default
///   t            seconds since the recording began; never decreases            none: at once
///   from         "controller": what the switches of this site learned;
///                "evpn": what BGP EVPN learned from other sites                 required
///   op           see below                                                     required
///   vni          0 to 16777215
///   mac          "02:00:00:00:00:01", capitals or not
///   vtep, vteps  "10.99.0.11"; a list of such
///   seq          0 to 4294967295                                               0
///   preference   0 to 255                                                      16
///   on           bool                                                          true
///   value        bool
///
///   op             keys (* required)                from controller           from evpn
///   vni, vni-del   vni*                             VNI is served, or not     -
///   mac            vni* mac* vtep* seq preference   MAC is behind vtep        host row learned
///   mac-del        vni* mac*                        MAC is not known          host row withdrawn
///   flood          vni* vtep* mac on                vtep is in a flood list   flood row learned (no mac)
///   flood-del      vni* vtep* mac                   vtep is in it no longer   flood row withdrawn (no mac)
///   multipath      vni* mac* vteps*                 multipath entry exists    -
///   multipath-del  vni* mac*                        it does not               -
///   enabled        value*                           controller database on    -
///   capability     value*                           -                         EVPN is on
///   synced                                          all of its state is told  the same
///
/// A -del may repeat the keys of what it takes back. Any other key is an error, and so is one that occurs
/// twice.
///
/// A recording (agent/record/Recorder.h) is a feed that has, besides, in every line of a source `source`, its
/// number among the sources of that side. Other keys and ops of recordings:
///
///   since       Unix time in seconds: told then, as what holds at the beginning of a file
///
///   recording   name* seq           a file begins: the run of the process, and which of its files it is
///   source      source* name* on    a source comes to be; `on`: it numbers its entries
///   begin       source*             it tells its state again, beside which what it told is kept
///   whole       source* value*      it has told it: a part of what was kept goes; `value`: none is left
///   withdraw    source* value*      a part of all that it told goes; `value`: none is left
///   settled     value*              every source is whole or given up; as `whole`, of an earlier run's
///   number      vni* mac* vtep* seq the number of the switches' entry of a MAC
///   state-end                       what holds at the beginning of the file has been told
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "Vxlan/Vni.h"
#include "Wirix/EthAddr.h"
#include "Wirix/IpAddr.h"
#include "Wirix/Seqno32.h"

namespace Agent {

enum class Origin : std::uint8_t { controller, evpn };

enum class Op : std::uint8_t {
  vni,
  vniDel,
  mac,
  macDel,
  flood,
  floodDel,
  multipath,
  multipathDel,
  enabled,
  capability,
  synced,
  // Of recordings.
  recording,
  source,
  begin,
  whole,
  withdraw,
  settled,
  number,
  stateEnd
};
inline constexpr std::size_t opCount = static_cast<std::size_t>(Op::stateEnd) + 1;

/// Counts the sources of a side from 0, in the order in which they were added.
using SourceId = std::size_t;
/// Stands for what an earlier run left, where a source is named.
inline constexpr SourceId earlierRun = ~SourceId{0};

/// The members of an event's line as they were written, but `t`; empty where nobody has them. Whatever it is,
/// the event is the same.
struct Written {
  std::string_view members;
  friend bool operator==(Written, Written) { return true; }
};

/// Keys that an op does not have hold their defaults.
struct Event {
  std::optional<double> time;  ///< Seconds, finite, not negative.
  Origin from = Origin::controller;
  Op op = Op::vni;
  Vxlan::Vni vni;
  Wirix::EthAddr mac;  ///< Of a flood list without `mac`: 00:00:00:00:00:00, all BUM traffic.
  Wirix::IpAddr vtep;
  std::vector<Wirix::IpAddr> vteps;
  Seqno32 seq;
  std::uint8_t preference = 16;
  bool on = true;
  bool value = false;
  SourceId source = earlierRun;  ///< Of a recording; else, and of what nobody in particular says, this.
  std::uint32_t since = 0;       ///< 0: now.
  std::string name;
  Written written;  ///< Refers to the line; who keeps an event for longer than that drops this.

  friend bool operator==(Event const&, Event const&) = default;
};

/// A line that is no event; the message says what is wrong with it.
class EventError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Reads one line, without its end of line. Raises EventError. The order of times is the feed's to check.
Event parseEvent(std::string_view line);

/// Appends the line of an event, with its end; all keys but `t` and `source` are the event's, as they were
/// written, or else without those that have their defaults.
void appendLine(std::string& out, std::string_view time, SourceId source, Event const& event);

/// "mac-del".
std::string_view toText(Op op);

}  // namespace Agent
