// Wire encoding of LinuxDictionary: a 12-byte prefix, then one 136-byte item
// header plus value bytes per value, in the fixed type order 6, 0, 3, 2, 4, 1,
// closed by an end record. Integers are host order (little-endian on the
// supported platform) and written with memcpy, since records after a byte
// value are not aligned.
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "LinuxDictionary.h"
#include "WireFormat.h"

namespace PalvonAuthManagerSDK {

namespace {

using namespace wire;

size_t WideValueLength(const std::wstring& value) { return kCharSize * (value.size() + 1); }
size_t NarrowValueLength(const std::string& value) { return value.size() + 1; }

template <typename T>
void Put(uint8_t* at, T value) {
  std::memcpy(at, &value, sizeof value);
}

template <typename T>
T Get(const uint8_t* at) {
  T value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

// Writes one item header at `out` (the caller zero-fills the buffer) and
// returns where its value starts.
uint8_t* PutHeader(uint8_t* out, ItemType type, const std::wstring& key, size_t valueLength) {
  out[0] = type;
  const size_t keyChars = key.size() < kMaxKeyChars ? key.size() : kMaxKeyChars;
  for (size_t i = 0; i < keyChars; ++i) {
    Put<int32_t>(out + kKeyOffset + i * kCharSize, static_cast<int32_t>(key[i]));
  }
  Put<uint32_t>(out + kValueLengthOffset, static_cast<uint32_t>(valueLength));
  return out + kItemHeaderSize;
}

// Sizes of the record area, computed before anything is allocated so that the
// whole frame is one allocation.
size_t RecordAreaSize(const LinuxDictionary& d) {
  size_t size = kItemHeaderSize;  // end record
  for (const auto& entry : d.NarrowStringValues()) {
    const size_t length = NarrowValueLength(entry.second);
    size += kItemHeaderSize + length + NarrowPadding(length);
  }
  for (const auto& entry : d.WideStringValues()) size += kItemHeaderSize + WideValueLength(entry.second);
  size += d.IntValues().size() * (kItemHeaderSize + 4);
  size += d.UIntValues().size() * (kItemHeaderSize + 4);
  size += d.ByteValues().size() * (kItemHeaderSize + 1);
  for (const auto& entry : d.BufferValues()) size += kItemHeaderSize + entry.second.first.size();
  return size;
}

// Reads a wide text of at most maxChars characters at `at`; false when no
// terminating zero character lies within that range.
bool ReadWideText(const uint8_t* at, size_t maxChars, std::wstring& out) {
  for (size_t i = 0; i < maxChars; ++i) {
    if (Get<int32_t>(at + i * kCharSize) == 0) {
      out.resize(i);
      for (size_t j = 0; j < i; ++j) out[j] = static_cast<wchar_t>(Get<int32_t>(at + j * kCharSize));
      return true;
    }
  }
  return false;
}

}  // namespace

const uint8_t* LinuxDictionary::Serialize(bool useCache) {
  if (useCache && encodingValid_) return encodedBuffer_;
  ReleaseEncoding();
  // Until the new encoding is complete there is none: a failed encoding must
  // not leave a "valid" flag over a missing buffer.
  encodingValid_ = false;

  const size_t area = RecordAreaSize(*this);
  if (area > std::numeric_limits<uint32_t>::max() - kMessagePrefixSize) throw std::bad_alloc();
  const size_t total = area + kMessagePrefixSize;
  auto* buffer = static_cast<uint8_t*>(std::calloc(total, 1));
  if (buffer == nullptr) throw std::bad_alloc();

  uint8_t* out = buffer + kMessagePrefixSize;
  for (const auto& [key, value] : narrowStringValues_) {
    const size_t length = NarrowValueLength(value);
    out = PutHeader(out, kNarrowString, key, length);
    std::memcpy(out, value.c_str(), length);
    out += length + NarrowPadding(length);
  }
  for (const auto& [key, value] : wideStringValues_) {
    out = PutHeader(out, kWideString, key, WideValueLength(value));
    for (wchar_t c : value) {
      Put<int32_t>(out, static_cast<int32_t>(c));
      out += kCharSize;
    }
    out += kCharSize;  // terminating zero character
  }
  for (const auto& [key, value] : intValues_) {
    out = PutHeader(out, kInt, key, 4);
    Put<int32_t>(out, value);
    out += 4;
  }
  for (const auto& [key, value] : uintValues_) {
    out = PutHeader(out, kUInt, key, 4);
    Put<uint32_t>(out, value);
    out += 4;
  }
  for (const auto& [key, value] : byteValues_) {
    out = PutHeader(out, kByte, key, 1);
    *out++ = value;
  }
  for (const auto& [key, value] : bufferValues_) {
    out = PutHeader(out, kBuffer, key, value.first.size());
    if (!value.first.empty()) std::memcpy(out, value.first.data(), value.first.size());
    out += value.first.size();
  }
  out[0] = kEnd;

  header_.bodyLength = static_cast<uint32_t>(area);
  Put<uint32_t>(buffer, header_.messageType);
  Put<uint32_t>(buffer + 4, header_.processId);
  Put<uint32_t>(buffer + 8, header_.bodyLength);

  encodedBuffer_ = buffer;
  encodedLength_ = static_cast<uint32_t>(total);
  encodingValid_ = true;
  return encodedBuffer_;
}

void LinuxDictionary::Deserialize() {
  if (encodedBuffer_ == nullptr) return;
  intValues_.clear();
  uintValues_.clear();
  byteValues_.clear();
  narrowStringValues_.clear();
  wideStringValues_.clear();
  bufferValues_.clear();

  const uint8_t* data = encodedBuffer_;
  const size_t length = encodedLength_;
  if (length < kMessagePrefixSize) return;
  header_.messageType = Get<uint32_t>(data);
  header_.processId = Get<uint32_t>(data + 4);
  header_.bodyLength = Get<uint32_t>(data + 8);

  size_t offset = kMessagePrefixSize;
  std::wstring key;
  while (length - offset >= kItemHeaderSize) {
    const uint8_t* record = data + offset;
    const uint8_t type = record[0];
    if (type == kEnd || type > kNarrowString) return;
    const size_t valueLength = Get<uint32_t>(record + kValueLengthOffset);
    const size_t available = length - offset - kItemHeaderSize;
    if (valueLength > available) return;  // value runs past the end
    if (!ReadWideText(record + kKeyOffset, kKeyChars, key)) return;
    const uint8_t* value = record + kItemHeaderSize;
    size_t step = kItemHeaderSize + valueLength;

    switch (type) {
      case kWideString: {
        std::wstring text;
        if (!ReadWideText(value, valueLength / kCharSize, text)) return;
        wideStringValues_.insert_or_assign(key, std::move(text));
        break;
      }
      case kBuffer:
        bufferValues_.insert_or_assign(
            key, BufferValue(std::vector<uint8_t>(value, value + valueLength), static_cast<uint32_t>(valueLength)));
        break;
      case kUInt:
        // Fixed-width values are read whatever valueLength says, as long as
        // they lie within the message.
        if (available < 4) return;
        uintValues_.insert_or_assign(key, Get<uint32_t>(value));
        break;
      case kInt:
        if (available < 4) return;
        intValues_.insert_or_assign(key, Get<int32_t>(value));
        break;
      case kByte:
        if (available < 1) return;
        byteValues_.insert_or_assign(key, *value);
        break;
      case kNarrowString: {
        const auto* end = static_cast<const uint8_t*>(std::memchr(value, 0, valueLength));
        if (end == nullptr) return;
        narrowStringValues_.insert_or_assign(key, std::string(reinterpret_cast<const char*>(value), end - value));
        step += NarrowPadding(valueLength);
        break;
      }
      default:
        return;
    }
    if (step > length - offset) return;  // padding runs past the end: nothing follows
    offset += step;
  }
}

}  // namespace PalvonAuthManagerSDK
