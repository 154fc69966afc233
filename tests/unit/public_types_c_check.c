/* The public header compiled as C: the records must have the same layout as
 * in C++, and the result codes the same values. */
#include <stddef.h>

#include "PalvonAuthManager.h"

_Static_assert(sizeof(AMChar) == 4, "AMChar");
_Static_assert(sizeof(AM_GATEWAY_INFO) == 32 && offsetof(AM_GATEWAY_INFO, amGatewayEdition) == 16 &&
                   offsetof(AM_GATEWAY_INFO, amGatewayAuthType) == 20 &&
                   offsetof(AM_GATEWAY_INFO, amGatewayReWriteRule) == 24,
               "AM_GATEWAY_INFO");
_Static_assert(sizeof(AM_SERVER_INFO) == 16 && offsetof(AM_SERVER_INFO, gatewayInfo) == 8, "AM_SERVER_INFO");
_Static_assert(sizeof(AM_VPN_AUTHORIZATION_INFO) == 24 &&
                   offsetof(AM_VPN_AUTHORIZATION_INFO, vpnauthorizationstr) == 8 &&
                   offsetof(AM_VPN_AUTHORIZATION_INFO, vpnsessionlogonpointurl) == 16,
               "AM_VPN_AUTHORIZATION_INFO");
_Static_assert(sizeof(AMWindowInfo) == 40 && offsetof(AMWindowInfo, winheight) == 12 &&
                   offsetof(AMWindowInfo, winname) == 16 && offsetof(AMWindowInfo, winamName) == 32,
               "AMWindowInfo");
_Static_assert(AM_RESULT_NOT_INITIALIZED == 0xFFFD && AM_RESULT_SERVICE_BUSY == 0xFF00, "result codes");

int pam_public_types_c_layout_ok(void) {
  const AMWindowInfo window = {1, 2, 3, 4, NULL, NULL, NULL};
  return window.winbottom == 1 && sizeof(AM_GATEWAY_INFO) == 32;
}
