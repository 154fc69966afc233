// Layout of the public records and the values of the result codes. Both are
// part of the binary interface applications are compiled against, so they
// are pinned at compile time (x86-64, LP64). public_types_c_check.c checks the
// same layout as seen by a C compiler.
#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "PalvonAuthManager.h"

namespace {

using namespace PalvonAuthManagerSDK;

static_assert(sizeof(void*) == 8, "the layout below is that of a 64-bit target");

static_assert(sizeof(AMChar) == 4, "AMChar is a 32-bit wchar_t");
static_assert(std::is_same<AMChar, wchar_t>::value, "AMChar is wchar_t");
static_assert(sizeof(AMResult) == 4 && std::is_unsigned<AMResult>::value, "AMResult is unsigned 32-bit");
static_assert(sizeof(AMUint) == 4 && sizeof(ConnectionHandle) == 4 && sizeof(VpnAuthContextHandle) == 4 &&
                  sizeof(AMHttpHandle) == 4 && sizeof(RequestContextHandle) == 4,
              "handles are 32-bit numbers");

static_assert(sizeof(AM_GATEWAY_INFO) == 32, "AM_GATEWAY_INFO size");
static_assert(offsetof(AM_GATEWAY_INFO, friendlyName) == 0, "friendlyName");
static_assert(offsetof(AM_GATEWAY_INFO, logonPointUrl) == 8, "logonPointUrl");
static_assert(offsetof(AM_GATEWAY_INFO, amGatewayEdition) == 16, "amGatewayEdition");
static_assert(offsetof(AM_GATEWAY_INFO, amGatewayAuthType) == 20, "amGatewayAuthType");
static_assert(offsetof(AM_GATEWAY_INFO, amGatewayReWriteRule) == 24, "amGatewayReWriteRule");

static_assert(sizeof(AM_SERVER_INFO) == 16, "AM_SERVER_INFO size");
static_assert(offsetof(AM_SERVER_INFO, serverType) == 0, "serverType");
static_assert(offsetof(AM_SERVER_INFO, gatewayInfo) == 8, "gatewayInfo");

static_assert(sizeof(AM_VPN_AUTHORIZATION_INFO) == 24, "AM_VPN_AUTHORIZATION_INFO size");
static_assert(offsetof(AM_VPN_AUTHORIZATION_INFO, amAuthenticationResult) == 0, "amAuthenticationResult");
static_assert(offsetof(AM_VPN_AUTHORIZATION_INFO, vpnauthorizationstr) == 8, "vpnauthorizationstr");
static_assert(offsetof(AM_VPN_AUTHORIZATION_INFO, vpnsessionlogonpointurl) == 16, "vpnsessionlogonpointurl");

static_assert(sizeof(AMWindowInfo) == 40, "AMWindowInfo size");
static_assert(offsetof(AMWindowInfo, winbottom) == 0, "winbottom comes first");
static_assert(offsetof(AMWindowInfo, winleft) == 4, "winleft");
static_assert(offsetof(AMWindowInfo, winwidth) == 8, "winwidth");
static_assert(offsetof(AMWindowInfo, winheight) == 12, "winheight");
static_assert(offsetof(AMWindowInfo, winname) == 16, "winname");
static_assert(offsetof(AMWindowInfo, winid) == 24, "winid");
static_assert(offsetof(AMWindowInfo, winamName) == 32, "winamName");
static_assert(std::is_same<AMWindowId, AMWindowInfo*>::value, "AMWindowId points to AMWindowInfo");

static_assert(AM_RESULT_SUCCESS == 0, "success");
static_assert(AM_RESULT_IPC_SETUP_FAILED == 65535, "IPC setup failed");
static_assert(AM_RESULT_ALREADY_INITIALIZED == 65534, "accepted as success by initialisation");
static_assert(AM_RESULT_NOT_INITIALIZED == 65533, "not initialised");
static_assert(AM_RESULT_BAD_PARAMETER == 65531, "null pointer argument");
static_assert(AM_RESULT_INVALID_HANDLE == 65530, "unknown handle");
static_assert(AM_RESULT_COMMUNICATION_FAILURE == 65528, "communication failure");
static_assert(AM_RESULT_NOT_IMPLEMENTED == 65525, "not implemented");
static_assert(AM_RESULT_SERVICE_BUSY == 65280, "service busy");

extern "C" int pam_public_types_c_layout_ok(void);

TEST(PublicTypes, CLayoutMatches) {
  // The C translation unit fails to compile on any layout difference; this
  // only makes sure it is linked in and agrees at run time as well.
  EXPECT_EQ(pam_public_types_c_layout_ok(), 1);
}

}  // namespace
