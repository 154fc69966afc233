// PalvonAuthManager_Initialize / _Uninitialize / _GetApiLevel and IsInitialised.
#include <unistd.h>

#include <algorithm>
#include <mutex>

#include "PalvonAuthManager.h"
#include "PalvonAuthManagerTracer.h"
#include "api/GlobalState.h"
#include "api/SignatureTexts.h"
#include "client/CClientCommLib.h"
#include "client/ServerVersion.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/LinuxAMImplementationV2.h"
#include "ipc/ForkGeneration.h"
#include "ipc/Registration.h"
#include "protocol/ResultCodes.h"
#include "util/TraceTexts.h"

namespace PalvonAuthManagerSDK {

namespace {

constexpr uint32_t kHighestApiLevel = 2;

std::mutex& InitMutex() {
  static std::mutex mutex;
  return mutex;
}

void DestroyImplementations() {
  GlobalState& state = Globals();
  LinuxAMImplementation* level1 = state.level1.exchange(nullptr);
  LinuxAMImplementationV2* level2 = state.level2.exchange(nullptr);
  // Exports that read a pointer before it was taken back are still inside
  // the objects; they end soon (the channel fails fast once closed).
  while (state.inFlight.load() != 0) usleep(1000);
  delete level1;
  delete level2;
}

// A child of fork() inherits the parent's state but not its service session:
// the parent's channel is not the child's to use or remove. The child starts
// from nothing (one thread runs in it, so nothing is inside the objects).
void ForgetInheritedState() {
  GlobalState& state = Globals();
  if (state.generation == ForkGeneration()) return;
  state.generation = ForkGeneration();
  if (state.initCount == 0) return;
  state.initCount = 0;
  state.inFlight = 0;
  ReplaceChannel(nullptr);
  DestroyImplementations();
}

AMResult InitializeFirst() {
  GlobalState& state = Globals();
  CTracer::Initialize(L"Authentication Manager Static SDK", L"AuthManagerSDK");
  if (!ManufactureIPCInfrastructure()) return rc::kIpcSetupFailed;

  AMUint version = 0;
  const AMResult versionResult = GetServerSDKVersion(&version);
  if (versionResult != rc::kSuccess) {
    CTracer::Err(L"Initialize failed because unable to fetch SDKVersion.");
    return versionResult;
  }
  const uint32_t level = std::min(version, kHighestApiLevel);
  state.apiLevel = level;
  if (level == 0) {
    // A service without any API level leaves nothing to talk to.
    CTracer::Msg(L"Initialize failed");
    return rc::kNotInitialized;
  }
  if (level > 1) state.level2 = new LinuxAMImplementationV2();
  LinuxAMImplementation* level1 = new LinuxAMImplementation();
  state.level1 = level1;

  const AMResult result = level1->Initialize();
  if (result == rc::kSuccess || result == rc::kAlreadyInitialized) {
    CTracer::Msg(L"Initialize succeeded");
    return rc::kSuccess;
  }
  (void)level1->Uninitialize();
  DestroyImplementations();
  CTracer::Msg(L"Initialize failed");
  return result;
}

}  // namespace

GlobalState& Globals() {
  static GlobalState state;
  return state;
}

extern "C" {

PALVONAUTHMANAGER_EXPORT bool IsInitialised(void) { return Globals().level1.load() != nullptr; }

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_Initialize(void) {
  std::lock_guard<std::mutex> lock(InitMutex());
  GlobalState& state = Globals();
  ForgetInheritedState();
  if (state.initCount != 0) {
    ++state.initCount;
    return rc::kSuccess;
  }
  // Counted before anything can fail, and never undone: a failed first call
  // leaves later calls returning 0 while the library stays unusable.
  state.initCount = 1;
  try {
    return InitializeFirst();
  } catch (...) {
    CTracer::Err(text::kUnexpectedException);
    return rc::kIpcSetupFailed;
  }
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_Uninitialize(void) {
  std::lock_guard<std::mutex> lock(InitMutex());
  GlobalState& state = Globals();
  ForgetInheritedState();
  if (state.initCount < 1) {
    CTracer::Err(L"Uninitialize failed because SDK is not initialized!");
    return rc::kNotInitialized;
  }
  if (state.initCount > 1) {
    CTracer::Msg(L"SDK lib had been initialized more than once - no need to un-initialize");
    --state.initCount;
    return rc::kSuccess;
  }
  state.initCount = 0;
  CTracer::Msg(L"Unintialising implementation object.");
  AMResult result = rc::kSuccess;
  try {
    // After a failed first initialisation there is no object to tell; the
    // channel, if one was made, still goes so that its pipes are removed.
    if (LinuxAMImplementation* level1 = state.level1.load()) {
      result = level1->Uninitialize();
    } else {
      ReplaceChannel(nullptr);
    }
    if (result != rc::kSuccess) {
      CTracer::Err(L"Implementation Uninitialize() call failed with error code %u", result);
    }
  } catch (...) {
    result = rc::kCommunicationFailure;
  }
  DestroyImplementations();
  CTracer::Msg(L"Uninitialize Ends");
  CTracer::Uninitialize();
  return result;
}

PALVONAUTHMANAGER_EXPORT AMResult PalvonAuthManager_GetApiLevel(AMUint* apiLevel) {
  CTracer::TraceEntry(sig::api::kGetApiLevel);
  if (Globals().level1.load() == nullptr) return rc::kNotInitialized;
  if (apiLevel == nullptr) return rc::kBadParameter;
  *apiLevel = Globals().apiLevel;
  return rc::kSuccess;
}

}  // extern "C"

}  // namespace PalvonAuthManagerSDK
