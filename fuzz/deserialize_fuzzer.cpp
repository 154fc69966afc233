// Fuzz target for LinuxDictionary::Deserialize. Any byte string is taken as a
// received message: decoding must stay inside the buffer, and whatever it
// yields must survive encoding and decoding again unchanged, with a
// byte-identical second encoding.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>

#include "message/LinuxDictionary.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;

// Decodes `size` bytes held in an allocation of exactly that size, so the
// address sanitizer reports any read past the message.
void Decode(LinuxDictionary& d, const uint8_t* data, size_t size) {
  auto* copy = static_cast<uint8_t*>(std::malloc(size == 0 ? 1 : size));
  if (copy == nullptr) std::abort();
  if (size != 0) std::memcpy(copy, data, size);
  d.AdoptEncoding(copy, static_cast<uint32_t>(size));
  d.Deserialize();
}

bool SameContents(const LinuxDictionary& a, const LinuxDictionary& b) {
  return a.Header().messageType == b.Header().messageType && a.Header().processId == b.Header().processId &&
         a.Header().bodyLength == b.Header().bodyLength && a.IntValues() == b.IntValues() &&
         a.UIntValues() == b.UIntValues() && a.ByteValues() == b.ByteValues() &&
         a.NarrowStringValues() == b.NarrowStringValues() && a.WideStringValues() == b.WideStringValues() &&
         a.BufferValues() == b.BufferValues();
}

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > std::numeric_limits<uint32_t>::max()) return 0;

  LinuxDictionary first;
  Decode(first, data, size);
  for (const auto& entry : first.BufferValues()) Check(entry.second.first.size() == entry.second.second);

  // An adopted message is never taken as a valid encoding: this re-encodes.
  first.Serialize(true);
  Check(first.EncodingValid());
  Check(first.EncodedLength() == first.Header().bodyLength + 12);

  LinuxDictionary second;
  Decode(second, first.EncodedBuffer(), first.EncodedLength());
  Check(SameContents(first, second));

  second.Serialize(true);
  Check(second.EncodedLength() == first.EncodedLength());
  Check(std::memcmp(second.EncodedBuffer(), first.EncodedBuffer(), first.EncodedLength()) == 0);
  return 0;
}
