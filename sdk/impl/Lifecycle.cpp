// Initialize and Uninitialize messages of the level-1 object.
#include "PalvonAuthManagerTracer.h"
#include "api/SignatureTexts.h"
#include "client/CClientCommLib.h"
#include "client/ServiceCall.h"
#include "impl/LinuxAMImplementation.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"
#include "util/TraceTexts.h"

namespace PalvonAuthManagerSDK {

namespace {

AMResult SendLifecycleMessage(uint32_t type, const char* signature) {
  CTracer::TraceMethodEntry(signature);
  AMResult result = rc::kSuccess;
  try {
    LinuxDictionary request(MessageCommon(type, CurrentProcessId()));
    (void)CallUntilNotBusy(request, result);
  } catch (...) {
    CTracer::Err(text::kUnexpectedException);
    result = rc::kCommunicationFailure;
  }
  return result;
}

}  // namespace

LinuxAMImplementation::~LinuxAMImplementation() = default;

AMResult LinuxAMImplementation::Initialize() {
  const AMResult result = SendLifecycleMessage(msg::kInitialize, sig::l1::kInitialize);
  CTracer::TraceMethodExit(sig::l1::kInitialize, result);
  return result;
}

AMResult LinuxAMImplementation::Uninitialize() {
  const AMResult result = SendLifecycleMessage(msg::kUninitialize, sig::l1::kUninitialize);
  // The channel goes whether or not the service agreed: closing it removes
  // the client's pipes.
  ReplaceChannel(nullptr);
  CTracer::TraceMethodExit(sig::l1::kUninitialize, result);
  return result;
}

}  // namespace PalvonAuthManagerSDK
