// The public headers compiled as C++ (C++11 and C++17): both must be
// self-contained and warning-free, with every name in the namespace.
#include "PalvonAuthManager.h"
#include "PalvonAuthManagerTracer.h"

namespace {

using namespace PalvonAuthManagerSDK;

static_assert(sizeof(AMChar) == 4, "AMChar holds UTF-32");
static_assert(sizeof(AMResult) == 4 && sizeof(ConnectionHandle) == 4, "32-bit handles and results");
static_assert(AM_RESULT_NOT_IMPLEMENTED == 0xFFF5, "result codes");

AMResult (*const kFunctions[])(AMChar*) = {&PalvonAuthManager_FreeString, &PalvonAuthManager_FreeTranslatedUrl};

}  // namespace

bool PamHeaderCheckCxx() {
  // The trace switch is exported data an application sets.
  CTracer::s_tracingEnabled = false;
  const AM_GATEWAY_INFO gateway = {L"g", L"u", 1, 2, 3};
  AMWindowInfo window = {0, 0, 0, 0, nullptr, nullptr, nullptr};
  return kFunctions[1] != nullptr && gateway.amGatewayReWriteRule == 3 && window.winamName == nullptr;
}
