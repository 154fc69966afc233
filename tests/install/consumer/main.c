/* Uses the installed library from C: initialise, negotiate the API level,
 * open a connection, ask the service for its version, and clean up. */
#include <PalvonAuthManager.h>
#include <stdio.h>

static int Failed(const char* call, AMResult result) {
  fprintf(stderr, "%s failed with result %u\n", call, (unsigned)result);
  return 1;
}

int main(void) {
  AMResult result = PalvonAuthManager_Initialize();
  if (result != AM_RESULT_SUCCESS) return Failed("PalvonAuthManager_Initialize", result);

  AMUint level = 0;
  result = PalvonAuthManager_GetApiLevel(&level);
  if (result != AM_RESULT_SUCCESS) return Failed("PalvonAuthManager_GetApiLevel", result);
  printf("api-level %u\n", (unsigned)level);

  ConnectionHandle connection = 0;
  result = PalvonAuthManager_CreateConnection(L"install-test", NULL, NULL, &connection);
  if (result != AM_RESULT_SUCCESS) return Failed("PalvonAuthManager_CreateConnection", result);

  AMChar* version = NULL;
  result = PalvonAuthManager_GetVersion(connection, &version);
  if (result != AM_RESULT_SUCCESS) return Failed("PalvonAuthManager_GetVersion", result);
  /* Version texts are ASCII here; print them character by character so that
   * the locale plays no part. */
  printf("version ");
  for (const AMChar* c = version; *c != 0; ++c) putchar(*c < 128 ? (int)*c : '?');
  putchar('\n');
  PalvonAuthManager_FreeString(version);

  result = PalvonAuthManager_DestroyConnection(connection);
  if (result != AM_RESULT_SUCCESS) return Failed("PalvonAuthManager_DestroyConnection", result);
  result = PalvonAuthManager_Uninitialize();
  if (result != AM_RESULT_SUCCESS) return Failed("PalvonAuthManager_Uninitialize", result);
  printf("initialised %s\n", IsInitialised() ? "yes" : "no");
  return 0;
}
