#ifndef PALVONAUTH_TOOLS_COMMANDLINE_H
#define PALVONAUTH_TOOLS_COMMANDLINE_H

// How the tool reads its command line beyond what the subcommands define:
// values in seconds, and usage errors in the tool's own form.

#include <CLI/CLI.hpp>

#include <string>

namespace palvonauth {

/** A number of seconds: finite, at most 10^9, above 0 or (with `zeroAllowed`) 0 or more. */
CLI::Validator Seconds(bool zeroAllowed);

/** Usage errors get "palvonauth: " before every line and a pointer to the help; set before adding subcommands. */
void FormatUsageErrors(CLI::App& app);

/**
 * Prints what a failed parse calls for and returns the exit code: 0 after
 * --help and --version, else 2. A word where the subcommand belongs that
 * names none is reported as an unknown subcommand.
 */
int ReportParseError(const CLI::App& app, const CLI::ParseError& error);

/** "unknown subcommand 'NAME'" and, on a line of its own, the subcommands there are. */
std::string UnknownSubcommand(const CLI::App& app, const std::string& name);

}  // namespace palvonauth

#endif
