#include "proxy/RequestForwarder.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <optional>
#include <vector>

#include "Errors.h"
#include "ResultCodes.h"
#include "http/HeaderFields.h"
#include "http/HttpExchange.h"
#include "proxy/RequestBody.h"
#include "proxy/RequestTarget.h"
#include "proxy/ResponseWriter.h"

namespace palvonauth {

namespace {

using Clock = std::chrono::steady_clock;

constexpr AMUint kReadSize = 128 * 1024;
constexpr uint64_t kLongBody = 1024 * 1024;

const char* const kNoService =
    "palvonauth proxy: no authentication-manager service is running for this user.\n"
    "Start palvonauthd (or the service of your installation) and repeat the request.\n";

// The client's fields as the service is to send them: without hop-by-hop
// fields, without those the service sets itself (Host from the URL, the
// length of the body it sends, the expectation this proxy answered), and
// without empty values, which the service would read as "leave this field
// out".
std::vector<std::string> UpstreamHeaders(const RequestHead& head) {
  std::vector<std::string> lines;
  for (std::string& line : WithoutHopByHop(head.headers)) {
    const std::string_view name = FieldName(line);
    if (EqualsIgnoreCase(name, "host") || EqualsIgnoreCase(name, "content-length") ||
        EqualsIgnoreCase(name, "expect") || line.size() == name.size() + 2) {
      continue;
    }
    lines.push_back(std::move(line));
  }
  lines.emplace_back(kViaField);
  return lines;
}

double MillisecondsSince(Clock::time_point start) {
  return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

}  // namespace

void LogAccess(const ProxySettings& settings, const ClientSocket& socket, const std::string& method,
               const std::string& url, int status, uint64_t bytes, double milliseconds, const char* note) {
  if (settings.quiet) return;
  // One write per line, so that the workers' lines never interleave.
  char line[8192];
  const int length =
      std::snprintf(line, sizeof line, "palvonauth: %s \"%s %.6000s\" %d %llu bytes %.1f ms%s\n", socket.Peer().c_str(),
                    method.c_str(), url.c_str(), status, static_cast<unsigned long long>(bytes), milliseconds, note);
  if (length > 0) (void)!write(STDERR_FILENO, line, std::min<size_t>(static_cast<size_t>(length), sizeof line - 1));
}

bool ForwardRequest(ClientSocket& socket, const RequestHead& head, bool keepAlive, ServiceLink& link,
                    const ProxySettings& settings, const ForwardHooks& hooks) {
  const Clock::time_point start = Clock::now();
  // A refusal before the body is read leaves it unread: the connection ends.
  const auto refuse = [&](const std::string& url, int status, const std::string& text, bool keep) {
    const bool written = WriteOwnResponse(socket, status, text, keep);
    LogAccess(settings, socket, head.method, url, status, text.size(), MillisecondsSince(start));
    return written && keep;
  };
  const TargetUrl target = ResolveTarget(head, settings.upstream);
  if (target.url.empty()) return refuse(head.target, target.status, target.explanation, false);
  // A request that has passed here before would go round until every worker waits for itself.
  if (HasToken(head.headers, "via", std::string_view(kViaField).substr(5))) {
    return refuse(target.url, 508, "palvonauth proxy: the request has come through this proxy before (Via).\n", false);
  }
  const BodyFraming framing = FrameOf(head, settings.maxBody);
  if (framing.status != 0)
    return refuse(target.url, framing.status, "palvonauth proxy: " + framing.problem + "\n", false);
  BodyRead body = ReadBody(socket, head, framing, settings.maxBody);
  if (body.status != 0) return refuse(target.url, body.status, "palvonauth proxy: " + body.problem + "\n", false);

  OutgoingRequest outgoing;
  outgoing.method = head.method;
  outgoing.url = target.url;
  outgoing.headers = UpstreamHeaders(head);
  if (!body.bytes.empty()) outgoing.body = std::move(body.bytes);

  std::optional<ResponseWriter> writer;
  uint32_t status = 0;
  try {
    std::optional<HttpExchange> exchange;
    for (int attempt = 0; !exchange; ++attempt) {
      const std::optional<ConnectionHandle> connection =
          link.Connect([&] { (void)WriteOwnResponse(socket, 503, kNoService, false); });
      if (!connection) return refuse(target.url, 503, kNoService, keepAlive);
      try {
        exchange.emplace(*connection);
      } catch (const LibraryError& error) {
        // The service this worker registered with has gone since its last
        // request (and another may run now): nothing has been sent anywhere
        // yet, so the worker registers anew and tries once more.
        if (attempt > 0 || !ChannelMayBeLost(error.Code())) throw;
        link.Drop();
      }
    }
    exchange->Send(outgoing);
    outgoing.body.reset();
    const HttpResponseHead response = exchange->ReadHead(false);
    status = response.status;
    writer.emplace(socket, head, keepAlive);
    bool passed = writer->WriteHead(response.status, response.reason, response.headers);
    if (passed && writer->HasBody()) {
      const std::optional<uint64_t> length = ContentLength(response.headers);
      if (hooks.beforeLongBody && (!length || *length > kLongBody)) hooks.beforeLongBody();
      std::vector<AMByte> chunk(kReadSize);
      // Once an announced length has arrived the end is not asked for.
      for (AMUint got = 1; passed && got > 0 && !writer->Complete();) {
        got = exchange->ReadBody(chunk.data(), kReadSize);
        passed = writer->WriteBody(chunk.data(), got) && !(hooks.abandon && hooks.abandon());
      }
    }
    passed = passed && writer->Finish();
    LogAccess(settings, socket, head.method, target.url, static_cast<int>(status), writer->BodyBytes(),
              MillisecondsSince(start), passed ? "" : " (cut short)");
    return passed && writer->KeepAlive();
  } catch (const LibraryError& error) {
    if (ChannelMayBeLost(error.Code())) link.Drop();
    if (writer && writer->Started()) {
      LogAccess(settings, socket, head.method, target.url, static_cast<int>(status), writer->BodyBytes(),
                MillisecondsSince(start), " (cut short: the service failed)");
      return false;
    }
    if (!ServiceLink::ServiceListening()) return refuse(target.url, 503, kNoService, keepAlive);
    return refuse(target.url, 502,
                  "palvonauth proxy: the authentication-manager service could not perform the request.\n" +
                      std::string(error.what()) + "\n",
                  keepAlive);
  } catch (const std::exception& error) {
    // Out of memory, say: this request fails, the worker goes on.
    if (writer && writer->Started()) return false;
    return refuse(target.url, 500, std::string("palvonauth proxy: ") + error.what() + "\n", false);
  }
}

}  // namespace palvonauth
