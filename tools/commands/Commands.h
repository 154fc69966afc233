#ifndef PALVONAUTH_TOOLS_COMMANDS_COMMANDS_H
#define PALVONAUTH_TOOLS_COMMANDS_COMMANDS_H

// The subcommands of palvonauth. Each Add*Command function adds one
// subcommand to the application; when it is chosen on the command line its
// callback stores what to run in Tool::run.

#include <CLI/CLI.hpp>

#include <functional>

#include "Errors.h"
#include "LibrarySession.h"
#include "Output.h"

namespace palvonauth {

struct Tool {
  GlobalOptions options;
  /** The chosen subcommand; returns the exit code when it did not throw. */
  std::function<int(Output&)> run;
};

void AddApiLevelCommand(CLI::App& app, Tool& tool);
void AddVersionCommand(CLI::App& app, Tool& tool);
void AddConnectCommand(CLI::App& app, Tool& tool);
void AddServerTypeCommand(CLI::App& app, Tool& tool);
void AddDiscoverCommand(CLI::App& app, Tool& tool);
void AddLogonStatusCommand(CLI::App& app, Tool& tool);
void AddLogoffCommand(CLI::App& app, Tool& tool);
void AddTrampolineCommand(CLI::App& app, Tool& tool);
void AddVpnCommand(CLI::App& app, Tool& tool);
void AddHttpCommand(CLI::App& app, Tool& tool);
void AddLaunchCommand(CLI::App& app, Tool& tool);
void AddHelpCommand(CLI::App& app, Tool& tool);
void AddProxyCommand(CLI::App& app, Tool& tool);

}  // namespace palvonauth

#endif
