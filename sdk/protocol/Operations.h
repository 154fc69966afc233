#ifndef PALVON_SDK_PROTOCOL_OPERATIONS_H
#define PALVON_SDK_PROTOCOL_OPERATIONS_H

// The operations of the protocol as data: message numbers, names, API
// levels and the keys of each request and reply (Operations.def holds them).

#include <cstddef>
#include <cstdint>
#include <string>

#include "protocol/Keys.h"

namespace PalvonAuthManagerSDK {

/** Message type numbers carried in the envelope of each request. */
namespace msg {
#define PAM_OPERATION(name, number, level, what, request, reply) constexpr uint32_t k##name = number;
#include "protocol/Operations.def"
#undef PAM_OPERATION
/** Registration records carry this type and no body. */
constexpr uint32_t kRegistration = 0xFFFFFFFFu;
}  // namespace msg

namespace protocol {

/** Value types of a field, as the documentation abbreviates them. */
enum class ValueType : char { U = 'U', W = 'W', N = 'N', B = 'B' };
/** When a field is present in its message (see Operations.def). */
enum class Presence { Always, IfGiven, Required, IfGateway, Series };

struct Field {
  ValueType type;
  const wchar_t* key;
  Presence presence;
};

struct Operation {
  const char* name;
  uint32_t number;
  uint32_t apiLevel;
  const char* what;
  const Field* request;
  size_t requestCount;
  const Field* reply;
  size_t replyCount;
};

/** Every operation, in the order of Operations.def. */
const Operation* Operations(size_t& count);
/** The operation with this message number, or null. */
const Operation* FindOperation(uint32_t number);
/** The operation's name, or "Unknown<number>". */
std::string OperationName(uint32_t number);

}  // namespace protocol
}  // namespace PalvonAuthManagerSDK

#endif
