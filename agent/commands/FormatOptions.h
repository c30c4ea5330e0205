/// The options that all commands that show tables have: site, side, rows, form.
#pragma once

#include <string>

#include "agent/site/Site.h"
#include "agent/tables/RowFilter.h"
#include "agent/views/Format.h"

namespace CLI {
class App;
}

namespace Agent {

struct ViewOptions {
  std::string dir{Site::defaultDir};
  bool learned = false;
  bool text = false;
  bool json = false;
  RowFilter filter;

  Form form() const { return json ? Form::json : text ? Form::text : Form::people; }
};

/// Adds --dir and --json.
void addViewOptions(CLI::App& command, ViewOptions& options);
/// Adds --learned, --text and the filters. `options` must live as long as the command line.
void addRowOptions(CLI::App& command, ViewOptions& options);

}  // namespace Agent
