#include "proxy/RequestBody.h"

#include <algorithm>
#include <chrono>

#include "http/HeaderFields.h"

namespace palvonauth {

namespace {

constexpr auto kSilence = std::chrono::seconds(30);
constexpr size_t kMaxChunkLine = 4096;
constexpr size_t kMaxTrailers = 64 * 1024;

BodyFraming RefuseBody(int status, std::string problem) {
  BodyFraming framing;
  framing.status = status;
  framing.problem = std::move(problem);
  return framing;
}

std::string TooLarge(uint64_t maxBody) {
  return "the request body is larger than " + std::to_string(maxBody) + " bytes (--max-body)";
}

// Consumes one line (without its end) from the socket; false on a failure
// recorded in `read`.
bool TakeLine(ClientSocket& socket, std::string& line, size_t limit, BodyRead& read) {
  for (;;) {
    std::string& buffer = socket.Buffer();
    const size_t end = buffer.find('\n');
    if (end != std::string::npos && end <= limit) {
      line.assign(buffer, 0, end);
      if (!line.empty() && line.back() == '\r') line.pop_back();
      buffer.erase(0, end + 1);
      return true;
    }
    if (end != std::string::npos || buffer.size() > limit) {
      read.status = 400;
      read.problem = "a line of the chunked body is too long";
      return false;
    }
    const ReadOutcome outcome = socket.ReadMore(kSilence);
    if (outcome == ReadOutcome::kData || outcome == ReadOutcome::kNothing) continue;
    read.status = outcome == ReadOutcome::kTimeout ? 408 : 400;
    read.problem = outcome == ReadOutcome::kTimeout ? "the client stopped sending its body" : "the body broke off";
    return false;
  }
}

// Moves `count` bytes from the socket to the body.
bool TakeBytes(ClientSocket& socket, uint64_t count, BodyRead& read) {
  while (count > 0) {
    std::string& buffer = socket.Buffer();
    const size_t take = static_cast<size_t>(std::min<uint64_t>(count, buffer.size()));
    read.bytes.insert(read.bytes.end(), buffer.begin(), buffer.begin() + static_cast<std::ptrdiff_t>(take));
    buffer.erase(0, take);
    count -= take;
    if (count == 0) break;
    const ReadOutcome outcome = socket.ReadMore(kSilence);
    if (outcome == ReadOutcome::kData || outcome == ReadOutcome::kNothing) continue;
    read.status = outcome == ReadOutcome::kTimeout ? 408 : 400;
    read.problem = outcome == ReadOutcome::kTimeout ? "the client stopped sending its body" : "the body broke off";
    return false;
  }
  return true;
}

void ReadChunked(ClientSocket& socket, uint64_t maxBody, BodyRead& read) {
  std::string line;
  for (;;) {
    if (!TakeLine(socket, line, kMaxChunkLine, read)) return;
    // The size in hexadecimal, then perhaps ";extension".
    const std::string digits = line.substr(0, line.find_first_of("; \t"));
    if (digits.empty() || digits.size() > 15 ||
        digits.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
      read.status = 400;
      read.problem = "a chunk of the body does not start with its size";
      return;
    }
    const uint64_t size = std::stoull(digits, nullptr, 16);
    if (size == 0) break;
    if (size > maxBody - read.bytes.size()) {
      read.status = 413;
      read.problem = TooLarge(maxBody);
      return;
    }
    if (!TakeBytes(socket, size, read) || !TakeLine(socket, line, kMaxChunkLine, read)) return;
    if (!line.empty()) {
      read.status = 400;
      read.problem = "a chunk of the body is longer than its size";
      return;
    }
  }
  // Trailer fields are not passed on; they end with an empty line.
  for (size_t seen = 0;;) {
    if (!TakeLine(socket, line, kMaxChunkLine, read)) return;
    if (line.empty()) return;
    seen += line.size();
    if (seen > kMaxTrailers) {
      read.status = 431;
      read.problem = "the trailer fields of the body are too long";
      return;
    }
  }
}

}  // namespace

BodyFraming FrameOf(const RequestHead& head, uint64_t maxBody) {
  BodyFraming framing;
  const bool lengthGiven = FindField(head.headers, "content-length").has_value();
  if (FindField(head.headers, "transfer-encoding")) {
    // Only chunked, alone: any other coding could not be undone here, and a
    // length beside it could be read another way by someone else.
    if (lengthGiven) return RefuseBody(400, "the request has both Content-Length and Transfer-Encoding");
    std::vector<std::string> codings;
    for (const std::string& line : head.headers) {
      if (EqualsIgnoreCase(FieldName(line), "transfer-encoding")) codings.push_back(line);
    }
    if (codings.size() != 1 || !EqualsIgnoreCase(*FindField(codings, "transfer-encoding"), "chunked")) {
      return RefuseBody(501, "only the chunked transfer coding is understood");
    }
    framing.kind = BodyFraming::kChunked;
  } else if (lengthGiven) {
    const std::optional<uint64_t> length = ContentLength(head.headers);
    for (const std::string& line : head.headers) {
      if (EqualsIgnoreCase(FieldName(line), "content-length") && (!length || ContentLength({line}) != length)) {
        return RefuseBody(400, "the request's Content-Length is not one number");
      }
    }
    if (*length > maxBody) return RefuseBody(413, TooLarge(maxBody));
    framing.kind = *length > 0 ? BodyFraming::kLength : BodyFraming::kNone;
    framing.length = *length;
  }
  const std::optional<std::string> expect = FindField(head.headers, "expect");
  if (expect && !EqualsIgnoreCase(*expect, "100-continue"))
    return RefuseBody(417, "only 'Expect: 100-continue' is understood");
  return framing;
}

BodyRead ReadBody(ClientSocket& socket, const RequestHead& head, const BodyFraming& framing, uint64_t maxBody) {
  BodyRead read;
  if (framing.kind == BodyFraming::kNone) return read;
  // The client waits for the go-ahead unless it has sent the body already.
  if (head.minorVersion >= 1 && socket.Buffer().empty() && FindField(head.headers, "expect") &&
      !socket.Write({"HTTP/1.1 100 Continue\r\n\r\n"})) {
    read.status = 400;
    read.problem = "the client went away";
    return read;
  }
  if (framing.kind == BodyFraming::kLength) {
    read.bytes.reserve(static_cast<size_t>(framing.length));
    (void)TakeBytes(socket, framing.length, read);
  } else {
    ReadChunked(socket, maxBody, read);
  }
  return read;
}

}  // namespace palvonauth
