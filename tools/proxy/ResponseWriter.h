#ifndef PALVONAUTH_TOOLS_PROXY_RESPONSEWRITER_H
#define PALVONAUTH_TOOLS_PROXY_RESPONSEWRITER_H

// The response as the proxy's client receives it: the upstream's status and
// end-to-end headers, and the body framed for this client as it arrives.

#include <cstdint>
#include <string>
#include <vector>

#include "proxy/ClientSocket.h"
#include "proxy/RequestParser.h"

namespace palvonauth {

/** The Via element the proxy adds to requests and responses. */
constexpr const char* kViaField = "Via: 1.1 palvonauth";

class ResponseWriter {
 public:
  /** `keepAlive`: the connection may stay open after this response if its framing allows. */
  ResponseWriter(ClientSocket& socket, const RequestHead& request, bool keepAlive);

  /**
   * Writes the status line and headers. The body is passed with the
   * upstream's Content-Length when it gave one (and no transfer coding),
   * chunked to HTTP/1.1 clients otherwise, and delimited by closing the
   * connection for HTTP/1.0 clients.
   */
  bool WriteHead(uint32_t status, const std::string& reason, const std::vector<std::string>& upstreamHeaders);
  bool WriteBody(const uint8_t* data, size_t size);
  /** Ends the body; false when the body fell short of its announced length or the client went away. */
  bool Finish();

  /** Whether the head has gone out: a failure after it can only cut the connection. */
  bool Started() const { return started_; }
  /** Whether the body announced and written lets the connection serve another request. */
  bool KeepAlive() const { return keepAlive_; }
  bool HasBody() const { return mode_ != Mode::kNone; }
  /** Whether the body's announced length has been written. */
  bool Complete() const { return mode_ == Mode::kLength && written_ == length_; }
  uint64_t BodyBytes() const { return written_; }

 private:
  enum class Mode { kNone, kLength, kChunked, kUntilClose };
  ClientSocket& socket_;
  const RequestHead& request_;
  bool keepAlive_;
  bool started_ = false;
  Mode mode_ = Mode::kNone;
  uint64_t length_ = 0;
  uint64_t written_ = 0;
};

/**
 * A response of the proxy's own: plain text, closing the connection unless
 * `keepAlive`. Returns whether it was written.
 */
bool WriteOwnResponse(ClientSocket& socket, int status, const std::string& text, bool keepAlive);

/** The standard reason phrase of the statuses the proxy answers itself. */
const char* OwnReason(int status);

}  // namespace palvonauth

#endif
