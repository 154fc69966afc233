// VPN authentication contexts and their authorization records.
#include <memory>

#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/ServiceOperation.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

namespace {

// Releases an authorization record and the texts it holds (null ones included).
struct VpnInfoRelease {
  void operator()(AM_VPN_AUTHORIZATION_INFO* info) const {
    if (info == nullptr) return;
    delete[] info->vpnauthorizationstr;
    delete[] info->vpnsessionlogonpointurl;
    delete info;
  }
};
}  // namespace

AMResult LinuxAMImplementation::CreateVpnAuthContext(ConnectionHandle handle, const AM_GATEWAY_INFO* gatewayInfo,
                                                     AMAuthenticationFlags flags,
                                                     VpnAuthContextHandle* vpnAuthContextHandle) {
  ServiceOperation op(sig::l1::kCreateVpnAuthContext, msg::kCreateVpnAuthContext);
  if (!ServiceOperation::Require(gatewayInfo, "CreateVpnAuthContext", "gatewayInfo") ||
      !ServiceOperation::Require(vpnAuthContextHandle, "CreateVpnAuthContext", "vpnAuthContextHandle")) {
    return rc::kBadParameter;
  }
  return op.InvalidHandleMessage(text::kInvalidConnection, handle)
      .Call(
          [&](LinuxDictionary& request) {
            request.SetUInt(key::kAuthManagerHandle, handle);
            PutGateway(request, *gatewayInfo, false);
            request.SetUInt(key::kAuthenticationFlags, flags);
          },
          [&](const LinuxDictionary& reply) { (void)reply.GetUInt(key::kVpnContextHandle, vpnAuthContextHandle); });
}

AMResult LinuxAMImplementation::DestroyVpnAuthContext(VpnAuthContextHandle context) {
  return ServiceOperation(sig::l1::kDestroyVpnAuthContext, msg::kDestroyVpnAuthContext)
      .InvalidHandleMessage(text::kInvalidContext, context)
      .Call([&](LinuxDictionary& request) { request.SetUInt(key::kVpnContextHandle, context); });
}

AMResult LinuxAMImplementation::GetVpnAuthorizationInfo(VpnAuthContextHandle context,
                                                        AM_VPN_AUTHORIZATION_INFO** vpnAuthorizationInfo) {
  ServiceOperation op(sig::l1::kGetVpnAuthorizationInfo, msg::kGetVpnAuthorizationInfo);
  if (!ServiceOperation::Require(vpnAuthorizationInfo, "GetVpnAuthorizationInfo", "vpnAuthorizationInfo")) {
    return rc::kBadParameter;
  }
  return op.InvalidHandleMessage(text::kInvalidContext, context)
      .Call([&](LinuxDictionary& request) { request.SetUInt(key::kVpnContextHandle, context); },
            [&](const LinuxDictionary& reply) {
              // Filled completely before it is handed out: after a missing
              // text the caller's pointer stays as it was.
              std::unique_ptr<AM_VPN_AUTHORIZATION_INFO, VpnInfoRelease> info(new AM_VPN_AUTHORIZATION_INFO());
              (void)reply.GetUInt(key::kAuthenticationResult, &info->amAuthenticationResult);
              info->vpnauthorizationstr = CopyReplyText(reply, key::kVpnAuthorization);
              info->vpnsessionlogonpointurl = CopyReplyText(reply, key::kVpnSessionLogonPointUrl);
              *vpnAuthorizationInfo = info.release();
            });
}

AMResult LinuxAMImplementation::FreeVpnAuthorizationInfo(AM_VPN_AUTHORIZATION_INFO* info) {
  VpnInfoRelease()(info);
  return rc::kSuccess;
}

}  // namespace PalvonAuthManagerSDK
