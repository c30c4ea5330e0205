/// The options of the commands that can record what they take in.
#pragma once

#include "agent/record/Recorder.h"

namespace CLI {
class App;
}

namespace Agent {

struct RecordOptions {
  Recorder::Options recorder;

  /// Adds --record and what belongs to it. `this` must live as long as the command line.
  void addTo(CLI::App& command);
  bool isGiven() const { return !recorder.file.empty(); }
};

}  // namespace Agent
