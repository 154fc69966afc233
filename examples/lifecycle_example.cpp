// The smallest complete use of the library: initialise (which registers this
// process with the authentication-manager service of the current user and
// negotiates the API level), report the level, and shut down again.
//
// Needs the service running for the same user; PalvonAuthManager_Initialize
// waits until it is there.
#include <cstdio>

#include "PalvonAuthManager.h"

using namespace PalvonAuthManagerSDK;

int main() {
  const AMResult initialised = PalvonAuthManager_Initialize();
  if (initialised != 0) {
    std::fprintf(stderr, "PalvonAuthManager_Initialize failed: %u\n", initialised);
    // A failed first initialisation still counts; release what it made.
    (void)PalvonAuthManager_Uninitialize();
    return 1;
  }

  AMUint level = 0;
  const AMResult queried = PalvonAuthManager_GetApiLevel(&level);
  if (queried != 0) {
    std::fprintf(stderr, "PalvonAuthManager_GetApiLevel failed: %u\n", queried);
    (void)PalvonAuthManager_Uninitialize();
    return 1;
  }
  std::printf("API level: %u\n", level);

  const AMResult uninitialised = PalvonAuthManager_Uninitialize();
  if (uninitialised != 0) {
    std::fprintf(stderr, "PalvonAuthManager_Uninitialize failed: %u\n", uninitialised);
    return 1;
  }
  return 0;
}
