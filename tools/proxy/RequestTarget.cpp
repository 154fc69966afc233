#include "proxy/RequestTarget.h"

#include "http/HeaderFields.h"

namespace palvonauth {

namespace {

const char* const kConnectRefused =
    "palvonauth proxy: CONNECT is not supported.\n"
    "TLS is done by the authentication-manager service itself, which has to see each request to\n"
    "authenticate it; a tunnel would carry encrypted bytes the service never sees.\n"
    "Send plain http:// URLs through this proxy, or run a reverse proxy for the HTTPS site:\n"
    "  palvonauth proxy --upstream https://gateway.example.com/apps/\n"
    "and ask for http://127.0.0.1:3128/... instead of https://gateway.example.com/apps/...\n";

const char* const kOriginFormRefused =
    "palvonauth proxy: this is a forward proxy and the request names no host.\n"
    "Send the absolute URL through it (curl -x http://127.0.0.1:3128 http://host/path,\n"
    "or http_proxy=http://127.0.0.1:3128), or start it with --upstream URL to serve one site\n"
    "at this address.\n";

// Length of "http://" or "https://" at the start of `url` (any case), else 0.
size_t SchemeLength(const std::string& url) {
  for (const std::string_view scheme : {"http://", "https://"}) {
    if (url.size() >= scheme.size() && EqualsIgnoreCase(std::string_view(url).substr(0, scheme.size()), scheme)) {
      return scheme.size();
    }
  }
  return 0;
}

// End of the authority after the scheme: the first '/', '?' or '#'.
size_t AuthorityEnd(const std::string& url, size_t from) {
  const size_t end = url.find_first_of("/?#", from);
  return end == std::string::npos ? url.size() : end;
}

TargetUrl RefuseTarget(int status, std::string explanation) {
  TargetUrl target;
  target.status = status;
  target.explanation = std::move(explanation);
  return target;
}

}  // namespace

std::string JoinUrl(const std::string& base, const std::string& path) {
  if (!base.empty() && base.back() == '/' && !path.empty() && path.front() == '/') return base + path.substr(1);
  return base + path;
}

std::optional<std::string> CheckUpstream(const std::string& url) {
  const size_t scheme = SchemeLength(url);
  if (scheme == 0) return "the upstream URL must start with http:// or https://";
  if (AuthorityEnd(url, scheme) == scheme) return "the upstream URL names no host";
  if (url.find_first_of("?#") != std::string::npos) return "the upstream URL may not have a query or fragment";
  for (const char c : url) {
    if (static_cast<unsigned char>(c) <= ' ' || static_cast<unsigned char>(c) >= 0x7F) {
      return "the upstream URL holds a space or a byte URLs may not hold";
    }
  }
  return std::nullopt;
}

TargetUrl ResolveTarget(const RequestHead& head, const std::string& upstream) {
  if (head.method == "CONNECT") return RefuseTarget(501, kConnectRefused);
  // The fragment is the client's business and never sent.
  const std::string target = head.target.substr(0, head.target.find('#'));
  const bool originForm = !target.empty() && target.front() == '/';
  const size_t scheme = originForm ? 0 : SchemeLength(target);
  if (!originForm && scheme == 0) {
    return RefuseTarget(400, "palvonauth proxy: the request target '" + target +
                                 "' is neither a path nor an http:// or https:// URL.\n");
  }
  const size_t authorityEnd = originForm ? 0 : AuthorityEnd(target, scheme);
  if (!originForm && authorityEnd == scheme) return RefuseTarget(400, "palvonauth proxy: the URL names no host.\n");
  TargetUrl resolved;
  if (upstream.empty()) {
    if (originForm) return RefuseTarget(400, kOriginFormRefused);
    resolved.url = target;
    if (authorityEnd == target.size()) resolved.url += '/';
    return resolved;
  }
  // Reverse mode: an absolute URL contributes its path and query only.
  std::string path = originForm ? target : target.substr(authorityEnd);
  if (path.empty() || path.front() != '/') path.insert(0, "/");
  resolved.url = JoinUrl(upstream, path);
  return resolved;
}

}  // namespace palvonauth
