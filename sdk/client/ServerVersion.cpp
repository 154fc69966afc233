#include "client/ServerVersion.h"

#include "PalvonAuthManagerTracer.h"
#include "api/SignatureTexts.h"
#include "client/ServiceCall.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"
#include "util/TraceTexts.h"

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
    CTracer::Err(text::kUnexpectedException);
    result = rc::kCommunicationFailure;
  }
  CTracer::TraceMethodExit(sig::kGetServerSDKVersion, result);
  return result;
}

}  // namespace PalvonAuthManagerSDK
