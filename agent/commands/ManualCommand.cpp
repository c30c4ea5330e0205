/// `qorevpn manual`: manual pages and shell completion, written from the command line's own descriptions, so
/// that neither can say anything else than --help does.
#include <CLI/CLI.hpp>
#include <iostream>
#include <sstream>

#include "agent/commands/Commands.h"

namespace Agent {

namespace {

constexpr std::string_view examplesTitle = "Examples:\n";

/// Escapes text for a manual page: no line becomes a request, and a hyphen can be copied as one.
std::string roff(std::string_view text) {
  std::string result;
  bool atLineStart = true;
  for (char const c : text) {
    if (atLineStart && (c == '.' || c == '\'')) result += "\\&";
    if (c == '\\') {
      result += "\\e";
    } else if (c == '-') {
      result += "\\-";
    } else {
      result += c;
    }
    atLineStart = c == '\n';
  }
  return result;
}

std::vector<CLI::App const*> commandsOf(CLI::App const& app) {
  return app.get_subcommands([](CLI::App const* command) { return !command->get_group().empty(); });
}

std::vector<CLI::Option const*> optionsOf(CLI::App const& app) {
  return app.get_options([](CLI::Option const* option) { return !option->get_group().empty(); });
}

std::string pageName(CLI::App const& app, CLI::App const* command) {
  return command ? app.get_name() + "-" + command->get_name() : app.get_name();
}

void writeOption(std::ostream& out, CLI::Option const& option) {
  std::string const names = option.get_positional() ? option.get_name(true) : option.get_name(false, true);
  out << ".TP\n\\fB" << roff(names) << "\\fR";
  if (option.get_type_size() != 0) out << " \\fI" << roff(option.get_type_name()) << "\\fR";
  out << '\n' << roff(option.get_description());
  if (!option.get_default_str().empty()) out << " (by default " << roff(option.get_default_str()) << ')';
  if (option.get_required()) out << " (required)";
  out << '\n';
}

/// The page of one command, or of the program where `command` is null.
void writePage(std::ostream& out, CLI::App const& app, CLI::App const* command) {
  CLI::App const& page = command ? *command : app;
  std::string const name = pageName(app, command);
  std::string const footer = page.get_footer();
  std::size_t const examples = std::min(footer.find(examplesTitle), footer.size());
  out << ".TH " << roff(name) << " 1\n.SH NAME\n" << roff(name) << " \\- " << roff(page.get_description());
  out << "\n.SH SYNOPSIS\n.B " << roff(app.get_name())
      << (command ? " " + roff(command->get_name()) : " COMMAND");
  for (CLI::Option const* option : optionsOf(page)) {
    if (option->get_positional()) out << ' ' << roff(option->get_name(true));
  }
  out << " [OPTIONS]\n";
  if (examples > 0) out << ".SH DESCRIPTION\n" << roff(footer.substr(0, examples)) << '\n';
  if (!command) {
    out << ".SH COMMANDS\n";
    for (CLI::App const* each : commandsOf(app)) {
      out << ".TP\n.BR " << roff(pageName(app, each)) << "(1)\n" << roff(each->get_description()) << '\n';
    }
  }
  out << ".SH OPTIONS\n";
  for (CLI::Option const* option : optionsOf(page)) writeOption(out, *option);
  if (examples < footer.size()) {
    out << ".SH EXAMPLES\n.nf\n" << roff(footer.substr(examples + examplesTitle.size())) << "\n.fi\n";
  }
  out << ".SH EXIT STATUS\n0: done. 1: it failed; standard error says what and where. 2: the command line is "
         "wrong.\n";
  if (command) out << ".SH SEE ALSO\n.BR " << roff(app.get_name()) << "(1)\n";
}

/// Bash: the first word is a command, others are the options of that command; what an option takes is a file.
void writeCompletion(std::ostream& out, CLI::App const& app) {
  std::string commands;
  std::ostringstream cases;
  for (CLI::App const* command : commandsOf(app)) {
    commands += ' ' + command->get_name();
    std::string words;
    for (CLI::Option const* option : optionsOf(*command)) {
      for (std::string const& name : option->get_lnames()) words += " --" + name;
    }
    cases << "    " << command->get_name() << ") words='"
          << words.substr(std::min<std::size_t>(1, words.size())) << "' ;;\n";
  }
  out << "# bash completion of " << app.get_name() << "; made by `" << app.get_name()
      << " manual completion`\n_" << app.get_name() << "() {\n"
      << "  local word=${COMP_WORDS[COMP_CWORD]} words\n"
      << "  if ((COMP_CWORD == 1)); then\n"
      << "    mapfile -t COMPREPLY < <(compgen -W '" << commands.substr(1) << "' -- \"$word\")\n"
      << "    return\n  fi\n"
      << "  case ${COMP_WORDS[1]} in\n"
      << cases.str() << "    *) words= ;;\n  esac\n"
      << "  if [[ $word == -* ]]; then\n"
      << "    mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$word\")\n"
      << "  else\n"
      << "    mapfile -t COMPREPLY < <(compgen -f -- \"$word\")\n"
      << "  fi\n}\ncomplete -o filenames -F _" << app.get_name() << ' ' << app.get_name() << '\n';
}

int writeManual(CLI::App const& app, std::string const& what, std::string const& name) {
  if (what == "completion") {
    writeCompletion(std::cout, app);
  } else if (what == "commands") {
    for (CLI::App const* each : commandsOf(app)) std::cout << each->get_name() << '\n';
  } else {
    CLI::App const* command = nullptr;
    for (CLI::App const* each : commandsOf(app)) {
      if (each->get_name() == name) command = each;
    }
    if (!name.empty() && !command) throw UsageError("manual: there is no command '" + name + "'");
    writePage(std::cout, app, command);
  }
  return std::cout.flush() ? exitOk : exitFailed;
}

}  // namespace

void addManualCommand(CLI::App& app, Run& run) {
  struct Chosen {
    std::string what;
    std::string command;
  };
  auto const chosen = std::make_shared<Chosen>();
  CLI::App* const manual = app.add_subcommand("manual", "Print a manual page, or the completion for bash");
  manual->add_option("WHAT", chosen->what, "page, completion, or commands: their names")
      ->required()
      ->check(CLI::IsMember({"page", "completion", "commands"}));
  manual->add_option("COMMAND", chosen->command, "The page of this command, not of the program");
  manual->footer(
      "Examples:\n"
      "  qorevpn manual page agent | man -l -\n"
      "  qorevpn manual completion > /etc/bash_completion.d/qorevpn");
  manual->callback([chosen, &app, &run] {
    run = [chosen, &app] { return writeManual(app, chosen->what, chosen->command); };
  });
}

}  // namespace Agent
