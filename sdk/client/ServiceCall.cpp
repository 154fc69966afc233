#include "client/ServiceCall.h"

#include <unistd.h>

#include <stdexcept>

#include "client/CClientCommLib.h"
#include "protocol/ResultCodes.h"
#include "protocol/Keys.h"

namespace PalvonAuthManagerSDK {

LinuxDictionary CallUntilNotBusy(LinuxDictionary& request, AMResult& result,
                                 const std::function<void(AMResult)>& onReply) {
  for (;;) {
    // A local reference keeps the channel alive for the whole exchange.
    const boost::shared_ptr<CClientCommLib> channel = CurrentChannel();
    if (!channel) throw std::logic_error("no call channel");
    LinuxDictionary reply = channel->MakeCall(request);
    unsigned int value = 0;
    if (reply.GetUInt(key::kReturn, &value)) result = value;
    if (onReply) onReply(result);
    if (result != rc::kBusy) return reply;
    usleep(kBusyRetryMicroseconds);
  }
}

}  // namespace PalvonAuthManagerSDK
