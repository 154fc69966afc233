// Encoding and decoding cost of a typical request and reply. Reported as
// messages per second (items_per_second) and bytes per second.
#include <benchmark/benchmark.h>

#include <vector>

#include "message/LinuxDictionary.h"
#include "protocol/Keys.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;
namespace key = PalvonAuthManagerSDK::key;

constexpr uint32_t kPid = 4242;

// A trampoline-URL request: five values, three of them wide texts.
LinuxDictionary TypicalRequest() {
  LinuxDictionary d(MessageCommon(31, kPid));
  d.SetUInt(key::kAuthManagerHandle, 7);
  d.SetWideString(key::kServiceUrl, L"https://apps.example.com/portal/index.html");
  d.SetUInt(key::kAuthenticationFlags, 1);
  d.SetWideString(key::kOptionalReferenceUrl, L"https://apps.example.com/");
  d.SetWideString(key::kConnectionName, L"main connection");
  return d;
}

// An HTTP response reply: ten values mixing numbers, texts and a small body.
LinuxDictionary TypicalReply() {
  LinuxDictionary d(MessageCommon(276, kPid));
  d.SetUInt(key::kReturn, 0);
  d.SetUInt(L"httpStatusCode", 200);
  d.SetWideString(L"reasonPhrase", L"OK");
  d.SetUInt(key::kTrustFailureFlags, 0);
  d.SetWideString(L"header0", L"Content-Type: text/html; charset=utf-8");
  d.SetWideString(L"header1", L"Cache-Control: no-cache");
  d.SetUInt(L"numberOfHeaders", 2);
  d.SetUInt(L"numBytesRead", 256);
  d.SetWideString(key::kTrampolineUrl, L"https://gateway.example.com/t/abcdef0123456789");
  const std::vector<unsigned char> body(256, 0x5A);
  d.SetBuffer(key::kByteData, body.data(), static_cast<unsigned int>(body.size()));
  return d;
}

void Encode(benchmark::State& state, LinuxDictionary d) {
  for (auto _ : state) {
    benchmark::DoNotOptimize(d.Serialize(false));  // forced re-encoding
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * d.EncodedLength());
}

void Decode(benchmark::State& state, LinuxDictionary d) {
  d.Serialize(true);
  for (auto _ : state) {
    d.Deserialize();  // empties the maps and fills them again from the held encoding
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()));
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) * d.EncodedLength());
}

void BM_SerializeRequest(benchmark::State& state) { Encode(state, TypicalRequest()); }
void BM_DeserializeRequest(benchmark::State& state) { Decode(state, TypicalRequest()); }
void BM_SerializeReply(benchmark::State& state) { Encode(state, TypicalReply()); }
void BM_DeserializeReply(benchmark::State& state) { Decode(state, TypicalReply()); }

BENCHMARK(BM_SerializeRequest);
BENCHMARK(BM_DeserializeRequest);
BENCHMARK(BM_SerializeReply);
BENCHMARK(BM_DeserializeReply);

}  // namespace
