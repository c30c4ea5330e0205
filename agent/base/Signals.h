/// Signals as a descriptor: the one way in which this program takes them.
#pragma once

#include <initializer_list>

#include "agent/base/Fd.h"

namespace Agent {

/// Blocks these signals for the calling thread and those that it starts later, and returns a descriptor that
/// is readable while one of them has come and was not taken. It does not wait when it is read. Call it before
/// a second thread starts. Raises std::system_error.
Fd signalFd(std::initializer_list<int> signals);

/// The number of a signal that has come, which is taken, or 0.
int takeSignal(Fd const& fd);

}  // namespace Agent
