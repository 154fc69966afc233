#include "commands/ConnectionCalls.h"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

#include "Errors.h"
#include "commands/LibraryText.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

void CallGetVersion(Output& out, ConnectionHandle connection) {
  LibraryText version;
  Check("PalvonAuthManager_GetVersion", PalvonAuthManager_GetVersion(connection, &version.text));
  out.String("version", ToUtf8OrEmpty(version.text));
}

void CallGetLogonStatus(Output& out, ConnectionHandle connection, const std::string& url) {
  const std::wstring wideUrl = FromUtf8(url);
  AMLogonStatus status = 0;
  Check("PalvonAuthManager_GetLogonStatus", PalvonAuthManager_GetLogonStatus(connection, wideUrl.c_str(), &status));
  out.String("url", url);
  out.Number("logonStatus", status);
}

void CallDetermineServerType(Output& out, ConnectionHandle connection, const std::string& url) {
  const std::wstring wideUrl = FromUtf8(url);
  AM_SERVER_INFO* raw = nullptr;
  const AMResult result = PalvonAuthManager_DetermineServerType(connection, wideUrl.c_str(), &raw);
  // Handed out on success only; released whatever happened.
  std::unique_ptr<AM_SERVER_INFO, AMResult (*)(AM_SERVER_INFO*)> info(raw, PalvonAuthManager_FreeServerInfo);
  Check("PalvonAuthManager_DetermineServerType", result);
  out.String("url", url);
  out.Number("serverType", info ? info->serverType : 0);
  out.Bool("gateway", info && info->gatewayInfo != nullptr);
  if (info && info->gatewayInfo != nullptr) {
    const AM_GATEWAY_INFO& gateway = *info->gatewayInfo;
    out.BeginObject("gatewayInfo");
    out.String("friendlyName", ToUtf8OrEmpty(gateway.friendlyName));
    out.String("logonPointUrl", ToUtf8OrEmpty(gateway.logonPointUrl));
    out.Number("edition", gateway.amGatewayEdition);
    out.Number("authType", gateway.amGatewayAuthType);
    out.EndObject();
  }
}

void CallGenerateTrampolineUrl(Output& out, ConnectionHandle connection, const std::string& url,
                               const std::optional<std::string>& referenceUrl, uint32_t flags) {
  const std::wstring wideUrl = FromUtf8(url);
  std::wstring wideReference;
  if (referenceUrl) wideReference = FromUtf8(*referenceUrl);
  LibraryText trampoline;
  AMAuthenticationResult authentication = 0;
  Check("PalvonAuthManager_GenerateTrampolineUrl",
        PalvonAuthManager_GenerateTrampolineUrl(connection, wideUrl.c_str(), flags,
                                                referenceUrl ? wideReference.c_str() : nullptr, &trampoline.text,
                                                &authentication));
  out.String("trampolineUrl", ToUtf8OrEmpty(trampoline.text));
  out.Number("authenticationResult", authentication);
}

void CallRetrieveGatewayDiscoveryData(Output& out, ConnectionHandle connection, const GatewayOptions& gateway,
                                      uint32_t flags) {
  const GatewayRecord record(gateway);
  LibraryText data;
  AMAuthenticationResult authentication = 0;
  Check("PalvonAuthManager_RetrieveGatewayDiscoveryData",
        PalvonAuthManager_RetrieveGatewayDiscoveryData(connection, record.Get(), flags, &data.text, &authentication));
  out.String("discoveryData", ToUtf8OrEmpty(data.text));
  out.Number("authenticationResult", authentication);
}

void CallLogOff(Output& out, ConnectionHandle connection) {
  Check("PalvonAuthManager_LogOff", PalvonAuthManager_LogOff(connection));
  out.String("loggedOff", "connection");
}

void CallLogOffGateway(Output& out, ConnectionHandle connection, const GatewayOptions& gateway) {
  const GatewayRecord record(gateway);
  Check("PalvonAuthManager_LogOffGateway", PalvonAuthManager_LogOffGateway(connection, record.Get()));
  out.String("loggedOff", "gateway");
  out.String("url", gateway.logonPoint.value_or(""));
}

void CallLogOffAuthService(Output& out, ConnectionHandle connection, const std::string& url) {
  const std::wstring wideUrl = FromUtf8(url);
  Check("PalvonAuthManager_LogOffAuthService", PalvonAuthManager_LogOffAuthService(connection, wideUrl.c_str()));
  out.String("loggedOff", "auth-service");
  out.String("url", url);
}

void CallClearAllCredentials(Output& out, ConnectionHandle connection) {
  Check("PalvonAuthManager_ClearAllCredentials", PalvonAuthManager_ClearAllCredentials(connection));
  out.Bool("credentialsCleared", true);
}

void CallCancelAllCalls(Output& out, ConnectionHandle connection) {
  Check("PalvonAuthManager_CancelAllCalls", PalvonAuthManager_CancelAllCalls(connection));
  out.Bool("callsCancelled", true);
}

namespace {

bool ParseInt32(const std::string& text, int32_t& value) {
  if (text.empty()) return false;
  errno = 0;
  char* end = nullptr;
  const long long parsed = std::strtoll(text.c_str(), &end, 10);
  if (errno != 0 || *end != '\0' || parsed < INT32_MIN || parsed > INT32_MAX) return false;
  value = static_cast<int32_t>(parsed);
  return true;
}

}  // namespace

bool ParseWindow(const std::string& text, WindowGeometry& window) {
  std::vector<std::string> parts;
  size_t start = 0;
  // The name is everything after the fourth comma, commas included.
  for (int i = 0; i < 4; ++i) {
    const size_t comma = text.find(',', start);
    if (comma == std::string::npos) {
      if (i < 3) return false;
      parts.push_back(text.substr(start));
      start = std::string::npos;
      break;
    }
    parts.push_back(text.substr(start, comma - start));
    start = comma + 1;
  }
  WindowGeometry parsed;
  if (!ParseInt32(parts[0], parsed.left) || !ParseInt32(parts[1], parsed.bottom) ||
      !ParseInt32(parts[2], parsed.width) || !ParseInt32(parts[3], parsed.height)) {
    return false;
  }
  if (start != std::string::npos) parsed.name = text.substr(start);
  window = parsed;
  return true;
}

void CallSetClientWindow(Output& out, ConnectionHandle connection, const WindowGeometry& window) {
  std::wstring name;
  AMWindowInfo info{};
  info.winbottom = window.bottom;
  info.winleft = window.left;
  info.winwidth = window.width;
  info.winheight = window.height;
  if (window.name) {
    name = FromUtf8(*window.name);
    info.winname = name.c_str();
  }
  Check("PalvonAuthManager_SetClientWindow", PalvonAuthManager_SetClientWindow(connection, &info));
  out.BeginObject("window");
  out.Integer("left", window.left);
  out.Integer("bottom", window.bottom);
  out.Integer("width", window.width);
  out.Integer("height", window.height);
  if (window.name) out.String("name", *window.name);
  out.EndObject();
}

}  // namespace palvonauth
