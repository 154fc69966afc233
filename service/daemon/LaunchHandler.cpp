// Hand-off of a launch file: the arguments the client sent, to the launcher.

#include "daemon/Dispatcher.h"

#include <string>

#include "daemon/Log.h"
#include "daemon/MessageValues.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

uint32_t Dispatcher::OnLaunch(const LinuxDictionary& request, LinuxDictionary& reply) {
  LaunchRequest launch;
  launch.clientPid = processId_;
  launch.command = config().launchCommand;
  launch.logPath = settings_->launchLog;
  const uint32_t count = UIntOf(request, key::kNumberOfArgs).value_or(0);
  if (const std::string* url = request.FindNarrowString(key::kLaunchUrl)) launch.url = *url;
  for (uint32_t i = 0; i < count; ++i) {
    const std::wstring name = key::Indexed(key::kArgumentPrefix, i);
    const std::string* argument = request.FindNarrowString(name.c_str());
    if (argument == nullptr) {
      LogWarning("client ", processId_, ": launch request names ", count, " argument(s) but has no ", KeyText(name));
      return rc::kBadParameter;
    }
    launch.args.push_back(*argument);
  }
  reply.SetUInt(key::kCurrentStatus, context_.actions().Launch(launch));
  return 0;
}

}  // namespace palvonauthd
