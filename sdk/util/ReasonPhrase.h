#ifndef PALVON_SDK_UTIL_REASONPHRASE_H
#define PALVON_SDK_UTIL_REASONPHRASE_H

// The usual reason phrases of HTTP status codes, for a status line that
// needs one: the service's when a server sent none, the tool's proxy for the
// answers it makes itself.

#include <cstdint>

namespace PalvonAuthManagerSDK {

/** The phrase of a well-known status; "" for any other. */
inline const char* StandardReasonPhrase(uint32_t status) {
  switch (status) {
    case 100:
      return "Continue";
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 202:
      return "Accepted";
    case 204:
      return "No Content";
    case 206:
      return "Partial Content";
    case 301:
      return "Moved Permanently";
    case 302:
      return "Found";
    case 303:
      return "See Other";
    case 304:
      return "Not Modified";
    case 307:
      return "Temporary Redirect";
    case 308:
      return "Permanent Redirect";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 408:
      return "Request Timeout";
    case 409:
      return "Conflict";
    case 410:
      return "Gone";
    case 413:
      return "Content Too Large";
    case 414:
      return "URI Too Long";
    case 417:
      return "Expectation Failed";
    case 429:
      return "Too Many Requests";
    case 431:
      return "Request Header Fields Too Large";
    case 500:
      return "Internal Server Error";
    case 501:
      return "Not Implemented";
    case 502:
      return "Bad Gateway";
    case 503:
      return "Service Unavailable";
    case 504:
      return "Gateway Timeout";
    case 505:
      return "HTTP Version Not Supported";
    case 508:
      return "Loop Detected";
    default:
      return "";
  }
}

}  // namespace PalvonAuthManagerSDK

#endif
