// Hand-off of a remote-session launch file to the service.
#include "api/SignatureTexts.h"
#include "impl/LinuxAMImplementationV2.h"
#include "impl/ServiceOperation.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

AMResult LinuxAMImplementationV2::LaunchRZPFile(const AMUTF8Char* launchUrl, AMUTF8Char** args, AMUint* status) {
  ServiceOperation op(sig::l2::kLaunchRZPFile, msg::kLaunchRZPFile);
  if (!ServiceOperation::Require(args, "LaunchRZPFile", "args") ||
      !ServiceOperation::Require(status, "LaunchRZPFile", "status")) {
    return rc::kBadParameter;
  }
  return op.Call(
      [&](LinuxDictionary& request) {
        uint32_t count = 0;
        while (args[count] != nullptr) ++count;
        request.SetUInt(key::kNumberOfArgs, count);
        // Texts travel as their UTF-8 bytes, never converted.
        if (launchUrl != nullptr) request.SetNarrowString(key::kLaunchUrl, launchUrl);
        for (uint32_t i = 0; i < count; ++i) {
          request.SetNarrowString(key::Indexed(key::kArgumentPrefix, i).c_str(), args[i]);
        }
      },
      [&](const LinuxDictionary& reply) { (void)reply.GetUInt(key::kCurrentStatus, status); });
}

}  // namespace PalvonAuthManagerSDK
