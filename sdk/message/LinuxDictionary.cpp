#include "LinuxDictionary.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>

namespace PalvonAuthManagerSDK {

namespace {

template <typename T>
const T* Find(const LinuxDictionary::Map<T>& map, const wchar_t* key) {
  if (key == nullptr) return nullptr;
  auto it = map.find(key);
  return it == map.end() ? nullptr : &it->second;
}

template <typename T>
bool Store(LinuxDictionary::Map<T>& map, const wchar_t* key, T&& value) {
  if (key == nullptr) return false;
  map.insert_or_assign(std::wstring(key), std::forward<T>(value));
  return true;
}

}  // namespace

LinuxDictionary::LinuxDictionary() = default;

LinuxDictionary::LinuxDictionary(const MessageCommon& header) : header_(header) { Serialize(true); }

LinuxDictionary::LinuxDictionary(const LinuxDictionary& other)
    : header_(other.header_),
      intValues_(other.intValues_),
      uintValues_(other.uintValues_),
      byteValues_(other.byteValues_),
      narrowStringValues_(other.narrowStringValues_),
      wideStringValues_(other.wideStringValues_),
      bufferValues_(other.bufferValues_),
      encodingValid_(other.encodingValid_) {
  if (other.encodedBuffer_ != nullptr && other.encodedLength_ > 0) {
    encodedBuffer_ = static_cast<uint8_t*>(std::malloc(other.encodedLength_));
    if (encodedBuffer_ == nullptr) throw std::bad_alloc();
    std::memcpy(encodedBuffer_, other.encodedBuffer_, other.encodedLength_);
    encodedLength_ = other.encodedLength_;
  } else {
    encodingValid_ = false;
  }
}

LinuxDictionary::LinuxDictionary(LinuxDictionary&& other) noexcept
    : header_(other.header_),
      encodedBuffer_(other.encodedBuffer_),
      encodedLength_(other.encodedLength_),
      intValues_(std::move(other.intValues_)),
      uintValues_(std::move(other.uintValues_)),
      byteValues_(std::move(other.byteValues_)),
      narrowStringValues_(std::move(other.narrowStringValues_)),
      wideStringValues_(std::move(other.wideStringValues_)),
      bufferValues_(std::move(other.bufferValues_)),
      encodingValid_(other.encodingValid_) {
  other.encodedBuffer_ = nullptr;
  other.encodedLength_ = 0;
  other.encodingValid_ = false;
}

LinuxDictionary& LinuxDictionary::operator=(const LinuxDictionary& other) {
  if (this != &other) {
    LinuxDictionary copy(other);
    *this = std::move(copy);
  }
  return *this;
}

LinuxDictionary& LinuxDictionary::operator=(LinuxDictionary&& other) noexcept {
  if (this != &other) {
    ReleaseEncoding();
    header_ = other.header_;
    encodedBuffer_ = other.encodedBuffer_;
    encodedLength_ = other.encodedLength_;
    const bool valid = other.encodingValid_;
    TakeValuesFrom(std::move(other));
    encodingValid_ = valid;
    other.encodedBuffer_ = nullptr;
    other.encodedLength_ = 0;
  }
  return *this;
}

LinuxDictionary::~LinuxDictionary() { ReleaseEncoding(); }

void LinuxDictionary::ReleaseEncoding() noexcept {
  std::free(encodedBuffer_);
  encodedBuffer_ = nullptr;
  encodedLength_ = 0;
}

void LinuxDictionary::AdoptEncoding(uint8_t* buffer, uint32_t length) noexcept {
  ReleaseEncoding();
  encodedBuffer_ = buffer;
  encodedLength_ = buffer != nullptr ? length : 0;
  encodingValid_ = false;
}

void LinuxDictionary::SetInt(const wchar_t* key, int32_t value) {
  if (Store(intValues_, key, std::move(value))) encodingValid_ = false;
}

void LinuxDictionary::SetUInt(const wchar_t* key, uint32_t value) {
  if (Store(uintValues_, key, std::move(value))) encodingValid_ = false;
}

void LinuxDictionary::SetByte(const wchar_t* key, uint8_t value) {
  if (Store(byteValues_, key, std::move(value))) encodingValid_ = false;
}

void LinuxDictionary::SetNarrowString(const wchar_t* key, std::string value) {
  if (Store(narrowStringValues_, key, std::move(value))) encodingValid_ = false;
}

void LinuxDictionary::SetWideString(const wchar_t* key, std::wstring value) {
  if (Store(wideStringValues_, key, std::move(value))) encodingValid_ = false;
}

void LinuxDictionary::SetBuffer(const wchar_t* key, const unsigned char* data, unsigned int size) {
  if (key == nullptr || data == nullptr || size == 0) return;
  encodingValid_ = false;
  bufferValues_.insert_or_assign(std::wstring(key), BufferValue(std::vector<uint8_t>(data, data + size), size));
}

void LinuxDictionary::SetBuffer(const wchar_t* key, std::vector<uint8_t>&& data) {
  if (key == nullptr || data.empty() || data.size() > UINT32_MAX) return;
  encodingValid_ = false;
  const auto size = static_cast<uint32_t>(data.size());
  bufferValues_.insert_or_assign(std::wstring(key), BufferValue(std::move(data), size));
}

const wchar_t* LinuxDictionary::GetString(const wchar_t* key) const {
  const std::wstring* value = Find(wideStringValues_, key);
  return value == nullptr ? nullptr : value->c_str();
}

bool LinuxDictionary::GetUInt(const wchar_t* key, unsigned int* out) const {
  const uint32_t* value = Find(uintValues_, key);
  if (value == nullptr || out == nullptr) return false;
  *out = *value;
  return true;
}

bool LinuxDictionary::GetInt(const wchar_t* key, int32_t* out) const {
  const int32_t* value = Find(intValues_, key);
  if (value == nullptr || out == nullptr) return false;
  *out = *value;
  return true;
}

bool LinuxDictionary::GetByte(const wchar_t* key, uint8_t* out) const {
  const uint8_t* value = Find(byteValues_, key);
  if (value == nullptr || out == nullptr) return false;
  *out = *value;
  return true;
}

const std::string* LinuxDictionary::FindNarrowString(const wchar_t* key) const {
  return Find(narrowStringValues_, key);
}

const LinuxDictionary::BufferValue* LinuxDictionary::FindBuffer(const wchar_t* key) const {
  return Find(bufferValues_, key);
}

void LinuxDictionary::ClearValues() {
  intValues_.clear();
  uintValues_.clear();
  byteValues_.clear();
  narrowStringValues_.clear();
  wideStringValues_.clear();
  bufferValues_.clear();
  encodingValid_ = false;
}

void LinuxDictionary::CopyValuesFrom(const LinuxDictionary& other) {
  if (this == &other) return;
  intValues_ = other.intValues_;
  uintValues_ = other.uintValues_;
  byteValues_ = other.byteValues_;
  narrowStringValues_ = other.narrowStringValues_;
  wideStringValues_ = other.wideStringValues_;
  bufferValues_ = other.bufferValues_;
  encodingValid_ = false;
}

void LinuxDictionary::TakeValuesFrom(LinuxDictionary&& other) {
  if (this == &other) return;
  intValues_ = std::move(other.intValues_);
  uintValues_ = std::move(other.uintValues_);
  byteValues_ = std::move(other.byteValues_);
  narrowStringValues_ = std::move(other.narrowStringValues_);
  wideStringValues_ = std::move(other.wideStringValues_);
  bufferValues_ = std::move(other.bufferValues_);
  other.encodingValid_ = false;
  encodingValid_ = false;
}

}  // namespace PalvonAuthManagerSDK
