// Builds a request message, encodes it to its wire form, decodes the bytes
// back into a second message and prints both, with tracing switched on.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "PalvonAuthManagerTracer.h"
#include "message/LinuxDictionary.h"

using PalvonAuthManagerSDK::CTracer;
using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;

static void Print(const char* title, const LinuxDictionary& d) {
  const MessageCommon& h = d.Header();
  std::printf("%s: type %u, process %u, body %u bytes\n", title, h.messageType, h.processId, h.bodyLength);
  for (const auto& [key, value] : d.UIntValues()) std::printf("  uint   %ls = %u\n", key.c_str(), value);
  for (const auto& [key, value] : d.IntValues()) std::printf("  int    %ls = %d\n", key.c_str(), value);
  for (const auto& [key, value] : d.ByteValues()) std::printf("  byte   %ls = %u\n", key.c_str(), value);
  for (const auto& [key, value] : d.WideStringValues()) std::printf("  wide   %ls = \"%ls\"\n", key.c_str(), value.c_str());
  for (const auto& [key, value] : d.NarrowStringValues()) std::printf("  narrow %ls = \"%s\"\n", key.c_str(), value.c_str());
  for (const auto& [key, value] : d.BufferValues()) std::printf("  buffer %ls = %u bytes\n", key.c_str(), value.second);
}

int main() {
  CTracer::s_tracingEnabled = true;

  LinuxDictionary request(MessageCommon(31, PalvonAuthManagerSDK::CurrentProcessId()));
  request.SetUInt(L"AuthManagerHandle", 7);
  request.SetWideString(L"serviceUrl", L"https://gateway.example/apps");
  request.SetUInt(L"authenticationFlags", 0);
  request.SetWideString(L"optionaleReferenceUrl", L"https://gateway.example/");
  const unsigned char bytes[] = {0xde, 0xad, 0xbe, 0xef};
  request.SetBuffer(L"amByteData", bytes, sizeof bytes);

  const uint8_t* frame = request.Serialize(true);
  const uint32_t length = request.EncodedLength();
  CTracer::Msg(L"Encoded message type %u into %u bytes", request.Header().messageType, length);
  Print("request", request);

  std::printf("wire (%u bytes):", length);
  for (uint32_t i = 0; i < length && i < 48; ++i) std::printf("%s%02x", i % 16 == 0 ? "\n  " : " ", frame[i]);
  std::printf("\n  ...\n");

  auto* copy = static_cast<uint8_t*>(std::malloc(length));
  std::memcpy(copy, frame, length);
  LinuxDictionary decoded;
  decoded.AdoptEncoding(copy, length);
  decoded.Deserialize();
  CTracer::Msg(L"Decoded %u bytes", length);
  Print("decoded", decoded);

  const bool same = decoded.Serialize(true) != nullptr && decoded.EncodedLength() == length &&
                    std::memcmp(decoded.EncodedBuffer(), frame, length) == 0;
  std::printf("re-encoded decoded message is %s the original\n", same ? "byte for byte" : "NOT");
  return same ? 0 : 1;
}
