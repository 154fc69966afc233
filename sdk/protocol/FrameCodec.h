#ifndef PALVON_SDK_PROTOCOL_FRAMECODEC_H
#define PALVON_SDK_PROTOCOL_FRAMECODEC_H

// Writing and reading a frame: the 12-byte envelope and the records after
// it. Integers are host order (little-endian on the supported platform) and
// copied byte-wise, since records after a byte value are not aligned.

#include <cstddef>
#include <cstdint>
#include <string>

#include "protocol/WireFormat.h"

namespace PalvonAuthManagerSDK {
namespace wire {

/** The envelope of a frame. */
struct Envelope {
  uint32_t messageType = 0;
  uint32_t processId = 0;
  uint32_t bodyLength = 0;
};

/** Writes the 12 envelope bytes at `out`. */
void WriteEnvelope(uint8_t* out, const Envelope& envelope);
/** Reads the 12 envelope bytes at `in`. */
Envelope ReadEnvelope(const uint8_t* in);

/** Bytes one record takes: item header, value and padding. */
size_t RecordSize(ItemType type, size_t valueLength);
/**
 * Writes a record's item header at `out`, which the caller zero-filled (the
 * key keeps at most 31 characters), and returns where its value goes.
 */
uint8_t* PutItemHeader(uint8_t* out, ItemType type, const std::wstring& key, size_t valueLength);
/** Writes a wide text and its zero character; returns the end. */
uint8_t* PutWideText(uint8_t* out, const std::wstring& text);
/** Writes a 32-bit value; returns the end. */
uint8_t* PutUInt(uint8_t* out, uint32_t value);

/** Receives the values of a frame as they are decoded. */
class RecordVisitor {
 public:
  virtual ~RecordVisitor() = default;
  virtual void OnWideString(const std::wstring& key, std::wstring&& value) = 0;
  virtual void OnNarrowString(const std::wstring& key, std::string&& value) = 0;
  virtual void OnUInt(const std::wstring& key, uint32_t value) = 0;
  virtual void OnInt(const std::wstring& key, int32_t value) = 0;
  virtual void OnByte(const std::wstring& key, uint8_t value) = 0;
  virtual void OnBuffer(const std::wstring& key, const uint8_t* data, size_t length) = 0;
};

/** How decoding a frame ended. */
enum class DecodeStatus {
  kComplete,          // the end record was reached
  kShortEnvelope,     // fewer than 12 bytes
  kUnknownItemType,   // an item type above 6
  kTruncatedRecord,   // a value or its padding runs past the end
  kUnterminatedText,  // a key or text without its terminating zero
  kMissingEnd,        // the bytes ran out before the end record
};

/** A short phrase for a status ("complete", "truncated record", ...). */
const char* Describe(DecodeStatus status);

/**
 * Decodes the records of a whole frame (envelope included) into `visitor`,
 * reading only within `length` bytes. Decoding stops at the end record or at
 * the first malformed record; the values before it have been handed out,
 * and the status says which it was.
 */
DecodeStatus DecodeRecords(const uint8_t* frame, size_t length, RecordVisitor& visitor);

}  // namespace wire
}  // namespace PalvonAuthManagerSDK

#endif
