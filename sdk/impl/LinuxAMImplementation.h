#ifndef PALVON_SDK_IMPL_LINUXAMIMPLEMENTATION_H
#define PALVON_SDK_IMPL_LINUXAMIMPLEMENTATION_H

#include "PalvonAuthManager.h"

namespace PalvonAuthManagerSDK {

/**
 * API level 1 operations. Each builds one request, sends it through the call
 * channel and copies the reply's values out; all state lives in the service.
 */
class LinuxAMImplementation {
 public:
  LinuxAMImplementation() = default;
  virtual ~LinuxAMImplementation();
  LinuxAMImplementation(const LinuxAMImplementation&) = delete;
  LinuxAMImplementation& operator=(const LinuxAMImplementation&) = delete;

  /** Tells the service this client starts (message 1). */
  virtual AMResult Initialize();
  /** Tells the service this client ends (message 3) and releases the call channel. */
  virtual AMResult Uninitialize();

  virtual AMResult CreateConnection(const AMChar* connectionName, StatusChangeCallback callback, void* context,
                                    ConnectionHandle* outHandle);
  virtual AMResult DestroyConnection(ConnectionHandle handle);
  virtual AMResult ClearAllCredentials(ConnectionHandle handle);
  virtual AMResult CancelAllCalls(ConnectionHandle handle);
  virtual AMResult LogOff(ConnectionHandle handle);
  virtual AMResult CreateVpnAuthContext(ConnectionHandle handle, const AM_GATEWAY_INFO* gatewayInfo,
                                        AMAuthenticationFlags flags, VpnAuthContextHandle* vpnAuthContextHandle);
  virtual AMResult DestroyVpnAuthContext(VpnAuthContextHandle context);
  virtual AMResult GetVpnAuthorizationInfo(VpnAuthContextHandle context,
                                           AM_VPN_AUTHORIZATION_INFO** vpnAuthorizationInfo);
  virtual AMResult FreeVpnAuthorizationInfo(AM_VPN_AUTHORIZATION_INFO* info);
  virtual AMResult GenerateTrampolineUrl(ConnectionHandle handle, const AMChar* serviceUrl,
                                         AMAuthenticationFlags flags, const AMChar* optionalReferenceUrl,
                                         AMChar** trampolineUrl, AMAuthenticationResult* authenticationResult);
  virtual AMResult FreeString(AMChar* text);
  virtual AMResult GetVersion(ConnectionHandle handle, AMChar** version);
  virtual AMResult SetClientWindow(ConnectionHandle handle, AMWindowId window);
  virtual AMResult DetermineServerType(ConnectionHandle handle, const AMChar* serverUrl,
                                       AM_SERVER_INFO** outServerInfo);
  virtual AMResult FreeServerInfo(AM_SERVER_INFO* info);
  virtual AMResult RetrieveGatewayDiscoveryData(ConnectionHandle handle, const AM_GATEWAY_INFO* gatewayInfo,
                                                AMAuthenticationFlags flags, AMChar** outDiscoveryData,
                                                AMAuthenticationResult* outAuthenticationResult);
  virtual AMResult LogOffGateway(ConnectionHandle handle, const AM_GATEWAY_INFO* gatewayInfo);
  virtual AMResult LogOffAuthService(ConnectionHandle handle, const AMChar* authServiceUrl);
  virtual AMResult GetLogonStatus(ConnectionHandle handle, const AMChar* authServiceUrl,
                                  AMLogonStatus* outLogonStatus);
};

}  // namespace PalvonAuthManagerSDK

#endif
