/* Plain C against the installed library: API level, a connection, the
 * service's version text (ASCII here, printed without any locale). */
#include <PalvonAuthManager.h>
#include <stdio.h>

int main(void) {
  AMUint level = 0;
  ConnectionHandle connection = 0;
  AMChar* version = NULL;
  if (PalvonAuthManager_Initialize() != AM_RESULT_SUCCESS || PalvonAuthManager_GetApiLevel(&level) != 0 ||
      PalvonAuthManager_CreateConnection(L"install-test", NULL, NULL, &connection) != 0 ||
      PalvonAuthManager_GetVersion(connection, &version) != 0) {
    return 1;
  }
  printf("api-level %u\nversion ", (unsigned)level);
  for (const AMChar* c = version; *c != 0; ++c) putchar(*c < 128 ? (int)*c : '?');
  PalvonAuthManager_FreeString(version);
  if (PalvonAuthManager_DestroyConnection(connection) != 0 || PalvonAuthManager_Uninitialize() != 0) return 1;
  printf("\ninitialised %s\n", IsInitialised() ? "yes" : "no");
  return 0;
}
