#ifndef PALVONAUTH_TOOLS_SESSION_H
#define PALVONAUTH_TOOLS_SESSION_H

// Library lifetime for one run of the tool: initialisation with a bounded
// wait for the service, connections, and the errors that end a command.

#include <stdexcept>
#include <string>

#include "Output.h"
#include "PalvonAuthManager.h"

namespace palvonauth {

using PalvonAuthManagerSDK::AMResult;
using PalvonAuthManagerSDK::AMUint;
using PalvonAuthManagerSDK::ConnectionHandle;

/** Exit codes of the tool. */
enum ExitCode : int {
  kExitOk = 0,
  /** A library call returned a result other than 0. */
  kExitCallFailed = 1,
  /** The command line could not be parsed. */
  kExitUsage = 2,
  /** No service listened within the --wait time. */
  kExitNoService = 3,
  /** A local file could not be read or written. */
  kExitLocalError = 4,
  /** --fail was given and the HTTP status was 400 or above. */
  kExitHttpStatus = 5,
};

/** Options that apply to every subcommand. */
struct GlobalOptions {
  bool json = false;
  bool trace = false;
  /** Seconds to wait for a service to take the registration; 0 waits forever. */
  double waitSeconds = 10;
  /** Name given to connections; empty sends none. */
  std::string connectionName;
};

/** A library call that returned something other than 0. */
class LibraryError : public std::runtime_error {
 public:
  LibraryError(std::string function, AMResult code);
  const std::string& Function() const { return function_; }
  AMResult Code() const { return code_; }

 private:
  std::string function_;
  AMResult code_;
};

/** A failure of the tool's own (files, arguments the library never sees). */
class LocalError : public std::runtime_error {
 public:
  explicit LocalError(const std::string& message, int exitCode = kExitLocalError)
      : std::runtime_error(message), exitCode_(exitCode) {}
  int ExitCode() const { return exitCode_; }

 private:
  int exitCode_;
};

/** Throws LibraryError unless `code` is 0. */
void Check(const char* function, AMResult code);

/** Writes the "error" member for a failure and the matching line on stderr. */
void ReportLibraryError(Output& out, const LibraryError& error);
void ReportLocalError(Output& out, const std::string& message, int exitCode);

/**
 * PalvonAuthManager_Initialize() for the duration of a command. The library
 * waits without limit for a service; this class gives up after
 * GlobalOptions::waitSeconds, reports exit code 3 and ends the process.
 */
class Session {
 public:
  Session(const GlobalOptions& options, Output& out);
  ~Session();
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  /** The negotiated API level. */
  AMUint ApiLevel() const;
  /** Uninitialises, reporting a failure. */
  void Close();

 private:
  bool open_ = false;
};

/** A connection to the service, destroyed again at the end. */
class Connection {
 public:
  explicit Connection(const GlobalOptions& options);
  ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  ConnectionHandle Handle() const { return handle_; }
  /** Destroys the connection, reporting a failure. */
  void Close();

 private:
  ConnectionHandle handle_ = 0;
  bool open_ = false;
};

/** Switches the library's tracing on and makes sure the trace folder's parent exists. */
void EnableTracing();
/** Newest trace file of this process in $HOME/.RZPClient/logs, or "". */
std::string FindTraceFile();

}  // namespace palvonauth

#endif
