#ifndef PALVONAUTH_TOOLS_PROXY_REQUESTPARSER_H
#define PALVONAUTH_TOOLS_PROXY_REQUESTPARSER_H

// The request line and header block of an HTTP/1.x request, taken from the
// bytes a client has sent so far.

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace palvonauth {

struct RequestHead {
  std::string method;
  std::string target;
  /** y of HTTP/1.y: 0 or 1. */
  int minorVersion = 1;
  /** "Name: value" lines, the value without surrounding blanks. */
  std::vector<std::string> headers;
};

struct HeadLimits {
  size_t maxRequestLine = 8 * 1024;
  /** The request line and every header line with their line ends. */
  size_t maxBlock = 64 * 1024;
  size_t maxFields = 100;
};

enum class HeadState { kIncomplete, kComplete, kRejected };

struct HeadParse {
  HeadState state = HeadState::kIncomplete;
  /** Bytes of the block, its empty line included, when complete. */
  size_t consumed = 0;
  RequestHead head;
  /** Status to answer when rejected: 400, 414, 431 or 505. */
  int status = 0;
  std::string problem;
};

/**
 * Parses the head at the start of `input` (lines end with CRLF or a bare
 * LF; empty lines before the request line are skipped). Incomplete until
 * the empty line arrives, rejected as soon as anything seen breaks the
 * syntax or the limits.
 */
HeadParse ParseRequestHead(std::string_view input, const HeadLimits& limits = {});

/** The client wants the connection kept after this request (HTTP/1.1 default, 1.0 only when asked). */
bool WantsKeepAlive(const RequestHead& head);

}  // namespace palvonauth

#endif
