/* The C interface, linked against the shared library like a C application,
 * before initialisation (the integration transcripts check every export). */
#include <stdio.h>

#include "PalvonAuthManager.h"

int main(void) {
  AMUint level = 7u;
  ConnectionHandle connection = 7u;
  RequestContextHandle context = 7u;
  AMChar* version = NULL;
  const int ok = !IsInitialised() && PalvonAuthManager_GetApiLevel(&level) == AM_RESULT_NOT_INITIALIZED &&
                 PalvonAuthManager_CreateConnection(L"c", NULL, NULL, &connection) == AM_RESULT_NOT_INITIALIZED &&
                 PalvonAuthManager_GetVersion(1u, &version) == AM_RESULT_NOT_INITIALIZED &&
                 PalvonAuthManager_Uninitialize() == AM_RESULT_NOT_INITIALIZED &&
                 PalvonAuthManager_CreateRequestContext(1u, L"u", 0u, &context) == AM_RESULT_NOT_IMPLEMENTED &&
                 PalvonAuthManager_FreeHeaders(NULL) == AM_RESULT_NOT_IMPLEMENTED &&
                 PalvonAuthManager_FreeResponseHeaders(NULL) == AM_RESULT_SUCCESS && level == 7u && connection == 7u &&
                 context == 7u && version == NULL;
  puts(ok ? "passed" : "failed");
  return ok ? 0 : 1;
}
