// Writes the fuzz corpus of the Deserialize target: a handful of valid
// messages shaped like real requests and replies, plus layouts that exercise
// narrow-string padding, unaligned records and key cutting. With a second
// folder, also the seeds of the reply target: for every operation, a
// successful reply holding its out-values.
//   pam_fuzz_make_corpus <deserialize folder> [<reply folder>]
#include <cstdio>
#include <string>
#include <vector>

#include "message/LinuxDictionary.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;

// A fixed process id keeps the files identical from run to run.
constexpr uint32_t kPid = 4242;

bool WriteBytes(const std::string& path, const std::vector<uint8_t>& bytes) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (f == nullptr) return false;
  const bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
  return std::fclose(f) == 0 && ok;
}

bool Write(const std::string& folder, const char* name, LinuxDictionary& d) {
  d.Serialize(true);
  return WriteBytes(folder + "/" + name,
                    std::vector<uint8_t>(d.EncodedBuffer(), d.EncodedBuffer() + d.EncodedLength()));
}

// One operation of the reply target: its message type and the out-values it
// reads ("u:" unsigned, "w:" wide text, "b:" buffer).
struct ReplySeed {
  uint32_t type;
  std::vector<const wchar_t*> keys;
};

// In the order of the reply target's operation table.
std::vector<ReplySeed> ReplySeeds() {
  const std::vector<const wchar_t*> none;
  return {{1, none}, {3, none}, {83, {L"u:version"}}, {5, {L"u:AuthManagerHandle"}}, {9, none}, {11, none},
          {13, none}, {15, none}, {45, {L"u:vpnauthcontexthandle"}}, {47, none},
          {49, {L"u:amAuthenticationResult", L"w:vpnauthorizationstr", L"w:vpnsessionlogonpointurl"}},
          {31, {L"w:trampolineUrl", L"u:amAuthenticationResult"}}, {59, {L"w:version"}}, {61, none},
          {63, {L"u:serverType", L"w:friendlyName", L"w:logonPointUrl", L"u:amGatewayEdition",
                L"u:amGatewayAuthType"}},
          {67, {L"w:discoveryData", L"u:amAuthenticationResult"}}, {17, none}, {19, none},
          {21, {L"u:logonStatus"}}, {256, {L"u:httpHandle"}}, {258, none}, {260, none}, {262, none}, {264, none},
          {266, none}, {268, none}, {270, none}, {272, none}, {274, none}, {276, none}, {278, {L"u:httpStatus"}},
          {280, {L"w:httpResponse"}}, {282, {L"u:numHeaders", L"w:Attrib0", L"w:Attrib1"}},
          {288, {L"u:trustFailureFlags"}}, {286, {L"b:amByteData"}}, {284, none}, {85, {L"u:currentStatus"}}};
}

// Input of the reply target: the operation's number, then a successful reply
// carrying its out-values (every number 2: a gateway, two headers).
bool WriteReplySeeds(const std::string& folder) {
  bool ok = true;
  const std::vector<ReplySeed> seeds = ReplySeeds();
  for (size_t op = 0; op < seeds.size(); ++op) {
    LinuxDictionary reply(MessageCommon(seeds[op].type, kPid));
    reply.SetUInt(L"return", 0);
    const unsigned char chunk[] = {'<', 'p', '>', 0};
    for (const wchar_t* key : seeds[op].keys) {
      if (key[0] == L'u') reply.SetUInt(key + 2, 2);
      if (key[0] == L'w') reply.SetWideString(key + 2, L"t");
      if (key[0] == L'b') reply.SetBuffer(key + 2, chunk, sizeof chunk);
    }
    reply.Serialize(true);
    std::vector<uint8_t> input = {static_cast<uint8_t>(op)};
    input.insert(input.end(), reply.EncodedBuffer(), reply.EncodedBuffer() + reply.EncodedLength());
    ok &= WriteBytes(folder + (op < 10 ? "/op0" : "/op") + std::to_string(op) + "_success.bin", input);
  }
  return ok;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 3) {
    std::fprintf(stderr, "usage: %s <deserialize folder> [<reply folder>]\n", argv[0]);
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

  if (argc == 3) ok &= WriteReplySeeds(argv[2]);

  if (!ok) std::fprintf(stderr, "could not write the corpus\n");
  return ok ? 0 : 1;
}
