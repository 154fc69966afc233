// VPN authentication contexts and their authorization records.

#include "daemon/Dispatcher.h"

#include <string>
#include <utility>

#include "daemon/MessageValues.h"
#include "daemon/TextFormat.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

uint32_t Dispatcher::OnCreateVpnAuthContext(const LinuxDictionary& request, LinuxDictionary& reply) {
  const uint32_t connectionHandle = UIntOf(request, key::kAuthManagerHandle).value_or(0);
  if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
  VpnContext context;
  context.connection = connectionHandle;
  static_cast<Gateway&>(context) = GatewayOf(request);
  context.flags = UIntOf(request, key::kAuthenticationFlags).value_or(0);
  context.token = RandomToken();
  const uint32_t handle = context_.NewHandle();
  vpnContexts_[handle] = std::move(context);
  reply.SetUInt(key::kVpnContextHandle, handle);
  return 0;
}

uint32_t Dispatcher::OnGetVpnAuthorizationInfo(const LinuxDictionary& request, LinuxDictionary& reply) {
  const Config& config = this->config();
  const uint32_t handle = UIntOf(request, key::kVpnContextHandle).value_or(0);
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
  reply.SetUInt(key::kAuthenticationResult, config.vpnResult);
  SetText(reply, key::kVpnAuthorization, ExpandTemplate(config.vpnAuthorization, values));
  SetText(reply, key::kVpnSessionLogonPointUrl, ExpandTemplate(config.vpnSessionLogonPointUrl, values));
  return 0;
}

}  // namespace palvonauthd
