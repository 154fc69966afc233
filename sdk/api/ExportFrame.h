#ifndef PALVON_SDK_API_EXPORTFRAME_H
#define PALVON_SDK_API_EXPORTFRAME_H

// The thin frame of every exported operation: trace the entry line, check
// that the object it needs exists, forward the arguments unchanged, and let
// no exception escape.

#include "PalvonAuthManagerTracer.h"
#include "api/GlobalState.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/LinuxAMImplementationV2.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

template <typename... Params, typename... Args>
AMResult ForwardToLevel1(const char* signature, AMResult (LinuxAMImplementation::*operation)(Params...),
                         Args... args) noexcept {
  try {
    CTracer::TraceEntry(signature);
    const InFlightCall counted;
    LinuxAMImplementation* level1 = Globals().level1.load();
    if (level1 == nullptr) return rc::kNotInitialized;
    return (level1->*operation)(args...);
  } catch (...) {
    return rc::kCommunicationFailure;
  }
}

template <typename... Params, typename... Args>
AMResult ForwardToLevel2(const char* signature, AMResult (LinuxAMImplementationV2::*operation)(Params...),
                         Args... args) noexcept {
  try {
    CTracer::TraceEntry(signature);
    const InFlightCall counted;
    if (Globals().level1.load() == nullptr) return rc::kNotInitialized;
    LinuxAMImplementationV2* level2 = Globals().level2.load();
    if (level2 == nullptr) return rc::kNotImplemented;
    return (level2->*operation)(args...);
  } catch (...) {
    return rc::kCommunicationFailure;
  }
}

/** Frame of the request-context functions: trace, then "not implemented". */
inline AMResult NotImplemented(const char* signature) noexcept {
  try {
    CTracer::TraceEntry(signature);
  } catch (...) {
  }
  return rc::kNotImplemented;
}

}  // namespace PalvonAuthManagerSDK

#endif
