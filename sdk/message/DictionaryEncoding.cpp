// Wire encoding of LinuxDictionary: the envelope, then one record per value
// in the fixed type order 6, 0, 3, 2, 4, 1, closed by an end record (the
// record layout is in protocol/FrameCodec.h).
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "LinuxDictionary.h"
#include "protocol/FrameCodec.h"

namespace PalvonAuthManagerSDK {

namespace {

using namespace wire;

size_t WideValueLength(const std::wstring& value) { return kCharSize * (value.size() + 1); }
size_t NarrowValueLength(const std::string& value) { return value.size() + 1; }

// Size of the record area, computed before anything is allocated so that the
// whole frame is one allocation.
size_t RecordAreaSize(const LinuxDictionary& d) {
  size_t size = RecordSize(kEnd, 0);
  for (const auto& entry : d.NarrowStringValues()) size += RecordSize(kNarrowString, NarrowValueLength(entry.second));
  for (const auto& entry : d.WideStringValues()) size += RecordSize(kWideString, WideValueLength(entry.second));
  size += d.IntValues().size() * RecordSize(kInt, 4);
  size += d.UIntValues().size() * RecordSize(kUInt, 4);
  size += d.ByteValues().size() * RecordSize(kByte, 1);
  for (const auto& entry : d.BufferValues()) size += RecordSize(kBuffer, entry.second.first.size());
  return size;
}

// Puts each decoded value into the dictionary's maps; a later value under
// the same key replaces an earlier one.
class MapFiller final : public RecordVisitor {
 public:
  MapFiller(LinuxDictionary::Map<int32_t>& ints, LinuxDictionary::Map<uint32_t>& uints,
            LinuxDictionary::Map<uint8_t>& bytes, LinuxDictionary::Map<std::string>& narrow,
            LinuxDictionary::Map<std::wstring>& wide, LinuxDictionary::Map<LinuxDictionary::BufferValue>& buffers)
      : ints_(ints), uints_(uints), bytes_(bytes), narrow_(narrow), wide_(wide), buffers_(buffers) {}
  void OnWideString(const std::wstring& key, std::wstring&& value) override {
    wide_.insert_or_assign(key, std::move(value));
  }
  void OnNarrowString(const std::wstring& key, std::string&& value) override {
    narrow_.insert_or_assign(key, std::move(value));
  }
  void OnUInt(const std::wstring& key, uint32_t value) override { uints_.insert_or_assign(key, value); }
  void OnInt(const std::wstring& key, int32_t value) override { ints_.insert_or_assign(key, value); }
  void OnByte(const std::wstring& key, uint8_t value) override { bytes_.insert_or_assign(key, value); }
  void OnBuffer(const std::wstring& key, const uint8_t* data, size_t length) override {
    buffers_.insert_or_assign(key, LinuxDictionary::BufferValue(std::vector<uint8_t>(data, data + length),
                                                                static_cast<uint32_t>(length)));
  }

 private:
  LinuxDictionary::Map<int32_t>& ints_;
  LinuxDictionary::Map<uint32_t>& uints_;
  LinuxDictionary::Map<uint8_t>& bytes_;
  LinuxDictionary::Map<std::string>& narrow_;
  LinuxDictionary::Map<std::wstring>& wide_;
  LinuxDictionary::Map<LinuxDictionary::BufferValue>& buffers_;
};

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
    out = PutItemHeader(out, kNarrowString, key, length);
    std::memcpy(out, value.c_str(), length);
    out += length + NarrowPadding(length);
  }
  for (const auto& [key, value] : wideStringValues_) {
    out = PutWideText(PutItemHeader(out, kWideString, key, WideValueLength(value)), value);
  }
  for (const auto& [key, value] : intValues_) {
    out = PutUInt(PutItemHeader(out, kInt, key, 4), static_cast<uint32_t>(value));
  }
  for (const auto& [key, value] : uintValues_) out = PutUInt(PutItemHeader(out, kUInt, key, 4), value);
  for (const auto& [key, value] : byteValues_) {
    out = PutItemHeader(out, kByte, key, 1);
    *out++ = value;
  }
  for (const auto& [key, value] : bufferValues_) {
    out = PutItemHeader(out, kBuffer, key, value.first.size());
    if (!value.first.empty()) std::memcpy(out, value.first.data(), value.first.size());
    out += value.first.size();
  }
  out[0] = kEnd;

  header_.bodyLength = static_cast<uint32_t>(area);
  WriteEnvelope(buffer, Envelope{header_.messageType, header_.processId, header_.bodyLength});

  encodedBuffer_ = buffer;
  encodedLength_ = static_cast<uint32_t>(total);
  encodingValid_ = true;
  return encodedBuffer_;
}

DecodeStatus LinuxDictionary::Deserialize() {
  if (encodedBuffer_ == nullptr) return DecodeStatus::kShortEnvelope;
  // Decoding leaves the held encoding as valid as it was.
  const bool valid = encodingValid_;
  ClearValues();
  encodingValid_ = valid;
  if (encodedLength_ >= kEnvelopeSize) {
    const Envelope envelope = ReadEnvelope(encodedBuffer_);
    header_ = MessageCommon(envelope.messageType, envelope.processId, envelope.bodyLength);
  }
  MapFiller filler(intValues_, uintValues_, byteValues_, narrowStringValues_, wideStringValues_, bufferValues_);
  return DecodeRecords(encodedBuffer_, encodedLength_, filler);
}

}  // namespace PalvonAuthManagerSDK
