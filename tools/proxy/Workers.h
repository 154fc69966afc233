#ifndef PALVONAUTH_TOOLS_PROXY_WORKERS_H
#define PALVONAUTH_TOOLS_PROXY_WORKERS_H

// The proxy's parent process: it forks the workers (before any of them uses
// the library), restarts one that ends, and passes SIGINT and SIGTERM on.

#include "LibrarySession.h"
#include "proxy/RequestForwarder.h"

namespace palvonauth {

/** Runs `count` workers on the listening socket until SIGINT or SIGTERM; returns the exit code. */
int SuperviseWorkers(int listenFd, unsigned count, const ProxySettings& settings, const GlobalOptions& options);

}  // namespace palvonauth

#endif
