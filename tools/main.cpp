// palvonauth: command-line access to the authentication-manager service
// through libpalvonauthmanager, one subcommand per task.
#include <CLI/CLI.hpp>

#include <csignal>
#include <cstdio>
#include <exception>

#include "CommandLine.h"
#include "Errors.h"
#include "LibrarySession.h"
#include "Output.h"
#include "Versions.h"
#include "commands/Commands.h"
#include "protocol/PipeNames.h"

using namespace palvonauth;

int main(int argc, char** argv) {
  // A vanished reader of our output is reported as a write error.
  (void)std::signal(SIGPIPE, SIG_IGN);

  Tool tool;
  CLI::App app{"Command-line client of the per-user authentication-manager service"};
  app.name("palvonauth");
  app.require_subcommand(1);
  app.fallthrough();
  FormatUsageErrors(app);
  app.set_version_flag("-V,--version", VersionText, "Print the tool's version and the loaded library's, and exit");
  app.add_flag("--json", tool.options.json, "Machine-readable output: one JSON object");
  app.add_flag(
      "--trace", tool.options.trace,
      "Have the library write a trace file in " + PalvonAuthManagerSDK::TraceFolder("$HOME") + " and print its path");
  app.add_option("--wait", tool.options.waitSeconds,
                 "Seconds to wait for the service to take the registration (0: without limit)")
      ->check(Seconds(true))
      ->capture_default_str();
  app.add_option("--connection-name", tool.options.connectionName, "Name given to the connections the tool creates");
  app.footer(
      "Exit codes: 0 success, 1 a library call failed (its result code is printed), 2 usage error,\n"
      "3 no service listening, 4 local file error; of http, as with curl: 6 unknown host,\n"
      "7 connection refused or no answer, 22 HTTP status >= 400 with --fail, 28 timed out,\n"
      "47 more redirects than --max-redirs.");

  AddApiLevelCommand(app, tool);
  AddVersionCommand(app, tool);
  AddConnectCommand(app, tool);
  AddServerTypeCommand(app, tool);
  AddDiscoverCommand(app, tool);
  AddLogonStatusCommand(app, tool);
  AddLogoffCommand(app, tool);
  AddTrampolineCommand(app, tool);
  AddVpnCommand(app, tool);
  AddHttpCommand(app, tool);
  AddLaunchCommand(app, tool);
  AddProxyCommand(app, tool);
  AddHelpCommand(app, tool);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return ReportParseError(app, error);
  }

  Output out(tool.options.json ? Format::kJson : Format::kText, stdout);
  if (tool.options.trace) EnableTracing();
  int exitCode = kExitOk;
  try {
    exitCode = tool.run(out);
  } catch (const LibraryError& error) {
    out.Unwind();
    ReportLibraryError(out, error);
    exitCode = ExitCodeFor(error.Code());
  } catch (const LocalError& error) {
    out.Unwind();
    ReportLocalError(out, error.what(), error.ExitCode());
    exitCode = error.ExitCode();
  } catch (const std::exception& error) {
    out.Unwind();
    ReportLocalError(out, error.what(), kExitLocalError);
    exitCode = kExitLocalError;
  }
  if (tool.options.trace) {
    // The library has been uninitialised by now, so the file is complete.
    const std::string path = FindTraceFile();
    if (out.Json()) {
      if (path.empty()) {
        out.Null("traceFile");
      } else {
        out.String("traceFile", path);
      }
    }
    if (path.empty()) {
      std::fprintf(stderr, "palvonauth: no trace file was written (see standard output)\n");
    } else {
      std::fprintf(stderr, "palvonauth: trace written to %s\n", path.c_str());
    }
  }
  if (!out.Finish()) {
    std::fprintf(stderr, "palvonauth: cannot write the output\n");
    if (exitCode == kExitOk) exitCode = kExitLocalError;
  }
  return exitCode;
}
