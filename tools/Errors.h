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

}  // namespace palvonauth

#endif
