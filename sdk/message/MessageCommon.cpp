#include "MessageCommon.h"

#include <unistd.h>

namespace PalvonAuthManagerSDK {

uint32_t CurrentProcessId() { return static_cast<uint32_t>(getpid()); }

MessageCommon::MessageCommon() : MessageCommon(kNoMessageType, CurrentProcessId()) {}

MessageCommon::MessageCommon(uint32_t type, uint32_t pid, uint32_t length)
    : messageType(type), processId(pid), bodyLength(length) {}

}  // namespace PalvonAuthManagerSDK
