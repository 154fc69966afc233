// Exported API level 1 functions.
#include "PalvonAuthManager.h"
#include "api/ExportFrame.h"
#include "api/SignatureTexts.h"

namespace PalvonAuthManagerSDK {

using L1 = LinuxAMImplementation;

extern "C" {

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CreateConnection(const AMChar* connectionName,
                                                                     StatusChangeCallback callback, void* context,
                                                                     ConnectionHandle* outHandle) {
  return ForwardToLevel1(sig::api::kCreateConnection, &L1::CreateConnection, connectionName, callback, context,
                         outHandle);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DestroyConnection(ConnectionHandle connection) {
  return ForwardToLevel1(sig::api::kDestroyConnection, &L1::DestroyConnection, connection);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_ClearAllCredentials(ConnectionHandle connection) {
  return ForwardToLevel1(sig::api::kClearAllCredentials, &L1::ClearAllCredentials, connection);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CancelAllCalls(ConnectionHandle connection) {
  return ForwardToLevel1(sig::api::kCancelAllCalls, &L1::CancelAllCalls, connection);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_LogOff(ConnectionHandle connection) {
  return ForwardToLevel1(sig::api::kLogOff, &L1::LogOff, connection);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_CreateVpnAuthContext(ConnectionHandle connection,
                                                                         const AM_GATEWAY_INFO* gatewayInfo,
                                                                         AMAuthenticationFlags flags,
                                                                         VpnAuthContextHandle* vpnAuthContextHandle) {
  return ForwardToLevel1(sig::api::kCreateVpnAuthContext, &L1::CreateVpnAuthContext, connection, gatewayInfo, flags,
                         vpnAuthContextHandle);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DestroyVpnAuthContext(VpnAuthContextHandle context) {
  return ForwardToLevel1(sig::api::kDestroyVpnAuthContext, &L1::DestroyVpnAuthContext, context);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetVpnAuthorizationInfo(
    VpnAuthContextHandle context, AM_VPN_AUTHORIZATION_INFO** vpnAuthorizationInfo) {
  return ForwardToLevel1(sig::api::kGetVpnAuthorizationInfo, &L1::GetVpnAuthorizationInfo, context,
                         vpnAuthorizationInfo);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeVpnAuthorizationInfo(AM_VPN_AUTHORIZATION_INFO* info) {
  return ForwardToLevel1(sig::api::kFreeVpnAuthorizationInfo, &L1::FreeVpnAuthorizationInfo, info);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GenerateTrampolineUrl(
    ConnectionHandle connection, const AMChar* serviceUrl, AMAuthenticationFlags flags,
    const AMChar* optionalReferenceUrl, AMChar** trampolineUrl, AMAuthenticationResult* authenticationResult) {
  return ForwardToLevel1(sig::api::kGenerateTrampolineUrl, &L1::GenerateTrampolineUrl, connection, serviceUrl, flags,
                         optionalReferenceUrl, trampolineUrl, authenticationResult);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeString(AMChar* text) {
  return ForwardToLevel1(sig::api::kFreeString, &L1::FreeString, text);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetVersion(ConnectionHandle connection, AMChar** version) {
  return ForwardToLevel1(sig::api::kGetVersion, &L1::GetVersion, connection, version);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_SetClientWindow(ConnectionHandle connection, AMWindowId window) {
  return ForwardToLevel1(sig::api::kSetClientWindow, &L1::SetClientWindow, connection, window);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_DetermineServerType(ConnectionHandle connection,
                                                                        const AMChar* serverUrl,
                                                                        AM_SERVER_INFO** outServerInfo) {
  return ForwardToLevel1(sig::api::kDetermineServerType, &L1::DetermineServerType, connection, serverUrl,
                         outServerInfo);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_FreeServerInfo(AM_SERVER_INFO* info) {
  return ForwardToLevel1(sig::api::kFreeServerInfo, &L1::FreeServerInfo, info);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_RetrieveGatewayDiscoveryData(
    ConnectionHandle connection, const AM_GATEWAY_INFO* gatewayInfo, AMAuthenticationFlags flags,
    AMChar** outDiscoveryData, AMAuthenticationResult* outAuthenticationResult) {
  return ForwardToLevel1(sig::api::kRetrieveGatewayDiscoveryData, &L1::RetrieveGatewayDiscoveryData, connection,
                         gatewayInfo, flags, outDiscoveryData, outAuthenticationResult);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_LogOffGateway(ConnectionHandle connection,
                                                                  const AM_GATEWAY_INFO* gatewayInfo) {
  return ForwardToLevel1(sig::api::kLogOffGateway, &L1::LogOffGateway, connection, gatewayInfo);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_LogOffAuthService(ConnectionHandle connection,
                                                                      const AMChar* authServiceUrl) {
  return ForwardToLevel1(sig::api::kLogOffAuthService, &L1::LogOffAuthService, connection, authServiceUrl);
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetLogonStatus(ConnectionHandle connection,
                                                                   const AMChar* authServiceUrl,
                                                                   AMLogonStatus* outLogonStatus) {
  return ForwardToLevel1(sig::api::kGetLogonStatus, &L1::GetLogonStatus, connection, authServiceUrl,
                         outLogonStatus);
}

}  // extern "C"

}  // namespace PalvonAuthManagerSDK
