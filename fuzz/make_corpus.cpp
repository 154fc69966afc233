// Writes the fuzz corpus of the Deserialize target: a handful of valid
// messages shaped like real requests and replies, plus layouts that exercise
// narrow-string padding, unaligned records and key cutting.
//   pam_fuzz_make_corpus <output folder>
#include <cstdio>
#include <string>
#include <vector>

#include "message/LinuxDictionary.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;

// A fixed process id keeps the files identical from run to run.
constexpr uint32_t kPid = 4242;

bool Write(const std::string& folder, const char* name, LinuxDictionary& d) {
  d.Serialize(true);
  const std::string path = folder + "/" + name;
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(d.EncodedBuffer(), 1, d.EncodedLength(), f) == d.EncodedLength();
  return std::fclose(f) == 0 && ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <output folder>\n", argv[0]);
    return 2;
  }
  const std::string folder = argv[1];
  bool ok = true;

  LinuxDictionary versionQuery(MessageCommon(83, kPid));
  ok &= Write(folder, "version_query.bin", versionQuery);

  LinuxDictionary versionReply(MessageCommon(83, kPid));
  versionReply.SetUInt(L"return", 0);
  versionReply.SetUInt(L"version", 2);
  ok &= Write(folder, "version_reply.bin", versionReply);

  LinuxDictionary trampoline(MessageCommon(31, kPid));
  trampoline.SetUInt(L"AuthManagerHandle", 7);
  trampoline.SetWideString(L"serviceUrl", L"https://apps.example/portal");
  trampoline.SetUInt(L"authenticationFlags", 1);
  trampoline.SetWideString(L"optionaleReferenceUrl", L"https://apps.example/");
  trampoline.SetWideString(L"connectionName", L"main");
  ok &= Write(folder, "trampoline_request.bin", trampoline);

  LinuxDictionary httpReply(MessageCommon(276, kPid));
  httpReply.SetUInt(L"return", 0);
  httpReply.SetUInt(L"httpStatusCode", 200);
  httpReply.SetWideString(L"reasonPhrase", L"OK");
  httpReply.SetInt(L"delta", -1);
  const unsigned char body[] = {'<', 'h', 't', 'm', 'l', '>', 0, 0xFF};
  httpReply.SetBuffer(L"amByteData", body, sizeof body);
  ok &= Write(folder, "http_reply.bin", httpReply);

  LinuxDictionary launch(MessageCommon(85, kPid));
  launch.SetNarrowString(L"LaunchURL", "https://apps.example/launch.rzp");
  launch.SetNarrowString(L"arg0", "abc");
  launch.SetNarrowString(L"arg1", "abcd");
  launch.SetUInt(L"NumberOfArgs", 2);
  ok &= Write(folder, "narrow_strings.bin", launch);

  LinuxDictionary unaligned(MessageCommon(33, kPid));
  unaligned.SetByte(L"flag", 1);
  unaligned.SetByte(L"other", 0x80);
  const unsigned char three[] = {1, 2, 3};
  unaligned.SetBuffer(L"blob", three, sizeof three);
  unaligned.SetWideString(L"w", L"\u00e9\u20ac\U0001F600");
  ok &= Write(folder, "unaligned.bin", unaligned);

  LinuxDictionary longKey(MessageCommon(5, kPid));
  longKey.SetUInt(L"abcdefghijklmnopqrstuvwxyz0123456789ABCD", 40);
  longKey.SetWideString(std::wstring(31, L'k').c_str(), L"v");
  ok &= Write(folder, "long_key.bin", longKey);

  if (!ok) std::fprintf(stderr, "could not write the corpus to %s\n", folder.c_str());
  return ok ? 0 : 1;
}
