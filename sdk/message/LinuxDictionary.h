#ifndef PALVON_SDK_MESSAGE_LINUXDICTIONARY_H
#define PALVON_SDK_MESSAGE_LINUXDICTIONARY_H

#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "MessageCommon.h"
#include "protocol/FrameCodec.h"

namespace PalvonAuthManagerSDK {

/**
 * A message: an envelope plus six maps of named values, one per value type,
 * with a cached copy of its own wire encoding.
 *
 * Every write goes through a setter, which invalidates the cached encoding;
 * Serialize(true) re-encodes only when the cache is stale.
 */
class LinuxDictionary {
 public:
  using BufferValue = std::pair<std::vector<uint8_t>, uint32_t>;
  template <typename T>
  using Map = std::map<std::wstring, T>;

  /** Reply dictionary: default envelope, no encoding, empty maps. */
  LinuxDictionary();
  /** Request dictionary: takes the envelope and encodes the empty contents at once. */
  explicit LinuxDictionary(const MessageCommon& header);
  LinuxDictionary(const LinuxDictionary& other);
  LinuxDictionary(LinuxDictionary&& other) noexcept;
  LinuxDictionary& operator=(const LinuxDictionary& other);
  LinuxDictionary& operator=(LinuxDictionary&& other) noexcept;
  ~LinuxDictionary();

  // Typed setters: insert or replace, and invalidate the cached encoding.
  // A null key is ignored.
  void SetInt(const wchar_t* key, int32_t value);
  void SetUInt(const wchar_t* key, uint32_t value);
  void SetByte(const wchar_t* key, uint8_t value);
  void SetNarrowString(const wchar_t* key, std::string value);
  void SetWideString(const wchar_t* key, std::wstring value);
  /** Stores a copy of the bytes; does nothing for a null key, null data or size 0. */
  void SetBuffer(const wchar_t* key, const unsigned char* data, unsigned int size);
  /** Takes the bytes without copying them; does nothing for a null key or no bytes. */
  void SetBuffer(const wchar_t* key, std::vector<uint8_t>&& data);

  /** Text of a wide-string value, owned by the dictionary; null if absent. */
  const wchar_t* GetString(const wchar_t* key) const;
  /** Writes an unsigned value to *out; false if the key or out is null or no value exists. */
  bool GetUInt(const wchar_t* key, unsigned int* out) const;
  bool GetInt(const wchar_t* key, int32_t* out) const;
  bool GetByte(const wchar_t* key, uint8_t* out) const;
  const std::string* FindNarrowString(const wchar_t* key) const;
  const BufferValue* FindBuffer(const wchar_t* key) const;

  /**
   * Encoded message (prefix first), owned by the dictionary and valid until
   * the next encoding or destruction. With useCache and a valid cache the
   * stored encoding is returned unchanged. Throws std::bad_alloc when memory
   * runs out or the message would exceed 4 GiB.
   */
  const uint8_t* Serialize(bool useCache);
  /**
   * Decodes the held encoding into the envelope and maps. Decoding is bounded
   * by the encoding's length: it stops at the end record, at an unknown item
   * type, or before the first record that is truncated or unterminated; the
   * values before that point are kept, and the status says how it ended.
   */
  wire::DecodeStatus Deserialize();

  /** Takes ownership of a malloc'ed frame as the held encoding (not marked valid). */
  void AdoptEncoding(uint8_t* buffer, uint32_t length) noexcept;

  MessageCommon& Header() { return header_; }
  const MessageCommon& Header() const { return header_; }
  uint32_t EncodedLength() const { return encodedLength_; }
  const uint8_t* EncodedBuffer() const { return encodedBuffer_; }
  bool EncodingValid() const { return encodingValid_; }

  const Map<int32_t>& IntValues() const { return intValues_; }
  const Map<uint32_t>& UIntValues() const { return uintValues_; }
  const Map<uint8_t>& ByteValues() const { return byteValues_; }
  const Map<std::string>& NarrowStringValues() const { return narrowStringValues_; }
  const Map<std::wstring>& WideStringValues() const { return wideStringValues_; }
  const Map<BufferValue>& BufferValues() const { return bufferValues_; }

  /** Removes every value (the envelope stays) and invalidates the encoding. */
  void ClearValues();
  /** Copies the six maps of another dictionary and invalidates the encoding. */
  void CopyValuesFrom(const LinuxDictionary& other);
  /** Moves the six maps out of another dictionary and invalidates the encoding. */
  void TakeValuesFrom(LinuxDictionary&& other);

 private:
  void ReleaseEncoding() noexcept;

  MessageCommon header_;
  uint8_t* encodedBuffer_ = nullptr;
  uint32_t encodedLength_ = 0;
  Map<int32_t> intValues_;
  Map<uint32_t> uintValues_;
  Map<uint8_t> byteValues_;
  Map<std::string> narrowStringValues_;
  Map<std::wstring> wideStringValues_;
  Map<BufferValue> bufferValues_;
  bool encodingValid_ = false;
};

}  // namespace PalvonAuthManagerSDK

#endif
