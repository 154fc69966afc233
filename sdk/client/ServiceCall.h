#ifndef PALVON_SDK_CLIENT_SERVICECALL_H
#define PALVON_SDK_CLIENT_SERVICECALL_H

#include <functional>

#include "PalvonAuthManager.h"
#include "message/LinuxDictionary.h"

namespace PalvonAuthManagerSDK {

/** Pause between two attempts while the service answers busy. */
constexpr unsigned int kBusyRetryMicroseconds = 100000;

/**
 * Sends `request` through g_ClientCommPtr until the service stops answering
 * busy (65280), without limit, and returns the last reply. `result` takes
 * the reply's "return" value whenever there is one, and keeps its value
 * otherwise. `onReply`, when given, sees the result after every reply.
 * Throws whatever the call channel throws, and std::logic_error when there
 * is no channel.
 */
LinuxDictionary CallUntilNotBusy(LinuxDictionary& request, AMResult& result,
                                 const std::function<void(AMResult)>& onReply = nullptr);

}  // namespace PalvonAuthManagerSDK

#endif
