#ifndef PALVON_SDK_PROTOCOL_WIREFORMAT_H
#define PALVON_SDK_PROTOCOL_WIREFORMAT_H

#include <cstddef>
#include <cstdint>

namespace PalvonAuthManagerSDK {
namespace wire {

/** Size of the envelope that starts every frame: type, process id, body length. */
constexpr size_t kEnvelopeSize = 12;
/** Largest frame body either side accepts; a longer announced body is refused unread. */
constexpr uint32_t kMaxBodyLength = 64u * 1024u * 1024u;

/** Item types of the record area. */
enum ItemType : uint8_t {
  kWideString = 0,
  kBuffer = 1,
  kUInt = 2,
  kInt = 3,
  kByte = 4,
  kEnd = 5,
  kNarrowString = 6,
};

constexpr size_t kItemHeaderSize = 136;
constexpr size_t kKeyOffset = 4;
constexpr size_t kKeyChars = 32;           // key field width in wide characters
constexpr size_t kMaxKeyChars = 31;        // characters kept from a key
constexpr size_t kValueLengthOffset = 132;
constexpr size_t kCharSize = 4;            // one wide character on the wire

/** Padding that follows a narrow-string value of the given length. */
constexpr size_t NarrowPadding(size_t valueLength) { return (4 - valueLength % 4) % 4; }

}  // namespace wire
}  // namespace PalvonAuthManagerSDK

#endif
