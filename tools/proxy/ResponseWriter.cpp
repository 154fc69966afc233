#include "proxy/ResponseWriter.h"

#include <algorithm>
#include <cstdio>

#include "http/HeaderFields.h"
#include "util/ReasonPhrase.h"

namespace palvonauth {

namespace {

std::string StatusLine(uint32_t status, const std::string& reason) {
  std::string line = "HTTP/1.1 " + std::to_string(status) + " ";
  for (const char c : reason) {
    if (c != '\r' && c != '\n') line += c;
  }
  return line + "\r\n";
}

}  // namespace

const char* OwnReason(int status) {
  const char* phrase = PalvonAuthManagerSDK::StandardReasonPhrase(static_cast<uint32_t>(status));
  return *phrase != '\0' ? phrase : "Error";
}

bool WriteOwnResponse(ClientSocket& socket, int status, const std::string& text, bool keepAlive) {
  const std::string head = StatusLine(static_cast<uint32_t>(status), OwnReason(status)) +
                           "Content-Type: text/plain; charset=utf-8\r\nContent-Length: " + std::to_string(text.size()) +
                           "\r\n" + kViaField + "\r\n" + (keepAlive ? "" : "Connection: close\r\n") + "\r\n";
  return socket.Write({head, text});
}

ResponseWriter::ResponseWriter(ClientSocket& socket, const RequestHead& request, bool keepAlive)
    : socket_(socket), request_(request), keepAlive_(keepAlive) {}

bool ResponseWriter::WriteHead(uint32_t status, const std::string& reason,
                               const std::vector<std::string>& upstreamHeaders) {
  started_ = true;
  const bool coded = FindField(upstreamHeaders, "transfer-encoding").has_value();
  const std::optional<uint64_t> length = coded ? std::nullopt : ContentLength(upstreamHeaders);
  const bool bodyless = request_.method == "HEAD" || status < 200 || status == 204 || status == 304;
  std::string head = StatusLine(status, reason);
  for (const std::string& line : WithoutHopByHop(upstreamHeaders)) {
    // A length that does not describe the body as passed on is left out.
    if (!length && EqualsIgnoreCase(FieldName(line), "content-length")) continue;
    head += line + "\r\n";
  }
  head += std::string(kViaField) + "\r\n";
  if (bodyless) {
    mode_ = Mode::kNone;
  } else if (length) {
    mode_ = Mode::kLength;
    length_ = *length;
  } else if (request_.minorVersion >= 1) {
    mode_ = Mode::kChunked;
    head += "Transfer-Encoding: chunked\r\n";
  } else {
    mode_ = Mode::kUntilClose;
    keepAlive_ = false;
  }
  if (!keepAlive_) {
    head += "Connection: close\r\n";
  } else if (request_.minorVersion == 0) {
    head += "Connection: keep-alive\r\n";
  }
  head += "\r\n";
  return socket_.Write({head});
}

bool ResponseWriter::WriteBody(const uint8_t* data, size_t size) {
  if (mode_ == Mode::kNone || size == 0) return true;
  if (mode_ == Mode::kLength) size = static_cast<size_t>(std::min<uint64_t>(size, length_ - written_));
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  written_ += size;
  if (mode_ != Mode::kChunked) return socket_.Write({bytes});
  char line[32];
  std::snprintf(line, sizeof line, "%zx\r\n", size);
  return socket_.Write({line, bytes, "\r\n"});
}

bool ResponseWriter::Finish() {
  if (mode_ == Mode::kChunked) return socket_.Write({"0\r\n\r\n"});
  if (mode_ == Mode::kLength && written_ != length_) {
    keepAlive_ = false;
    return false;
  }
  return true;
}

}  // namespace palvonauth
