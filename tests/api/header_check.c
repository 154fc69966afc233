/* The public header compiled as strict C11: it must be self-contained and
 * warning-free, and usable without any C++ around it. */
#include "PalvonAuthManager.h"

/* Every public type and record is usable by name. */
static AMResult pam_header_check_types(void) {
  AM_GATEWAY_INFO gateway = {L"g", L"u", 1u, 2u, 3u};
  AM_SERVER_INFO server = {2u, &gateway};
  AM_VPN_AUTHORIZATION_INFO vpn = {0u, NULL, NULL};
  AMWindowInfo window = {0, 0, 0, 0, NULL, NULL, NULL};
  AMWindowId id = &window;
  StatusChangeCallback callback = NULL;
  const AMUTF8Char* launch = "x";
  AMByte byte = 0u;
  ConnectionHandle connection = 0u;
  RequestContextHandle context = 0u;
  VpnAuthContextHandle vpnContext = 0u;
  AMHttpHandle http = 0u;
  AMCertificate certificate = 0u;
  AMAuthenticationFlags flags = 0u;
  AMAuthenticationResult result = 0u;
  AMLogonStatus status = 0u;
  AMHttpStatus httpStatus = 0u;
  AMHttpFailureReason reason = 0u;
  AMUint level = 0u;
  bool initialised = false;
  enum AMResultCode code = AM_RESULT_SUCCESS;
  (void)server;
  (void)vpn;
  (void)id;
  (void)callback;
  (void)launch;
  return (AMResult)byte + connection + context + vpnContext + http + certificate + flags + result + status +
         httpStatus + reason + level + (AMResult)initialised + (AMResult)code;
}

/* Taking the address of a function checks its declaration. */
AMResult (*pam_header_check_c11(void))(AMUint*) {
  (void)pam_header_check_types();
  return &PalvonAuthManager_GetApiLevel;
}
