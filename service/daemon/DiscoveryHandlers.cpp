// Server type and gateway discovery, answered from the configured rules.

#include "daemon/Dispatcher.h"

#include <string>

#include "daemon/MessageValues.h"
#include "daemon/TextFormat.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

uint32_t Dispatcher::OnDetermineServerType(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = this->config();
  if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
  const auto url = TextOf(request, key::kServiceUrl);
  if (!url) return rc::kBadParameter;
  const ServerRule* rule = config.RuleFor(*url);
  const uint32_t type = rule != nullptr ? rule->serverType : config.defaultServerType;
  reply.SetUInt(key::kServerType, type);
  if (type == 2) {
    // A default type of 2 without a rule describes the default gateway.
    SetText(reply, key::kFriendlyName, rule != nullptr ? rule->friendlyName : std::string("Default gateway"));
    SetText(reply, key::kLogonPointUrl, rule != nullptr ? rule->logonPointUrl : config.defaultGateway);
    reply.SetUInt(key::kGatewayEdition, rule != nullptr ? rule->edition : 0);
    reply.SetUInt(key::kGatewayAuthType, rule != nullptr ? rule->authType : 0);
  }
  return 0;
}

uint32_t Dispatcher::OnRetrieveGatewayDiscoveryData(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = this->config();
  if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
  const Gateway gateway = GatewayOf(request);
  const TemplateValues values = {
      {"friendlyName", XmlEscape(gateway.friendlyName)},
      {"logonPointUrl", XmlEscape(gateway.logonPointUrl)},
      {"edition", std::to_string(gateway.edition)},
      {"authType", std::to_string(gateway.authType)},
      {"rewriteRule", std::to_string(UIntOf(request, key::kGatewayRewriteRule).value_or(0))},
      {"flags", std::to_string(UIntOf(request, key::kAuthenticationFlags).value_or(0))},
      {"token", RandomToken()},
      {"context", "0"},
  };
  SetText(reply, key::kDiscoveryData, ExpandTemplate(config.discoveryData, values));
  reply.SetUInt(key::kAuthenticationResult, config.discoveryResult);
  return 0;
}

}  // namespace palvonauthd
