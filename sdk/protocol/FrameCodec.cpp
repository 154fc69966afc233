#include "protocol/FrameCodec.h"

#include <cstring>

namespace PalvonAuthManagerSDK {
namespace wire {

namespace {

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

void WriteEnvelope(uint8_t* out, const Envelope& envelope) {
  Put<uint32_t>(out, envelope.messageType);
  Put<uint32_t>(out + 4, envelope.processId);
  Put<uint32_t>(out + 8, envelope.bodyLength);
}

Envelope ReadEnvelope(const uint8_t* in) {
  return Envelope{Get<uint32_t>(in), Get<uint32_t>(in + 4), Get<uint32_t>(in + 8)};
}

size_t RecordSize(ItemType type, size_t valueLength) {
  return kItemHeaderSize + valueLength + (type == kNarrowString ? NarrowPadding(valueLength) : 0);
}

uint8_t* PutItemHeader(uint8_t* out, ItemType type, const std::wstring& key, size_t valueLength) {
  out[0] = type;
  const size_t keyChars = key.size() < kMaxKeyChars ? key.size() : kMaxKeyChars;
  for (size_t i = 0; i < keyChars; ++i) {
    Put<int32_t>(out + kKeyOffset + i * kCharSize, static_cast<int32_t>(key[i]));
  }
  Put<uint32_t>(out + kValueLengthOffset, static_cast<uint32_t>(valueLength));
  return out + kItemHeaderSize;
}

uint8_t* PutWideText(uint8_t* out, const std::wstring& text) {
  for (wchar_t c : text) {
    Put<int32_t>(out, static_cast<int32_t>(c));
    out += kCharSize;
  }
  Put<int32_t>(out, 0);
  return out + kCharSize;
}

uint8_t* PutUInt(uint8_t* out, uint32_t value) {
  Put<uint32_t>(out, value);
  return out + 4;
}

const char* Describe(DecodeStatus status) {
  switch (status) {
    case DecodeStatus::kComplete:
      return "complete";
    case DecodeStatus::kShortEnvelope:
      return "shorter than its envelope";
    case DecodeStatus::kUnknownItemType:
      return "unknown item type";
    case DecodeStatus::kTruncatedRecord:
      return "truncated record";
    case DecodeStatus::kUnterminatedText:
      return "unterminated text";
    case DecodeStatus::kMissingEnd:
      return "no end record";
  }
  return "unknown";
}

DecodeStatus DecodeRecords(const uint8_t* frame, size_t length, RecordVisitor& visitor) {
  if (length < kEnvelopeSize) return DecodeStatus::kShortEnvelope;
  size_t offset = kEnvelopeSize;
  std::wstring key;
  while (length - offset >= kItemHeaderSize) {
    const uint8_t* record = frame + offset;
    const uint8_t type = record[0];
    if (type == kEnd) return DecodeStatus::kComplete;
    if (type > kNarrowString) return DecodeStatus::kUnknownItemType;
    const size_t valueLength = Get<uint32_t>(record + kValueLengthOffset);
    const size_t available = length - offset - kItemHeaderSize;
    if (valueLength > available) return DecodeStatus::kTruncatedRecord;
    if (!ReadWideText(record + kKeyOffset, kKeyChars, key)) return DecodeStatus::kUnterminatedText;
    const uint8_t* value = record + kItemHeaderSize;
    size_t step = kItemHeaderSize + valueLength;

    switch (type) {
      case kWideString: {
        std::wstring text;
        if (!ReadWideText(value, valueLength / kCharSize, text)) return DecodeStatus::kUnterminatedText;
        visitor.OnWideString(key, std::move(text));
        break;
      }
      case kBuffer:
        visitor.OnBuffer(key, value, valueLength);
        break;
      case kUInt:
        // Fixed-width values are read whatever valueLength says, as long as
        // they lie within the frame.
        if (available < 4) return DecodeStatus::kTruncatedRecord;
        visitor.OnUInt(key, Get<uint32_t>(value));
        break;
      case kInt:
        if (available < 4) return DecodeStatus::kTruncatedRecord;
        visitor.OnInt(key, Get<int32_t>(value));
        break;
      case kByte:
        if (available < 1) return DecodeStatus::kTruncatedRecord;
        visitor.OnByte(key, *value);
        break;
      default: {  // kNarrowString
        const auto* end = static_cast<const uint8_t*>(std::memchr(value, 0, valueLength));
        if (end == nullptr) return DecodeStatus::kUnterminatedText;
        visitor.OnNarrowString(key, std::string(reinterpret_cast<const char*>(value), end - value));
        step += NarrowPadding(valueLength);
        break;
      }
    }
    // The value is kept even when its padding runs past the end; nothing follows it.
    if (step > length - offset) return DecodeStatus::kTruncatedRecord;
    offset += step;
  }
  return DecodeStatus::kMissingEnd;
}

}  // namespace wire
}  // namespace PalvonAuthManagerSDK
