#ifndef PALVONAUTH_TOOLS_LIBRARYSESSION_H
#define PALVONAUTH_TOOLS_LIBRARYSESSION_H

// Library lifetime for one run of the tool: initialisation with a bounded
// wait for the service, connections, and the library's trace file.

#include <functional>
#include <string>

#include "Output.h"
#include "PalvonAuthManager.h"

namespace palvonauth {

using PalvonAuthManagerSDK::AMUint;
using PalvonAuthManagerSDK::ConnectionHandle;

/** Options that apply to every subcommand. */
struct GlobalOptions {
  bool json = false;
  bool trace = false;
  /** Seconds to wait for a service to take the registration; 0 waits forever. */
  double waitSeconds = 10;
  /** Name given to connections; empty sends none. */
  std::string connectionName;
};

/**
 * PalvonAuthManager_Initialize() for the duration of a command. The library
 * waits without limit for a service; this class gives up after
 * GlobalOptions::waitSeconds, reports exit code 3 and ends the process,
 * after calling `beforeGivingUp` when one is given.
 */
class LibrarySession {
 public:
  LibrarySession(const GlobalOptions& options, Output& out, const std::function<void()>& beforeGivingUp = {});
  ~LibrarySession();
  LibrarySession(const LibrarySession&) = delete;
  LibrarySession& operator=(const LibrarySession&) = delete;

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

/**
 * Removes this process's request and reply pipes, in every folder the library
 * may have put them in; for ending the process without uninitialising.
 */
void RemoveOwnPipes();

/** Switches the library's tracing on and makes sure the trace folder's parent exists. */
void EnableTracing();
/** Newest trace file of this process in the trace folder of $HOME, or "". */
std::string FindTraceFile();

}  // namespace palvonauth

#endif
