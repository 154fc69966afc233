/* API level 1 from C: initialise, open a connection, ask the service a few
 * questions, release what it handed out, close the connection and shut down.
 *
 * PalvonAuthManager_Initialize() waits until the authentication-manager
 * service of the same user is listening, so start the service first.
 * Exits with 0 when every call succeeded. */
#include <locale.h>
#include <stdio.h>

#include "PalvonAuthManager.h"

/* Prints a failed call and counts it. */
static int report(const char* call, AMResult result) {
  if (result == AM_RESULT_SUCCESS) return 0;
  fprintf(stderr, "%s failed with result %u (0x%04X)\n", call, (unsigned)result, (unsigned)result);
  return 1;
}

static int ask_the_service(ConnectionHandle connection) {
  int failures = 0;
  AMResult result;

  AMChar* version = NULL;
  result = PalvonAuthManager_GetVersion(connection, &version);
  failures += report("GetVersion", result);
  if (result == AM_RESULT_SUCCESS) printf("service version: %ls\n", version);
  PalvonAuthManager_FreeString(version);

  AM_SERVER_INFO* server = NULL;
  result = PalvonAuthManager_DetermineServerType(connection, L"https://portal.example.com/", &server);
  failures += report("DetermineServerType", result);
  if (result == AM_RESULT_SUCCESS) {
    printf("server type: %u\n", (unsigned)server->serverType);
    if (server->gatewayInfo != NULL) {
      printf("gateway: %ls at %ls (edition %u, authentication type %u)\n", server->gatewayInfo->friendlyName,
             server->gatewayInfo->logonPointUrl, (unsigned)server->gatewayInfo->amGatewayEdition,
             (unsigned)server->gatewayInfo->amGatewayAuthType);
    }
  }
  /* Accepts null: nothing is handed out after a failure. */
  PalvonAuthManager_FreeServerInfo(server);

  AMChar* trampoline = NULL;
  AMAuthenticationResult authentication = 0;
  result = PalvonAuthManager_GenerateTrampolineUrl(connection, L"https://portal.example.com/app", 0, NULL, &trampoline,
                                                   &authentication);
  failures += report("GenerateTrampolineUrl", result);
  if (result == AM_RESULT_SUCCESS) {
    printf("trampoline URL: %ls (authentication result %u)\n", trampoline, (unsigned)authentication);
  }
  PalvonAuthManager_FreeString(trampoline);

  AMLogonStatus status = 0;
  result = PalvonAuthManager_GetLogonStatus(connection, L"https://auth.example.com/", &status);
  failures += report("GetLogonStatus", result);
  if (result == AM_RESULT_SUCCESS) printf("logon status: %u\n", (unsigned)status);

  return failures;
}

int main(void) {
  /* Wide texts are printed in the user's character set. */
  setlocale(LC_ALL, "");
  AMResult result = PalvonAuthManager_Initialize();
  if (report("Initialize", result)) return 1;

  AMUint level = 0;
  int failures = report("GetApiLevel", PalvonAuthManager_GetApiLevel(&level));
  printf("API level: %u\n", (unsigned)level);

  ConnectionHandle connection = 0;
  result = PalvonAuthManager_CreateConnection(L"level1 example (C)", NULL, NULL, &connection);
  failures += report("CreateConnection", result);
  if (result == AM_RESULT_SUCCESS) {
    printf("connection: %u\n", (unsigned)connection);
    failures += ask_the_service(connection);
    failures += report("DestroyConnection", PalvonAuthManager_DestroyConnection(connection));
  }

  failures += report("Uninitialize", PalvonAuthManager_Uninitialize());
  return failures == 0 ? 0 : 1;
}
