#ifndef PALVONAUTH_TOOLS_PROXY_WORKER_H
#define PALVONAUTH_TOOLS_PROXY_WORKER_H

// A proxy worker process: one library instance, serving one request at a
// time from the connections it accepted on the shared listening socket.

#include <csignal>

#include "LibrarySession.h"
#include "proxy/RequestForwarder.h"

namespace palvonauth {

/**
 * Runs until SIGTERM or SIGINT; a request in flight then has a few seconds
 * to finish. Returns the process's exit code. Call only in a fresh child
 * process that has not used the library, with the stop signals blocked;
 * `mask` is the signal mask to serve with.
 */
int RunWorker(int listenFd, const ProxySettings& settings, const GlobalOptions& options, const sigset_t& mask);

}  // namespace palvonauth

#endif
