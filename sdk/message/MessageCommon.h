#ifndef PALVON_SDK_MESSAGE_MESSAGECOMMON_H
#define PALVON_SDK_MESSAGE_MESSAGECOMMON_H

#include <cstdint>

#include "protocol/WireFormat.h"

namespace PalvonAuthManagerSDK {

/** Size of the encoded envelope that starts every frame. */
constexpr uint32_t kMessagePrefixSize = wire::kEnvelopeSize;
/** Message type of a default envelope and of registration records. */
constexpr uint32_t kNoMessageType = 0xFFFFFFFFu;

/** Envelope of every message: operation number, sender's process id, body length. */
struct MessageCommon {
  uint32_t messageType;
  uint32_t processId;
  uint32_t bodyLength;

  /** A default envelope: no message type, this process, length 12. */
  MessageCommon();
  MessageCommon(uint32_t type, uint32_t pid, uint32_t length = kMessagePrefixSize);
};

/** The calling process's id as carried in envelopes. */
uint32_t CurrentProcessId();

}  // namespace PalvonAuthManagerSDK

#endif
