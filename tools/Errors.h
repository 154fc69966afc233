#ifndef PALVONAUTH_TOOLS_ERRORS_H
#define PALVONAUTH_TOOLS_ERRORS_H

// The tool's exit codes and the errors that end a command, with the way
// they are reported.

#include <stdexcept>
#include <string>

#include "Output.h"
#include "PalvonAuthManager.h"

namespace palvonauth {

using PalvonAuthManagerSDK::AMResult;

/** Exit codes of the tool; those of `http` are curl's where the meaning is the same. */
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
  /** The service could not resolve the host name (0x8007). */
  kExitHostUnknown = 6,
  /** The service could not connect, or the server did not answer (0x8001). */
  kExitConnectFailed = 7,
  /** --fail was given and the HTTP status was 400 or above. */
  kExitHttpStatus = 22,
  /** The request's time-out (0x8002) or --max-time passed. */
  kExitTimedOut = 28,
  /** --location met more redirects than --max-redirs allows. */
  kExitTooManyRedirects = 47,
};

/** The exit code for a failed library call: its own for the service's HTTP codes above, else 1. */
int ExitCodeFor(AMResult code);

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

/** Whether failures are also reported on stderr (they are unless `http -s` without `-S`). */
void ShowErrorMessages(bool shown);

/** Writes the "error" member for a failure and the matching line on stderr. */
void ReportLibraryError(Output& out, const LibraryError& error);
void ReportLocalError(Output& out, const std::string& message, int exitCode);

}  // namespace palvonauth

#endif
