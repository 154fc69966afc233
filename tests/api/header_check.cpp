// The public headers compiled as C++11 and C++17: self-contained and
// warning-free, with every name in the namespace.
#include "PalvonAuthManager.h"
#include "PalvonAuthManagerTracer.h"

bool PamHeaderCheckCxx() {
  using namespace PalvonAuthManagerSDK;
  AMResult (*const functions[])(AMChar*) = {&PalvonAuthManager_FreeString, &PalvonAuthManager_FreeTranslatedUrl};
  CTracer::s_tracingEnabled = false;  // exported data an application sets
  const AM_GATEWAY_INFO gateway = {L"g", L"u", 1, 2, 3};
  AMWindowInfo window = {0, 0, 0, 0, nullptr, nullptr, nullptr};
  return functions[1] != nullptr && gateway.amGatewayReWriteRule == 3 && window.winamName == nullptr;
}
