#ifndef PALVONAUTH_TOOLS_HTTP_REDIRECT_H
#define PALVONAUTH_TOOLS_HTTP_REDIRECT_H

// Following redirects on the client side (`http -L`): the service hands
// 3xx responses back as they are unless its configuration follows them.

#include <optional>
#include <string>

#include "http/HttpExchange.h"

namespace palvonauth {

/**
 * The absolute URL a response sends the client on to: its Location, read
 * relative to `url`, for the statuses that are followed (301, 302, 303, 307,
 * 308); nothing for other statuses or without a Location.
 */
std::optional<std::string> RedirectTarget(const HttpResponseHead& head, const std::string& url);

/**
 * The request made to `target` after `status`. 303 turns every method but
 * HEAD into GET, 301 and 302 turn POST into GET; a request turned into GET
 * goes without its body. 307 and 308 repeat the request. Authorization and
 * Cookie fields are dropped when the target has another scheme, host or
 * port. Throws LocalError when the target is not an http or https URL.
 */
OutgoingRequest RedirectedRequest(const OutgoingRequest& request, AMUint status, const std::string& target);

}  // namespace palvonauth

#endif
