// Fuzz target of LinuxDictionary::Deserialize: any bytes are a received message.
// Decoding stays inside it (held in an allocation of exactly its size), every
// value has a 136-byte header of its own, and what is decoded survives encoding
// and decoding again, byte-identical the second time.
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "message/LinuxDictionary.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;

void Check(bool condition) {
  if (!condition) std::abort();
}

void Decode(LinuxDictionary& d, const uint8_t* data, size_t size) {
  auto* copy = static_cast<uint8_t*>(std::malloc(size + (size == 0)));
  Check(copy != nullptr);
  if (size != 0) std::memcpy(copy, data, size);
  d.AdoptEncoding(copy, static_cast<uint32_t>(size));
  d.Deserialize();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > UINT32_MAX) return 0;
  LinuxDictionary first, second;
  Decode(first, data, size);
  Check(first.IntValues().size() + first.UIntValues().size() + first.ByteValues().size() +
            first.NarrowStringValues().size() + first.WideStringValues().size() + first.BufferValues().size() <=
        (size < 12 ? 0 : (size - 12) / 136));
  for (const auto& entry : first.BufferValues()) Check(entry.second.first.size() == entry.second.second);
  first.Serialize(true);  // an adopted message is never taken as a valid encoding
  Check(first.EncodingValid() && first.EncodedLength() == first.Header().bodyLength + 12);
  Decode(second, first.EncodedBuffer(), first.EncodedLength());  // the same values: the same bytes
  second.Serialize(true);
  Check(second.EncodedLength() == first.EncodedLength() &&
        std::memcmp(second.EncodedBuffer(), first.EncodedBuffer(), first.EncodedLength()) == 0);
  return 0;
}
