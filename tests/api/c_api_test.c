/* The C interface of the shared library, before initialisation: every
 * export that needs the service answers "not initialised", the
 * request-context functions answer "not implemented", out-parameters stay as
 * they were, and the release functions take NULL. */
#include <stdio.h>
#include <string.h>

#include "PalvonAuthManager.h"

static int g_passed = 0;
static int g_failed = 0;

static void check(int condition, const char* what, int line) {
  if (condition) {
    ++g_passed;
  } else {
    ++g_failed;
    fprintf(stderr, "line %d: check failed: %s\n", line, what);
  }
}

#define CHECK(condition) check((condition) ? 1 : 0, #condition, __LINE__)

#define SENTINEL 0x5EB7u

static void not_initialised(void) {
  ConnectionHandle connection = SENTINEL;
  VpnAuthContextHandle context = SENTINEL;
  AMChar* text = NULL;
  AMAuthenticationResult authResult = SENTINEL;
  AMLogonStatus logonStatus = SENTINEL;
  AM_SERVER_INFO* server = NULL;
  AM_VPN_AUTHORIZATION_INFO* vpn = NULL;
  AMUint level = SENTINEL;
  AMHttpHandle http = SENTINEL;
  AMUint launchStatus = SENTINEL;
  const AM_GATEWAY_INFO gateway = {L"gw", NULL, 1u, 2u, 3u};
  AMWindowInfo window = {1, 2, 3, 4, NULL, NULL, NULL};

  CHECK(!IsInitialised());
  CHECK(PalvonAuthManager_GetApiLevel(&level) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_Uninitialize() == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_CreateConnection(L"c", NULL, NULL, &connection) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_DestroyConnection(1u) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_CreateVpnAuthContext(1u, &gateway, 0u, &context) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_GetVpnAuthorizationInfo(1u, &vpn) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_GenerateTrampolineUrl(1u, L"s", 0u, NULL, &text, &authResult) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_GetVersion(1u, &text) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_SetClientWindow(1u, &window) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_DetermineServerType(1u, L"u", &server) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_GetLogonStatus(1u, L"u", &logonStatus) == AM_RESULT_NOT_INITIALIZED);
  /* The initialised check of level 2 comes before its level check. */
  CHECK(PalvonAuthManager_CreateAMHttpRequest(1u, &http) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_LaunchRZPFile("file", NULL, &launchStatus) == AM_RESULT_NOT_INITIALIZED);

  /* No out-parameter was touched. */
  CHECK(connection == SENTINEL && context == SENTINEL && authResult == SENTINEL && logonStatus == SENTINEL);
  CHECK(level == SENTINEL && http == SENTINEL && launchStatus == SENTINEL);
  CHECK(text == NULL && server == NULL && vpn == NULL);
}

static void not_implemented(void) {
  RequestContextHandle context = SENTINEL;
  AMChar* url = NULL;
  AMChar** headers = NULL;
  AMAuthenticationResult authResult = SENTINEL;

  CHECK(PalvonAuthManager_CreateRequestContext(1u, L"u", 0u, &context) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_Prepare(1u, &url, &authResult) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_GetHeaders(1u, &headers) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_GetTranslatedUrl(1u, &url) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_Prepare2(1u, &authResult) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_ReportHttpResponse(1u, 200u, &url) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_ReportHttpFailure(1u, 2u) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_ForceRoute(1u, NULL) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_SetReferenceUrl(1u, NULL) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_DestroyContext(1u) == AM_RESULT_NOT_IMPLEMENTED);

  CHECK(context == SENTINEL && authResult == SENTINEL && url == NULL && headers == NULL);
}

static void release_functions_take_null(void) {
  /* Without the library initialised the level-1 release functions have no
   * object to forward to; they still take NULL without harm. */
  CHECK(PalvonAuthManager_FreeString(NULL) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_FreeServerInfo(NULL) == AM_RESULT_NOT_INITIALIZED);
  CHECK(PalvonAuthManager_FreeVpnAuthorizationInfo(NULL) == AM_RESULT_NOT_INITIALIZED);
  /* Header arrays are released without the service, in any state. */
  CHECK(PalvonAuthManager_FreeResponseHeaders(NULL) == AM_RESULT_SUCCESS);
  CHECK(PalvonAuthManager_FreeHeaders(NULL) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_FreeTranslatedUrl(NULL) == AM_RESULT_NOT_IMPLEMENTED);
  CHECK(PalvonAuthManager_FreeCertificate(0u) == AM_RESULT_NOT_INITIALIZED);
}

int main(void) {
  not_initialised();
  not_implemented();
  release_functions_take_null();
  printf("%d passed, %d failed\n", g_passed, g_failed);
  return g_failed == 0 ? 0 : 1;
}
