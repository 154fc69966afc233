#include "http/HttpExchange.h"

#include <limits>

#include "Errors.h"
#include "commands/LibraryText.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

std::string StatusLine(const HttpResponseHead& head) {
  std::string line = "HTTP/1.1 " + std::to_string(head.status);
  if (!head.reason.empty()) line += " " + head.reason;
  return line;
}

HttpExchange::HttpExchange(ConnectionHandle connection) {
  Check("PalvonAuthManager_CreateAMHttpRequest", PalvonAuthManager_CreateAMHttpRequest(connection, &handle_));
  open_ = true;
}

HttpExchange::~HttpExchange() {
  if (open_) (void)PalvonAuthManager_DestroyAMHttpRequest(handle_);
}

void HttpExchange::Close() {
  open_ = false;
  Check("PalvonAuthManager_DestroyAMHttpRequest", PalvonAuthManager_DestroyAMHttpRequest(handle_));
}

void HttpExchange::Send(const OutgoingRequest& request) {
  const std::wstring method = FromUtf8(request.method);
  Check("PalvonAuthManager_SetRequestMethod", PalvonAuthManager_SetRequestMethod(handle_, method.c_str()));
  const std::wstring url = FromUtf8(request.url);
  Check("PalvonAuthManager_SetRequestUrl", PalvonAuthManager_SetRequestUrl(handle_, url.c_str()));
  if (request.referenceUrl) {
    const std::wstring reference = FromUtf8(*request.referenceUrl);
    Check("PalvonAuthManager_SetRequestReferenceUrl",
          PalvonAuthManager_SetRequestReferenceUrl(handle_, reference.c_str()));
  }
  if (request.authenticationFlags) {
    Check("PalvonAuthManager_SetRequestAuthenticationFlags",
          PalvonAuthManager_SetRequestAuthenticationFlags(handle_, *request.authenticationFlags));
  }
  if (request.timeoutSeconds) {
    Check("PalvonAuthManager_SetRequestTimeoutSeconds",
          PalvonAuthManager_SetRequestTimeoutSeconds(handle_, *request.timeoutSeconds));
  }
  if (request.userAgentSuffix) {
    const std::wstring suffix = FromUtf8(*request.userAgentSuffix);
    Check("PalvonAuthManager_SetRequestUserAgentSuffix",
          PalvonAuthManager_SetRequestUserAgentSuffix(handle_, suffix.c_str()));
  }
  if (request.route.logonPoint) {
    const GatewayRecord route(request.route);
    Check("PalvonAuthManager_SetRequestRoute", PalvonAuthManager_SetRequestRoute(handle_, route.Get()));
  }
  for (const std::string& header : request.headers) {
    const std::wstring line = FromUtf8(header);
    Check("PalvonAuthManager_AddRequestHeader", PalvonAuthManager_AddRequestHeader(handle_, line.c_str()));
  }
  if (request.body) {
    const std::vector<AMByte>& body = *request.body;
    if (body.size() > std::numeric_limits<AMUint>::max()) throw LocalError("request body too large");
    Check("PalvonAuthManager_SetRequestData",
          PalvonAuthManager_SetRequestData(handle_, body.empty() ? nullptr : body.data(),
                                           static_cast<AMUint>(body.size())));
  }
  Check("PalvonAuthManager_SendRequestAndReceiveResponse", PalvonAuthManager_SendRequestAndReceiveResponse(handle_));
}

HttpResponseHead HttpExchange::ReadHead(bool trustFailureFlags) {
  HttpResponseHead head;
  Check("PalvonAuthManager_GetResponseStatusCode", PalvonAuthManager_GetResponseStatusCode(handle_, &head.status));
  {
    LibraryText phrase;
    const AMResult result = PalvonAuthManager_GetResponseReasonPhrase(handle_, &phrase.text);
    head.reason = ToUtf8OrEmpty(phrase.text);
    Check("PalvonAuthManager_GetResponseReasonPhrase", result);
  }
  {
    AMChar** lines = nullptr;
    const AMResult result = PalvonAuthManager_GetResponseHeaders(handle_, &lines);
    for (AMChar** line = lines; result == AM_RESULT_SUCCESS && line != nullptr && *line != nullptr; ++line) {
      head.headers.push_back(ToUtf8OrEmpty(*line));
    }
    (void)PalvonAuthManager_FreeResponseHeaders(lines);
    Check("PalvonAuthManager_GetResponseHeaders", result);
  }
  if (trustFailureFlags) {
    Check("PalvonAuthManager_GetResponseTrustFailureFlags",
          PalvonAuthManager_GetResponseTrustFailureFlags(handle_, &head.trustFailureFlags));
  }
  return head;
}

AMUint HttpExchange::ReadBody(AMByte* buffer, AMUint capacity) {
  AMUint got = 0;
  Check("PalvonAuthManager_ReadResponseBodyStream",
        PalvonAuthManager_ReadResponseBodyStream(handle_, buffer, capacity, &got));
  return got;
}

}  // namespace palvonauth
