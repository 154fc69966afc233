// Logging on to an authentication service (the trampoline URL), its status
// and logging off.

#include "daemon/Dispatcher.h"

#include <iterator>
#include <string>

#include "daemon/MessageValues.h"
#include "daemon/ServiceCodes.h"
#include "daemon/TextFormat.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

uint32_t Dispatcher::OnLogOffGateway(const LinuxDictionary& request) {
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  const auto name = TextOf(request, key::kFriendlyName);
  const auto url = TextOf(request, key::kLogonPointUrl);
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
  const auto url = TextOf(request, key::kServiceUrl);
  if (!url) return rc::kBadParameter;
  connection->logons.erase(*url);
  return 0;
}

uint32_t Dispatcher::OnGetLogonStatus(const LinuxDictionary& request, LinuxDictionary& reply) {
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  const auto url = TextOf(request, key::kServiceUrl);
  if (!url) return rc::kBadParameter;
  reply.SetUInt(key::kLogonStatus, connection->logons.count(*url) != 0 ? logon::kLoggedOn : logon::kLoggedOff);
  return 0;
}

uint32_t Dispatcher::OnGenerateTrampolineUrl(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = this->config();
  const uint32_t connectionHandle = UIntOf(request, key::kAuthManagerHandle).value_or(0);
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  const auto url = TextOf(request, key::kServiceUrl);
  if (!url) return rc::kBadParameter;
  const std::string reference = TextOf(request, key::kOptionalReferenceUrl).value_or("");
  const uint32_t flags = UIntOf(request, key::kAuthenticationFlags).value_or(0);

  LogonEntry entry;
  const ServerRule* rule = config.RuleFor(*url);
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
  SetText(reply, key::kTrampolineUrl, trampoline);
  reply.SetUInt(key::kAuthenticationResult, config.trampolineResult);
  return 0;
}

}  // namespace palvonauthd
