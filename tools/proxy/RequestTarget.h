#ifndef PALVONAUTH_TOOLS_PROXY_REQUESTTARGET_H
#define PALVONAUTH_TOOLS_PROXY_REQUESTTARGET_H

// Where a request received by the proxy goes: the absolute URL of a forward
// proxy's request, or the upstream URL with the request's path appended.

#include <optional>
#include <string>

#include "proxy/RequestParser.h"

namespace palvonauth {

struct TargetUrl {
  /** The URL the service is to fetch; empty when refused. */
  std::string url;
  /** Status to answer when refused (400 or 501), with the text of the answer's body. */
  int status = 0;
  std::string explanation;
};

/**
 * Resolves the request target. `upstream` empty: forward mode, which takes
 * absolute http:// and https:// URLs only; otherwise reverse mode, where the
 * target's path and query are appended to `upstream`. CONNECT is refused in
 * both modes.
 */
TargetUrl ResolveTarget(const RequestHead& head, const std::string& upstream);

/** `base` followed by `path` (which starts with '/') with a single slash between them. */
std::string JoinUrl(const std::string& base, const std::string& path);

/** Why `url` cannot be a reverse proxy's upstream (not http(s), no host, a query or fragment), or nothing. */
std::optional<std::string> CheckUpstream(const std::string& url);

}  // namespace palvonauth

#endif
