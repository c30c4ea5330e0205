/// The options of the commands that can record their inputs.
#pragma once

#include "agent/record/Recorder.h"

namespace CLI {
class App;
}

namespace Agent {

struct RecordOptions {
  Recorder::Options recorder;

  /// Adds --record and the options of the recording. `this` must live as long as the command line.
  void addTo(CLI::App& command);
  bool isGiven() const { return !recorder.file.empty(); }
};

}  // namespace Agent
