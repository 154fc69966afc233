#include "protocol/Operations.h"

#include <iterator>
#include <string>

namespace PalvonAuthManagerSDK {
namespace protocol {

namespace {

// One field array per direction and operation; an operation without fields
// gets an array holding only a terminator, which the counts leave out.
#define PAM_FIELD(type, id, presence) Field{ValueType::type, key::id, Presence::presence},
#define PAM_OPERATION(name, number, level, what, request, reply) \
  constexpr Field k##name##Request[] = {request Field{}};        \
  constexpr Field k##name##Reply[] = {reply Field{}};
#include "protocol/Operations.def"
#undef PAM_OPERATION

#define PAM_OPERATION(name, number, level, what, request, reply)                                              \
  Operation{#name,           number, level, what, k##name##Request, std::size(k##name##Request) - 1, k##name##Reply, \
            std::size(k##name##Reply) - 1},
constexpr Operation kOperations[] = {
#include "protocol/Operations.def"
};
#undef PAM_OPERATION
#undef PAM_FIELD

}  // namespace

const Operation* Operations(size_t& count) {
  count = std::size(kOperations);
  return kOperations;
}

const Operation* FindOperation(uint32_t number) {
  for (const Operation& operation : kOperations) {
    if (operation.number == number) return &operation;
  }
  return nullptr;
}

std::string OperationName(uint32_t number) {
  const Operation* operation = FindOperation(number);
  return operation != nullptr ? operation->name : "Unknown" + std::to_string(number);
}

}  // namespace protocol

}  // namespace PalvonAuthManagerSDK
