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
///   synced                                          the whole state is told   the same
///
/// A -del may repeat the keys of the event that it takes back. Any other key is an error, and so is a key
/// that occurs twice.
///
/// A recording (agent/record/Recorder.h) is a feed in which each event that a source told has the key
/// `source`: the number of the source on its side. Other keys and ops of recordings:
///
///   since       Unix time in seconds at which the event was told; in the state at the beginning of a file
///
///   recording   name* seq           a file begins; `name`: the run of the process, `seq`: the file's number
///   source      source* name* on    a source is added; `on`: it numbers its entries
///   begin       source*             the source tells its state again; what it told before is kept
///   whole       source* value*      the source is synced: a part of what was kept is withdrawn; `value`: the
///                                   last part
///   withdraw    source* value*      a part of all that the source told is withdrawn; `value`: the last part
///   settled     value*              every source is synced or given up: a part of what an earlier run left
///                                   is withdrawn; `value`: the last part
///   number      vni* mac* vtep* seq the sequence number of the switches' entry of a MAC
///   frozen      vni* mac* value*    a duplicate is frozen (`value`), or is so no longer
///   listed      vni* value*         the VNI's bridge identifier is in the list, or is not
///   state-end                       the state at the beginning of the file has been told
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
  frozen,
  listed,
  stateEnd
};
inline constexpr std::size_t opCount = static_cast<std::size_t>(Op::stateEnd) + 1;

/// The number of a source on its side: 0 for the one that was added first.
using SourceId = std::size_t;
/// Stands for the rows that an earlier run left, in place of a source's number.
inline constexpr SourceId earlierRun = ~SourceId{0};

/// The text of an event's members as they stood in its line, without `t`; empty where the text is not known.
/// It does not count when events are compared.
struct Written {
  std::string_view members;
  friend bool operator==(Written, Written) { return true; }
};

/// One event. Members for keys that its op does not have hold their defaults.
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
  SourceId source = earlierRun;  ///< In a recording: who told the event. `earlierRun` in all other events.
  std::uint32_t since = 0;       ///< In seconds of Unix time; 0: now.
  std::string name;
  Written written;  ///< Refers to the line. Clear it in an event that outlives its line.

  friend bool operator==(Event const&, Event const&) = default;
};

/// A line is not an event. The message says why.
class EventError : public std::runtime_error {
 public:
  using runtime_error::runtime_error;
};

/// Reads one line, given without its end of line. Raises EventError. It does not check that times never
/// decrease; the feed does.
Event parseEvent(std::string_view line);

/// Appends an event as a line with its end. `t` and `source` are the arguments; the other members are
/// `event.written`, or, where that is empty, the event's keys that differ from their defaults.
void appendLine(std::string& out, std::string_view time, SourceId source, Event const& event);

/// "mac-del".
std::string_view toText(Op op);

}  // namespace Agent
