/// The trace handle of the transmit machines.
#pragma once

#include "Trace/Trace.h"

namespace QorEvpn {

/// "VxlanControllerEvpnTxSm". Level 3: entries of handlers and unsupported input; 4: returns; 8: deleted
/// rows.
extern Trace::Handle txTrace;

}  // namespace QorEvpn
