#ifndef PALVONAUTH_TOOLS_PROXY_REQUESTBODY_H
#define PALVONAUTH_TOOLS_PROXY_REQUESTBODY_H

// The body of a client's request: how it is framed, read whole (the service
// takes a request body in one piece) up to a limit.

#include <cstdint>
#include <string>
#include <vector>

#include "proxy/ClientSocket.h"
#include "proxy/RequestParser.h"

namespace palvonauth {

struct BodyFraming {
  enum Kind { kNone, kLength, kChunked } kind = kNone;
  uint64_t length = 0;
  /** 0, or the status to answer (400, 413, 417, 501) with `problem`. */
  int status = 0;
  std::string problem;
};

/** How the head says the body is framed, refusing what could be read two ways or exceeds `maxBody`. */
BodyFraming FrameOf(const RequestHead& head, uint64_t maxBody);

struct BodyRead {
  std::vector<uint8_t> bytes;
  /** 0, or the status to answer (400, 408, 413) with `problem`; the connection cannot go on then. */
  int status = 0;
  std::string problem;
};

/**
 * Reads the body from the socket's buffer and the socket, consuming it.
 * "Expect: 100-continue" from an HTTP/1.1 client is answered first.
 */
BodyRead ReadBody(ClientSocket& socket, const RequestHead& head, const BodyFraming& framing, uint64_t maxBody);

}  // namespace palvonauth

#endif
