#include "client/ServerVersion.h"

#include "PalvonAuthManagerTracer.h"
#include "api/SignatureTexts.h"
#include "client/ServiceCall.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

AMResult GetServerSDKVersion(AMUint* version) {
  CTracer::TraceMethodEntry(sig::kGetServerSDKVersion);
  if (version == nullptr) {
    CTracer::TraceNullArgument("GetServerSDKVersion", "ServerSDKVersion");
    return rc::kBadParameter;
  }
  AMResult result = rc::kSuccess;
  try {
    LinuxDictionary request(MessageCommon(msg::kGetServerSDKVersion, CurrentProcessId()));
    const LinuxDictionary reply = CallUntilNotBusy(request, result);
    if (result == rc::kSuccess) (void)reply.GetUInt(key::kVersion, version);
  } catch (...) {
    CTracer::Err(L"Unexpected exception chaught.");  // "chaught" is the trace text as fixed; kept on purpose
    result = rc::kCommunicationFailure;
  }
  CTracer::TraceMethodExit(sig::kGetServerSDKVersion, result);
  return result;
}

}  // namespace PalvonAuthManagerSDK
