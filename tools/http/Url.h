#ifndef PALVONAUTH_TOOLS_HTTP_URL_H
#define PALVONAUTH_TOOLS_HTTP_URL_H

// The parts of a URL the tool needs for following redirects and for
// describing a request: reference resolution after RFC 3986, section 5.

#include <optional>
#include <string>
#include <string_view>

namespace palvonauth {

/** A URL split after RFC 3986, appendix B; absent parts are empty optionals. */
struct UrlParts {
  std::optional<std::string> scheme;
  std::optional<std::string> authority;
  std::string path;
  std::optional<std::string> query;
  std::optional<std::string> fragment;
};

UrlParts SplitUrl(std::string_view url);
std::string JoinUrl(const UrlParts& parts);

/** `url`, with "http://" before it when it names no scheme: how curl and the service read such a URL. */
std::string WithScheme(std::string_view url);

/** The absolute URL `reference` (a Location value, say) names when read relative to `base`. */
std::string ResolveReference(std::string_view base, std::string_view reference);

/** "scheme://host:port" in lower case, without user information: what decides whether credentials go along. */
std::string Origin(std::string_view url);
/** The host and port, as a Host field carries them. */
std::string HostOf(std::string_view url);
/** The path and query, as a request line carries them ("/" for an empty path). */
std::string RequestTarget(std::string_view url);

}  // namespace palvonauth

#endif
