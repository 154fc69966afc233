#include "daemon/Dispatcher.h"

#include <algorithm>
#include <chrono>
#include <optional>
#include <random>
#include <sstream>
#include <vector>

#include "common/ServerPipes.h"
#include "daemon/Codes.h"
#include "daemon/Log.h"
#include "daemon/Operations.h"
#include "daemon/Text.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;
namespace msg = PalvonAuthManagerSDK::msg;
namespace rc = PalvonAuthManagerSDK::rc;

namespace {

/** Largest body chunk sent in one reply, whatever the client asks for. */
constexpr uint32_t kMaxBodyChunk = 16u * 1024u * 1024u;

std::optional<uint32_t> UIntOf(const LinuxDictionary& message, const wchar_t* key) {
  unsigned int value = 0;
  if (message.GetUInt(key, &value)) return value;
  return std::nullopt;
}

std::optional<std::string> TextOf(const LinuxDictionary& message, const wchar_t* key) {
  const wchar_t* text = message.GetString(key);
  if (text == nullptr) return std::nullopt;
  return ToUtf8(text);
}

void SetText(LinuxDictionary& reply, const wchar_t* key, const std::string& utf8) {
  reply.SetWideString(key, FromUtf8(utf8));
}

std::string RandomToken() {
  static thread_local std::mt19937_64 generator{std::random_device{}()};
  std::ostringstream out;
  out << std::hex;
  for (int i = 0; i < 2; ++i) {
    const uint64_t part = generator();
    for (int shift = 60; shift >= 0; shift -= 4) out << ((part >> shift) & 0xF);
  }
  return out.str();
}

std::string Key(const std::wstring& key) { return ToUtf8(key); }

}  // namespace

std::string DescribeValues(const LinuxDictionary& message) {
  std::vector<std::string> parts;
  for (const auto& [key, value] : message.NarrowStringValues())
    parts.push_back(Key(key) + "=" + Quote(Abbreviate(value)));
  for (const auto& [key, value] : message.WideStringValues()) {
    parts.push_back(Key(key) + "=L" + Quote(Abbreviate(ToUtf8(value))));
  }
  for (const auto& [key, value] : message.IntValues()) parts.push_back(Key(key) + "=" + std::to_string(value));
  for (const auto& [key, value] : message.UIntValues()) parts.push_back(Key(key) + "=" + std::to_string(value));
  for (const auto& [key, value] : message.ByteValues()) parts.push_back(Key(key) + "=" + std::to_string(value));
  for (const auto& [key, value] : message.BufferValues()) {
    parts.push_back(Key(key) + "=<" + std::to_string(value.second) + " bytes>");
  }
  std::string out = "{";
  for (size_t i = 0; i < parts.size(); ++i) out += (i > 0 ? ", " : "") + parts[i];
  return out + "}";
}

ServiceContext::ServiceContext(const Config& config, Actions& actions) : config_(config), actions_(actions) {
  http_.userAgent = config.userAgent;
  http_.connectTimeoutSeconds = config.connectTimeoutSeconds;
  http_.timeoutSeconds = config.timeoutSeconds;
  http_.maxResponseBytes = config.maxResponseBytes;
  http_.followRedirects = config.followRedirects;
  http_.verifyTls = config.verifyTls;
  http_.caFile = ExpandHome(config.caFile);
}

uint32_t ServiceContext::NewHandle() {
  uint32_t handle = nextHandle_.fetch_add(1);
  while (handle == 0) handle = nextHandle_.fetch_add(1);
  return handle;
}

HttpOutcome LiveActions::Perform(HttpRequest& request, const HttpSettings& settings, const std::atomic<bool>& cancel) {
  return palvonauthd::Perform(request, settings, cancel);
}

uint32_t LiveActions::Launch(const LaunchRequest& request) { return launcher_.Launch(request); }

Dispatcher::Dispatcher(ServiceContext& context, uint32_t processId, const std::atomic<bool>& cancel)
    : context_(context), processId_(processId), cancel_(cancel) {}

LinuxDictionary Dispatcher::Answer(const LinuxDictionary& request) {
  const Config& config = context_.config();
  const uint32_t type = request.Header().messageType;
  LinuxDictionary reply = pam_service::MakeReply(request, 0);
  uint32_t result = 0;
  if (config.busyCount > 0 && config.FaultApplies(type) && busyAnswered_ < config.busyCount) {
    // The client repeats the same request after each busy answer.
    ++busyAnswered_;
    result = rc::kBusy;
  } else {
    busyAnswered_ = 0;
    const auto forced = config.forcedAnswers.find(type);
    if (forced != config.forcedAnswers.end()) {
      result = forced->second;
    } else {
      try {
        result = Dispatch(request, reply);
      } catch (const std::exception& error) {
        LogError("client ", processId_, ": ", OperationName(type), " failed: ", error.what());
        result = rc::kCommunicationFailure;
      }
    }
  }
  if (result != 0) {
    // Out-values go only with success.
    reply = pam_service::MakeReply(request, result);
  }
  reply.SetUInt(L"return", result);
  return reply;
}

uint32_t Dispatcher::Dispatch(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = context_.config();
  const uint32_t type = request.Header().messageType;
  switch (type) {
    case msg::kGetServerSDKVersion:
      reply.SetUInt(L"version", config.sdkVersion);
      return 0;
    case msg::kInitialize:
      LogInfo("client ", processId_, " initialised");
      return 0;
    case msg::kUninitialize: {
      const std::string released = ReleaseAll();
      LogInfo("client ", processId_, " uninitialised", released.empty() ? "" : ", released " + released);
      return 0;
    }
    case msg::kCreateConnection:
      return OnCreateConnection(request, reply);
    case msg::kDestroyConnection:
      return OnDestroyConnection(request);
    case msg::kClearAllCredentials:
    case msg::kLogOff:
      return OnClearCredentials(request);
    case msg::kCancelAllCalls:
      // A client has one call in flight at a time and it is answered before
      // the next is read, so there is never anything left to cancel.
      return FindConnection(request) != nullptr ? 0 : rc::kInvalidHandle;
    case msg::kLogOffGateway:
      return OnLogOffGateway(request);
    case msg::kLogOffAuthService:
      return OnLogOffAuthService(request);
    case msg::kGetLogonStatus:
      return OnGetLogonStatus(request, reply);
    case msg::kGenerateTrampolineUrl:
      return OnGenerateTrampolineUrl(request, reply);
    case msg::kCreateVpnAuthContext:
      return OnCreateVpnAuthContext(request, reply);
    case msg::kDestroyVpnAuthContext: {
      const uint32_t handle = UIntOf(request, L"vpnauthcontexthandle").value_or(0);
      return vpnContexts_.erase(handle) != 0 ? 0 : rc::kInvalidHandle;
    }
    case msg::kGetVpnAuthorizationInfo:
      return OnGetVpnAuthorizationInfo(request, reply);
    case msg::kGetVersion:
      if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
      SetText(reply, L"version", config.versionText);
      return 0;
    case msg::kSetClientWindow:
      return OnSetClientWindow(request);
    case msg::kDetermineServerType:
      return OnDetermineServerType(request, reply);
    case msg::kRetrieveGatewayDiscoveryData:
      return OnRetrieveGatewayDiscoveryData(request, reply);
    case msg::kLaunchRZPFile:
      return OnLaunch(request, reply);
    default:
      if (type >= msg::kCreateAMHttpRequest && type <= msg::kGetResponseTrustFailureFlags && type % 2 == 0) {
        return OnHttp(type, request, reply);
      }
      LogWarning("client ", processId_, " sent unknown message type ", type);
      return rc::kNotImplemented;
  }
}

Dispatcher::Connection* Dispatcher::FindConnection(const LinuxDictionary& request) {
  const auto it = connections_.find(UIntOf(request, L"AuthManagerHandle").value_or(0));
  return it != connections_.end() ? &it->second : nullptr;
}

uint32_t Dispatcher::ReleaseConnection(uint32_t handle) {
  uint32_t released = 0;
  for (auto it = vpnContexts_.begin(); it != vpnContexts_.end();) {
    if (it->second.connection == handle) {
      it = vpnContexts_.erase(it);
      ++released;
    } else {
      ++it;
    }
  }
  for (auto it = httpRequests_.begin(); it != httpRequests_.end();) {
    if (it->second.connection == handle) {
      it = httpRequests_.erase(it);
      ++released;
    } else {
      ++it;
    }
  }
  connections_.erase(handle);
  return released;
}

std::string Dispatcher::ReleaseAll() {
  std::vector<std::string> parts;
  const auto count = [&](size_t n, const char* what) {
    if (n > 0) parts.push_back(std::to_string(n) + " " + what);
  };
  count(connections_.size(), "connection(s)");
  count(vpnContexts_.size(), "VPN context(s)");
  count(httpRequests_.size(), "HTTP request(s)");
  connections_.clear();
  vpnContexts_.clear();
  httpRequests_.clear();
  busyAnswered_ = 0;
  std::string out;
  for (size_t i = 0; i < parts.size(); ++i) out += (i > 0 ? ", " : "") + parts[i];
  return out;
}

uint32_t Dispatcher::OnCreateConnection(const LinuxDictionary& request, LinuxDictionary& reply) {
  const uint32_t handle = context_.NewHandle();
  Connection& connection = connections_[handle];
  connection.name = TextOf(request, L"connectionName").value_or("");
  LogInfo("client ", processId_, " opened connection ", handle,
          connection.name.empty() ? "" : " " + Quote(connection.name));
  reply.SetUInt(L"AuthManagerHandle", handle);
  return 0;
}

uint32_t Dispatcher::OnDestroyConnection(const LinuxDictionary& request) {
  const uint32_t handle = UIntOf(request, L"AuthManagerHandle").value_or(0);
  if (connections_.count(handle) == 0) return rc::kInvalidHandle;
  const uint32_t released = ReleaseConnection(handle);
  LogInfo("client ", processId_, " closed connection ", handle,
          released > 0 ? ", released " + std::to_string(released) + " handle(s) made on it" : "");
  return 0;
}

uint32_t Dispatcher::OnClearCredentials(const LinuxDictionary& request) {
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  connection->logons.clear();
  return 0;
}

uint32_t Dispatcher::OnLogOffGateway(const LinuxDictionary& request) {
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  const auto name = TextOf(request, L"friendlyName");
  const auto url = TextOf(request, L"logonPointUrl");
  for (auto it = connection->logons.begin(); it != connection->logons.end();) {
    const LogonEntry& entry = it->second;
    const bool matches = (!name && !url) || (name && entry.gatewayName == *name) ||
                         (url && WithoutTrailingSlash(entry.gatewayUrl) == WithoutTrailingSlash(*url));
    it = matches ? connection->logons.erase(it) : std::next(it);
  }
  return 0;
}

uint32_t Dispatcher::OnLogOffAuthService(const LinuxDictionary& request) {
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  const auto url = TextOf(request, L"serviceUrl");
  if (!url) return rc::kBadParameter;
  connection->logons.erase(*url);
  return 0;
}

uint32_t Dispatcher::OnGetLogonStatus(const LinuxDictionary& request, LinuxDictionary& reply) {
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  const auto url = TextOf(request, L"serviceUrl");
  if (!url) return rc::kBadParameter;
  reply.SetUInt(L"logonStatus", connection->logons.count(*url) != 0 ? logon::kLoggedOn : logon::kLoggedOff);
  return 0;
}

namespace {

const ServerRule* MatchRule(const Config& config, const std::string& url) {
  for (const auto& rule : config.serverRules) {
    if (url.rfind(rule.prefix, 0) == 0) return &rule;
  }
  return nullptr;
}

}  // namespace

uint32_t Dispatcher::OnGenerateTrampolineUrl(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = context_.config();
  const uint32_t connectionHandle = UIntOf(request, L"AuthManagerHandle").value_or(0);
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  const auto url = TextOf(request, L"serviceUrl");
  if (!url) return rc::kBadParameter;
  // "optionale" is the key clients send; kept on purpose.
  const std::string reference = TextOf(request, L"optionaleReferenceUrl").value_or("");
  const uint32_t flags = UIntOf(request, L"authenticationFlags").value_or(0);

  LogonEntry entry;
  const ServerRule* rule = MatchRule(config, *url);
  if (rule != nullptr && rule->serverType == 2) {
    entry.gatewayName = rule->friendlyName;
    entry.gatewayUrl = rule->logonPointUrl;
  } else {
    entry.gatewayUrl = config.defaultGateway;
  }
  const std::string trampoline =
      ExpandTemplate(config.trampolineTemplate, {
                                                    {"gateway", WithoutTrailingSlash(entry.gatewayUrl)},
                                                    {"url", UrlEncode(*url)},
                                                    {"ref", UrlEncode(reference)},
                                                    {"flags", std::to_string(flags)},
                                                    {"connection", std::to_string(connectionHandle)},
                                                });
  connection->logons[*url] = entry;
  SetText(reply, L"trampolineUrl", trampoline);
  reply.SetUInt(L"amAuthenticationResult", config.trampolineResult);
  return 0;
}

uint32_t Dispatcher::OnCreateVpnAuthContext(const LinuxDictionary& request, LinuxDictionary& reply) {
  const uint32_t connectionHandle = UIntOf(request, L"AuthManagerHandle").value_or(0);
  if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
  VpnContext context;
  context.connection = connectionHandle;
  context.friendlyName = TextOf(request, L"friendlyName").value_or("");
  context.logonPointUrl = TextOf(request, L"logonPointUrl").value_or("");
  context.edition = UIntOf(request, L"amGatewayEdition").value_or(0);
  context.authType = UIntOf(request, L"amGatewayAuthType").value_or(0);
  context.flags = UIntOf(request, L"authenticationFlags").value_or(0);
  context.token = RandomToken();
  const uint32_t handle = context_.NewHandle();
  vpnContexts_[handle] = std::move(context);
  reply.SetUInt(L"vpnauthcontexthandle", handle);
  return 0;
}

uint32_t Dispatcher::OnGetVpnAuthorizationInfo(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = context_.config();
  const uint32_t handle = UIntOf(request, L"vpnauthcontexthandle").value_or(0);
  const auto it = vpnContexts_.find(handle);
  if (it == vpnContexts_.end()) return rc::kInvalidHandle;
  const VpnContext& context = it->second;
  const TemplateValues values = {
      {"friendlyName", context.friendlyName},
      {"logonPointUrl", context.logonPointUrl},
      {"edition", std::to_string(context.edition)},
      {"authType", std::to_string(context.authType)},
      {"rewriteRule", "0"},
      {"flags", std::to_string(context.flags)},
      {"token", context.token},
      {"context", std::to_string(handle)},
  };
  reply.SetUInt(L"amAuthenticationResult", config.vpnResult);
  SetText(reply, L"vpnauthorizationstr", ExpandTemplate(config.vpnAuthorization, values));
  SetText(reply, L"vpnsessionlogonpointurl", ExpandTemplate(config.vpnSessionLogonPointUrl, values));
  return 0;
}

uint32_t Dispatcher::OnSetClientWindow(const LinuxDictionary& request) {
  if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
  // The numbers travel as unsigned values holding the bits of signed ones.
  const auto number = [&](const wchar_t* key) {
    return std::to_string(static_cast<int32_t>(UIntOf(request, key).value_or(0)));
  };
  const auto text = [&](const wchar_t* key) {
    const auto value = TextOf(request, key);
    return value ? Quote(*value) : std::string("-");
  };
  LogInfo("client ", processId_, " window: name=", text(L"winname"), " id=", text(L"winid"),
          " amName=", text(L"winamName"), " left=", number(L"winleft"), " bottom=", number(L"winbottom"),
          " width=", number(L"winwidth"), " height=", number(L"winheight"));
  return 0;
}

uint32_t Dispatcher::OnDetermineServerType(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = context_.config();
  if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
  const auto url = TextOf(request, L"serviceUrl");
  if (!url) return rc::kBadParameter;
  const ServerRule* rule = MatchRule(config, *url);
  const uint32_t type = rule != nullptr ? rule->serverType : config.defaultServerType;
  reply.SetUInt(L"serverType", type);
  if (type == 2) {
    // A default type of 2 without a rule describes the default gateway.
    SetText(reply, L"friendlyName", rule != nullptr ? rule->friendlyName : std::string("Default gateway"));
    SetText(reply, L"logonPointUrl", rule != nullptr ? rule->logonPointUrl : config.defaultGateway);
    reply.SetUInt(L"amGatewayEdition", rule != nullptr ? rule->edition : 0);
    reply.SetUInt(L"amGatewayAuthType", rule != nullptr ? rule->authType : 0);
  }
  return 0;
}

uint32_t Dispatcher::OnRetrieveGatewayDiscoveryData(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = context_.config();
  if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
  const TemplateValues values = {
      {"friendlyName", XmlEscape(TextOf(request, L"friendlyName").value_or(""))},
      {"logonPointUrl", XmlEscape(TextOf(request, L"logonPointUrl").value_or(""))},
      {"edition", std::to_string(UIntOf(request, L"amGatewayEdition").value_or(0))},
      {"authType", std::to_string(UIntOf(request, L"amGatewayAuthType").value_or(0))},
      {"rewriteRule", std::to_string(UIntOf(request, L"amGatewayReWriteRule").value_or(0))},
      {"flags", std::to_string(UIntOf(request, L"authenticationFlags").value_or(0))},
      {"token", RandomToken()},
      {"context", "0"},
  };
  SetText(reply, L"discoveryData", ExpandTemplate(config.discoveryData, values));
  reply.SetUInt(L"amAuthenticationResult", config.discoveryResult);
  return 0;
}

uint32_t Dispatcher::OnLaunch(const LinuxDictionary& request, LinuxDictionary& reply) {
  LaunchRequest launch;
  launch.clientPid = processId_;
  const uint32_t count = UIntOf(request, L"NumberOfArgs").value_or(0);
  if (const std::string* url = request.FindNarrowString(L"LaunchURL")) launch.url = *url;
  for (uint32_t i = 0; i < count; ++i) {
    const std::wstring key = L"TrelkArg" + std::to_wstring(i);
    const std::string* argument = request.FindNarrowString(key.c_str());
    if (argument == nullptr) {
      LogWarning("client ", processId_, ": launch request names ", count, " argument(s) but has no ", Key(key));
      return rc::kBadParameter;
    }
    launch.args.push_back(*argument);
  }
  reply.SetUInt(L"currentStatus", context_.actions().Launch(launch));
  return 0;
}

uint32_t Dispatcher::OnHttp(uint32_t type, const LinuxDictionary& request, LinuxDictionary& reply) {
  if (type == msg::kCreateAMHttpRequest) {
    const uint32_t connection = UIntOf(request, L"AuthManagerHandle").value_or(0);
    if (connections_.count(connection) == 0) return rc::kInvalidHandle;
    const uint32_t handle = context_.NewHandle();
    httpRequests_[handle].connection = connection;
    reply.SetUInt(L"httpHandle", handle);
    return 0;
  }
  const uint32_t handle = UIntOf(request, L"httpHandle").value_or(0);
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
      if (requiredText(L"httpheader", line) != 0 || rejected(CheckHeaderLine(line), line)) return rc::kBadParameter;
      http.headers.push_back(line);
      return 0;
    }
    case msg::kSetRequestMethod: {
      std::string method;
      if (requiredText(L"httpMethod", method) != 0 || rejected(CheckMethod(method), method)) return rc::kBadParameter;
      http.method = method;
      return 0;
    }
    case msg::kSetRequestUrl:
      return requiredText(L"httpUrl", http.url);
    case msg::kSetRequestReferenceUrl:
      return requiredText(L"httpUrl", http.referenceUrl);
    case msg::kSetRequestAuthenticationFlags:
      http.authFlags = UIntOf(request, L"authFlags").value_or(0);
      return 0;
    case msg::kSetRequestUserAgentSuffix: {
      std::string suffix;
      if (requiredText(L"userAgentSuffix", suffix) != 0) return rc::kBadParameter;
      if (suffix.find_first_of("\r\n") != std::string::npos) {
        (void)rejected(std::string("user-agent suffix holds a line break"), suffix);
        return rc::kBadParameter;
      }
      http.userAgentSuffix = suffix;
      return 0;
    }
    case msg::kSetRequestData: {
      const uint32_t count = UIntOf(request, L"numBytes").value_or(0);
      const auto* data = request.FindBuffer(L"amByteData");
      const size_t size = data != nullptr ? data->first.size() : 0;
      if (size != count) {
        LogWarning("client ", processId_, ": HTTP request ", handle, ": body of ", size, " bytes announced as ", count);
        return rc::kBadParameter;
      }
      http.body = data != nullptr ? data->first : std::vector<uint8_t>();
      return 0;
    }
    case msg::kSetRequestRoute: {
      HttpRoute route;
      route.friendlyName = TextOf(request, L"friendlyName").value_or("");
      route.logonPointUrl = TextOf(request, L"logonPointUrl").value_or("");
      route.edition = UIntOf(request, L"amGatewayEdition").value_or(0);
      route.authType = UIntOf(request, L"amGatewayAuthType").value_or(0);
      LogDebug("client ", processId_, ": HTTP request ", handle, " routed through ", Quote(route.friendlyName), " ",
               Quote(route.logonPointUrl));
      http.route = route;
      return 0;
    }
    case msg::kSetRequestTimeoutSeconds:
      http.timeoutSeconds = UIntOf(request, L"timeout").value_or(0);
      return 0;
    case msg::kSendRequestAndReceiveResponse:
      return OnSend(handle, http);
    case msg::kDestroyAMHttpRequest:
      httpRequests_.erase(it);
      return 0;
    case msg::kGetResponseTrustFailureFlags:
      if (!http.attempted) return code::kHttpNoResponse;
      reply.SetUInt(L"trustFailureFlags", http.trustFailureFlags);
      return 0;
    default:
      break;
  }
  if (!http.response) return code::kHttpNoResponse;
  HttpResponse& response = *http.response;
  switch (type) {
    case msg::kGetResponseStatusCode:
      reply.SetUInt(L"httpStatus", response.status);
      return 0;
    case msg::kGetResponseReasonPhrase:
      reply.SetWideString(L"httpResponse", FromUtf8(response.reason));
      return 0;
    case msg::kGetResponseHeaders:
      reply.SetUInt(L"numHeaders", static_cast<uint32_t>(response.headers.size()));
      for (size_t i = 0; i < response.headers.size(); ++i) {
        const std::wstring key = L"Attrib" + std::to_wstring(i);
        reply.SetWideString(key.c_str(), FromUtf8(response.headers[i]));
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
  const HttpOutcome outcome = context_.actions().Perform(http, context_.http(), cancel_);
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
  const uint32_t wanted = UIntOf(request, L"maxNumberOfBytesToRead").value_or(0);
  const size_t left = response.body.size() - response.readOffset;
  const size_t chunk = std::min<size_t>({left, wanted, kMaxBodyChunk});
  if (chunk > 0) {
    // An empty buffer cannot be encoded; the end of the body is a reply without one.
    reply.SetBuffer(L"amByteData", response.body.data() + response.readOffset, static_cast<unsigned int>(chunk));
    response.readOffset += chunk;
  }
  return 0;
}

}  // namespace palvonauthd
