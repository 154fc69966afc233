// HTTP request handles, the settings of a request, sending it and reading
// its response.

#include "daemon/Dispatcher.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "daemon/Log.h"
#include "daemon/MessageValues.h"
#include "daemon/ServiceCodes.h"
#include "daemon/TextFormat.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

namespace {

/**
 * Largest body chunk sent in one reply, whatever the client asks for. Larger
 * replies made each side take fresh pages from the system for every frame
 * (the allocator maps blocks from 128 KiB up), which cost more than the
 * extra round trips; below that, 300 MiB passed three times as fast.
 */
constexpr uint32_t kMaxBodyChunk = 120u * 1024u;

}  // namespace

uint32_t Dispatcher::OnHttp(uint32_t type, const LinuxDictionary& request, LinuxDictionary& reply) {
  if (type == msg::kCreateAMHttpRequest) {
    const uint32_t connection = UIntOf(request, key::kAuthManagerHandle).value_or(0);
    if (connections_.count(connection) == 0) return rc::kInvalidHandle;
    const uint32_t handle = context_.NewHandle();
    httpRequests_[handle].connection = connection;
    reply.SetUInt(key::kHttpHandle, handle);
    return 0;
  }
  const uint32_t handle = UIntOf(request, key::kHttpHandle).value_or(0);
  const auto it = httpRequests_.find(handle);
  if (it == httpRequests_.end()) return rc::kInvalidHandle;
  HttpRequest& http = it->second;
  const auto requiredText = [&](const wchar_t* key, std::string& into) -> uint32_t {
    const auto value = TextOf(request, key);
    if (!value) return rc::kBadParameter;
    into = *value;
    return 0;
  };
  const auto rejected = [&](const std::optional<std::string>& problem, const std::string& what) -> bool {
    if (!problem) return false;
    LogWarning("client ", processId_, ": HTTP request ", handle, ": ", *problem, ": ", Quote(what));
    return true;
  };
  switch (type) {
    case msg::kAddRequestHeader: {
      std::string line;
      if (requiredText(key::kHttpHeader, line) != 0 || rejected(CheckHeaderLine(line), line)) return rc::kBadParameter;
      http.headers.push_back(line);
      return 0;
    }
    case msg::kSetRequestMethod: {
      std::string method;
      if (requiredText(key::kHttpMethod, method) != 0 || rejected(CheckMethod(method), method))
        return rc::kBadParameter;
      http.method = method;
      return 0;
    }
    case msg::kSetRequestUrl:
      return requiredText(key::kHttpUrl, http.url);
    case msg::kSetRequestReferenceUrl:
      return requiredText(key::kHttpUrl, http.referenceUrl);
    case msg::kSetRequestAuthenticationFlags:
      http.authFlags = UIntOf(request, key::kHttpAuthFlags).value_or(0);
      return 0;
    case msg::kSetRequestUserAgentSuffix: {
      std::string suffix;
      if (requiredText(key::kUserAgentSuffix, suffix) != 0) return rc::kBadParameter;
      if (suffix.find_first_of("\r\n") != std::string::npos) {
        (void)rejected(std::string("user-agent suffix holds a line break"), suffix);
        return rc::kBadParameter;
      }
      http.userAgentSuffix = suffix;
      return 0;
    }
    case msg::kSetRequestData: {
      const uint32_t count = UIntOf(request, key::kNumBytes).value_or(0);
      const auto* data = request.FindBuffer(key::kByteData);
      const size_t size = data != nullptr ? data->first.size() : 0;
      if (size != count) {
        LogWarning("client ", processId_, ": HTTP request ", handle, ": body of ", size, " bytes announced as ", count);
        return rc::kBadParameter;
      }
      http.body = data != nullptr ? data->first : std::vector<uint8_t>();
      return 0;
    }
    case msg::kSetRequestRoute: {
      const Gateway route = GatewayOf(request);
      LogDebug("client ", processId_, ": HTTP request ", handle, " routed through ", Quote(route.friendlyName), " ",
               Quote(route.logonPointUrl));
      http.route = route;
      return 0;
    }
    case msg::kSetRequestTimeoutSeconds:
      http.timeoutSeconds = UIntOf(request, key::kTimeout).value_or(0);
      return 0;
    case msg::kSendRequestAndReceiveResponse:
      return OnSend(handle, http);
    case msg::kDestroyAMHttpRequest:
      httpRequests_.erase(it);
      return 0;
    case msg::kGetResponseTrustFailureFlags:
      if (!http.attempted) return code::kHttpNoResponse;
      reply.SetUInt(key::kTrustFailureFlags, http.trustFailureFlags);
      return 0;
    default:
      break;
  }
  if (!http.response) return code::kHttpNoResponse;
  HttpResponse& response = *http.response;
  switch (type) {
    case msg::kGetResponseStatusCode:
      reply.SetUInt(key::kHttpStatus, response.status);
      return 0;
    case msg::kGetResponseReasonPhrase:
      SetText(reply, key::kHttpReasonPhrase, response.reason);
      return 0;
    case msg::kGetResponseHeaders:
      reply.SetUInt(key::kNumHeaders, static_cast<uint32_t>(response.headers.size()));
      for (size_t i = 0; i < response.headers.size(); ++i) {
        SetText(reply, key::Indexed(key::kHeaderPrefix, static_cast<uint32_t>(i)).c_str(), response.headers[i]);
      }
      return 0;
    case msg::kReadResponseBodyStream:
      return OnReadBody(request, response, reply);
    default:
      LogWarning("client ", processId_, " sent unknown message type ", type);
      return rc::kNotImplemented;
  }
}

uint32_t Dispatcher::OnSend(uint32_t handle, HttpRequest& http) {
  const auto started = std::chrono::steady_clock::now();
  const HttpOutcome outcome = context_.actions().Perform(http, settings_->http, cancel_);
  const auto took =
      std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - started).count();
  const std::string what = "client " + std::to_string(processId_) + ": HTTP request " + std::to_string(handle) + " " +
                           http.method + " " + Quote(Abbreviate(http.url)) + " ";
  if (outcome.code == 0) {
    LogInfo(what, "-> ", outcome.detail, " in ", took, " ms");
  } else {
    LogInfo(what, "failed with ", outcome.code, " after ", took, " ms: ", outcome.detail);
  }
  return outcome.code;
}

uint32_t Dispatcher::OnReadBody(const LinuxDictionary& request, HttpResponse& response, LinuxDictionary& reply) {
  const size_t wanted = std::min<size_t>(UIntOf(request, key::kMaxBytesToRead).value_or(0), kMaxBodyChunk);
  std::vector<uint8_t> chunk(wanted);
  uint32_t code = 0;
  const size_t got = response.ReadBody(chunk.data(), wanted, code);
  if (code != 0) {
    LogWarning("client ", processId_, ": HTTP response body broke off with ", code);
    return code;
  }
  // An empty buffer cannot be encoded; the end of the body is a reply without one.
  chunk.resize(got);
  reply.SetBuffer(key::kByteData, std::move(chunk));
  return 0;
}

}  // namespace palvonauthd
