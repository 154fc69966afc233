// Hand assembly of encoded messages for the unit tests. Every field is written
// out explicitly (little-endian, fixed offsets), independently of the
// library's encoder, so the tests compare the encoder against an image of the
// wire layout rather than against itself.
#ifndef PAM_TESTS_UNIT_WIREBYTES_H
#define PAM_TESTS_UNIT_WIREBYTES_H

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "message/LinuxDictionary.h"

namespace pam_test {

using Bytes = std::vector<uint8_t>;

inline void AppendU32(Bytes& out, uint32_t value) {
  out.push_back(static_cast<uint8_t>(value & 0xFFu));
  out.push_back(static_cast<uint8_t>((value >> 8) & 0xFFu));
  out.push_back(static_cast<uint8_t>((value >> 16) & 0xFFu));
  out.push_back(static_cast<uint8_t>((value >> 24) & 0xFFu));
}

inline uint32_t ReadU32(const Bytes& bytes, size_t at) {
  return static_cast<uint32_t>(bytes.at(at)) | static_cast<uint32_t>(bytes.at(at + 1)) << 8 |
         static_cast<uint32_t>(bytes.at(at + 2)) << 16 | static_cast<uint32_t>(bytes.at(at + 3)) << 24;
}

inline void AppendZeros(Bytes& out, size_t count) { out.insert(out.end(), count, 0); }

/** Value bytes of a wide text: 32-bit characters plus a terminating zero character. */
inline Bytes WideValue(const std::wstring& text) {
  Bytes out;
  for (wchar_t c : text) AppendU32(out, static_cast<uint32_t>(c));
  AppendU32(out, 0);
  return out;
}

/** Value bytes of a narrow text: its bytes plus a terminating NUL (no padding). */
inline Bytes NarrowValue(const std::string& text) {
  Bytes out(text.begin(), text.end());
  out.push_back(0);
  return out;
}

inline Bytes U32Value(uint32_t value) {
  Bytes out;
  AppendU32(out, value);
  return out;
}

/**
 * Builds a message record by record. Record() writes the header exactly as
 * given (no key cut, no padding unless asked), so tests can also assemble
 * malformed messages.
 */
class MessageBuilder {
 public:
  MessageBuilder(uint32_t type, uint32_t pid) {
    AppendU32(bytes_, type);
    AppendU32(bytes_, pid);
    AppendU32(bytes_, 0);  // body length, fixed by Finish()
  }

  /** Appends a record whose key field holds `keyChars` (at most 32) followed by zeros. */
  MessageBuilder& Record(uint8_t type, const std::wstring& keyChars, const Bytes& value, size_t padding = 0) {
    return RawRecord(type, keyChars, static_cast<uint32_t>(value.size()), value, padding);
  }

  /** Appends a record with an explicit valueLength field, whatever the value bytes. */
  MessageBuilder& RawRecord(uint8_t type, const std::wstring& keyChars, uint32_t valueLength, const Bytes& value,
                            size_t padding = 0) {
    starts_.push_back(bytes_.size());
    bytes_.push_back(type);
    AppendZeros(bytes_, 3);
    for (size_t i = 0; i < 32; ++i) AppendU32(bytes_, i < keyChars.size() ? static_cast<uint32_t>(keyChars[i]) : 0);
    AppendU32(bytes_, valueLength);
    bytes_.insert(bytes_.end(), value.begin(), value.end());
    AppendZeros(bytes_, padding);
    return *this;
  }

  /** Appends the end record: type 5 and 135 zero bytes. */
  MessageBuilder& End() {
    bytes_.push_back(5);
    AppendZeros(bytes_, 135);
    return *this;
  }

  /** Writes the body length (everything after the 12-byte prefix) and returns the message. */
  Bytes Finish() {
    const uint32_t body = static_cast<uint32_t>(bytes_.size() - 12);
    for (int i = 0; i < 4; ++i) bytes_[8 + i] = static_cast<uint8_t>((body >> (8 * i)) & 0xFFu);
    return bytes_;
  }

  /** Offsets where each value record starts. */
  const std::vector<size_t>& RecordStarts() const { return starts_; }

 private:
  Bytes bytes_;
  std::vector<size_t> starts_;
};

/** Bytes of a dictionary's current encoding. */
inline Bytes EncodingOf(const PalvonAuthManagerSDK::LinuxDictionary& d) {
  const uint8_t* data = d.EncodedBuffer();
  return data == nullptr ? Bytes() : Bytes(data, data + d.EncodedLength());
}

/**
 * Decodes `length` bytes of `message` into `out`. The bytes are copied into an
 * allocation of exactly that size, so any read past the end is caught by the
 * address sanitizer.
 */
inline void DecodeInto(PalvonAuthManagerSDK::LinuxDictionary& out, const uint8_t* message, size_t length) {
  auto* copy = static_cast<uint8_t*>(std::malloc(length == 0 ? 1 : length));
  if (copy == nullptr) std::abort();
  if (length != 0) std::memcpy(copy, message, length);
  out.AdoptEncoding(copy, static_cast<uint32_t>(length));
  out.Deserialize();
}

inline void DecodeInto(PalvonAuthManagerSDK::LinuxDictionary& out, const Bytes& message) {
  DecodeInto(out, message.data(), message.size());
}

/** Number of values held across all six maps. */
inline size_t ValueCount(const PalvonAuthManagerSDK::LinuxDictionary& d) {
  return d.IntValues().size() + d.UIntValues().size() + d.ByteValues().size() + d.NarrowStringValues().size() +
         d.WideStringValues().size() + d.BufferValues().size();
}

/** True when both dictionaries hold the same six maps. */
inline bool SameValues(const PalvonAuthManagerSDK::LinuxDictionary& a, const PalvonAuthManagerSDK::LinuxDictionary& b) {
  return a.IntValues() == b.IntValues() && a.UIntValues() == b.UIntValues() && a.ByteValues() == b.ByteValues() &&
         a.NarrowStringValues() == b.NarrowStringValues() && a.WideStringValues() == b.WideStringValues() &&
         a.BufferValues() == b.BufferValues();
}

}  // namespace pam_test

#endif
