#include "http/Redirect.h"

#include <algorithm>

#include "Errors.h"
#include "http/HeaderFields.h"
#include "http/Url.h"

namespace palvonauth {

std::optional<std::string> RedirectTarget(const HttpResponseHead& head, const std::string& url) {
  switch (head.status) {
    case 301:
    case 302:
    case 303:
    case 307:
    case 308:
      break;
    default:
      return std::nullopt;
  }
  const std::optional<std::string> location = FindField(head.headers, "Location");
  if (!location || location->empty()) return std::nullopt;
  return ResolveReference(url, *location);
}

OutgoingRequest RedirectedRequest(const OutgoingRequest& request, AMUint status, const std::string& target) {
  const std::string scheme = SplitUrl(target).scheme.value_or("");
  if (!EqualsIgnoreCase(scheme, "http") && !EqualsIgnoreCase(scheme, "https")) {
    throw LocalError("not following the redirect to " + target + ": only http and https URLs are followed",
                     kExitCallFailed);
  }
  OutgoingRequest next = request;
  next.url = target;
  const bool toGet =
      (status == 303 && request.method != "HEAD") || ((status == 301 || status == 302) && request.method == "POST");
  if (toGet) {
    next.method = "GET";
    next.body.reset();
  }
  if (Origin(target) != Origin(request.url)) {
    next.headers.erase(std::remove_if(next.headers.begin(), next.headers.end(),
                                      [](const std::string& line) {
                                        return EqualsIgnoreCase(FieldName(line), "Authorization") ||
                                               EqualsIgnoreCase(FieldName(line), "Cookie");
                                      }),
                       next.headers.end());
  }
  return next;
}

}  // namespace palvonauth
