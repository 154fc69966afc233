// The library in a client process. First the transcripts in transcripts/:
// each command calls an export, runs an example program or scripts the test
// service; the indented lines under it are what came back: result and
// out-values, standard output, registrations and requests the service
// received, and new trace lines. The replay must reproduce the whole file;
// PAM_UPDATE_TRANSCRIPTS=1 rewrites it instead. Then registration with the
// service, and which folder the pipes may live in.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <thread>

#include "PalvonAuthManager.h"
#include "PalvonAuthManagerTracer.h"
#include "client/CClientCommLib.h"
#include "client/ServerVersion.h"
#include "util/Utf8.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/PipeFolder.h"
#include "ipc/Registration.h"
#include "protocol/Operations.h"
#include "support/CaptureStdout.h"
#include "support/ChildProcess.h"
#include "support/TempHome.h"
#include "support/TestService.h"
#ifdef PALVONAUTHD_PATH
#include "support/ServiceHarness.h"
#endif

using namespace PalvonAuthManagerSDK;
using namespace std::chrono_literals;
using PalvonAuthManagerSDK::FromUtf8OrLatin1;
using pam_test::FileKind;
using pam_test::TestService;

namespace {

constexpr uint32_t kUnset = 0x5EB7;
// Where pointer out-values point before the call, and what release calls get.
alignas(16) unsigned char g_testMemory[64];

std::string Home() { return getenv("HOME"); }
std::string U8(const std::wstring& text) { return PalvonAuthManagerSDK::ToUtf8(text); }
uint32_t Num(const std::string& text) { return static_cast<uint32_t>(std::stoll(text, nullptr, 0)); }
const uint32_t kPid = static_cast<uint32_t>(getpid());

// Splits at `separator` outside double quotes, dropping empty parts.
std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts(1);
  bool quoted = false;
  for (const char ch : text) {
    quoted = quoted != (ch == '"');
    if (ch != separator || quoted) parts.back() += ch;
    if (ch == separator && !quoted && !parts.back().empty()) parts.emplace_back();
  }
  if (parts.back().empty()) parts.pop_back();
  return parts;
}

// "text" with \xNN escapes as bytes; p:<size> is a pattern of letters.
std::string Bytes(const std::string& token) {
  std::string out;
  for (size_t i = 0; token.rfind("p:", 0) == 0 && i < std::stoul(token.substr(2)); ++i) {
    out += static_cast<char>('a' + (i * 7 + i / 1000) % 26);
  }
  const std::string text = token.size() >= 2 && token[0] == '"' ? token.substr(1, token.size() - 2) : token;
  for (size_t i = 0; token.rfind("p:", 0) != 0 && i < text.size(); ++i) {
    const bool escape = text.compare(i, 2, "\\x") == 0;
    out += escape ? static_cast<char>(std::stoi(text.substr(i + 2, 2), nullptr, 16)) : text[i];
    i += escape ? 3 : 0;
  }
  return out;
}

// Quoted, with \xNN for control characters (and all non-ASCII bytes unless `utf8`);
// more than 48 bytes of `bytes` as their length and FNV-1a digest.
std::string Shown(const std::string& bytes, bool utf8 = false) {
  char text[40];
  uint32_t hash = 2166136261u;
  for (const unsigned char ch : bytes) hash = (hash ^ ch) * 16777619u;
  std::snprintf(text, sizeof text, "#%zu:%08x", bytes.size(), hash);
  if (!utf8 && bytes.size() > 48) return text;
  std::string out = "\"";
  for (const unsigned char ch : bytes) {
    std::snprintf(text, sizeof text, "\\x%02x", ch);
    out += ch < 0x20 || ch == '"' || ch == '\\' || ch == 0x7F || (!utf8 && ch >= 0x80) ? text : std::string(1, ch);
  }
  return out + "\"";
}

// How each kind of record handed out is shown, and released.
std::string Show(const AMChar* text) { return text == nullptr ? "null" : Shown(U8(text), true); }
std::string Show(const AM_GATEWAY_INFO* g) {
  if (g == nullptr) return "null";
  return "{" + Show(g->friendlyName) + " " + Show(g->logonPointUrl) + " " + std::to_string(g->amGatewayEdition) + " " +
         std::to_string(g->amGatewayAuthType) + " " + std::to_string(g->amGatewayReWriteRule) + "}";
}
std::string Show(AM_SERVER_INFO* s) { return "{" + std::to_string(s->serverType) + " " + Show(s->gatewayInfo) + "}"; }
std::string Show(AM_VPN_AUTHORIZATION_INFO* info) {
  return "{" + std::to_string(info->amAuthenticationResult) + " " + Show(info->vpnauthorizationstr) + " " +
         Show(info->vpnsessionlogonpointurl) + "}";
}
std::string Show(AMChar** headers) {
  std::string shown = "[";
  for (AMChar** entry = headers; *entry != nullptr; ++entry) shown += (entry == headers ? "" : " ") + Show(*entry);
  return shown + "]";
}
AMResult Release(AMChar* text) { return PalvonAuthManager_FreeString(text); }
AMResult Release(AM_SERVER_INFO* info) { return PalvonAuthManager_FreeServerInfo(info); }
AMResult Release(AM_VPN_AUTHORIZATION_INFO* info) { return PalvonAuthManager_FreeVpnAuthorizationInfo(info); }
AMResult Release(AMChar** headers) { return PalvonAuthManager_FreeResponseHeaders(headers); }

void StatusCallback(uint32_t, void*, uint32_t, int32_t) { ADD_FAILURE() << "the status callback was called"; }

// One export call: the argument tokens, the storage behind the arguments, and
// how each out-argument is shown afterwards (with `release`, also freed).
struct Call {
  std::vector<std::string> args;
  std::map<size_t, std::function<std::string(bool release)>> outs;
  std::deque<std::shared_ptr<void>> kept;

  template <typename T>
  T& Keep(T value) {
    kept.push_back(std::make_shared<T>(std::move(value)));
    return *static_cast<T*>(kept.back().get());
  }
  std::string Arg(size_t i) const { return i < args.size() ? args[i] : "null"; }
  bool Null(size_t i) const { return Arg(i) == "null"; }
  uint32_t U(size_t i) const { return Num(Arg(i)); }
  const wchar_t* Text(const std::string& t) { return t == "null" ? nullptr : Keep(FromUtf8OrLatin1(Bytes(t))).c_str(); }
  const wchar_t* W(size_t i) { return Text(Arg(i)); }
  char* N(size_t i) { return Null(i) ? nullptr : Keep(Bytes(Arg(i))).data(); }
  const AMByte* Data(size_t i) { return reinterpret_cast<const AMByte*>(N(i)); }
  template <typename T>
  T* Mine(size_t i) const {
    return Null(i) ? nullptr : reinterpret_cast<T*>(g_testMemory);
  }
  // gw:"name","url",edition,authType,rewriteRule
  const AM_GATEWAY_INFO* Gw(size_t i) {
    if (Null(i)) return nullptr;
    const auto f = Split(Arg(i).substr(3), ',');
    return &Keep(AM_GATEWAY_INFO{Text(f.at(0)), Text(f.at(1)), Num(f.at(2)), Num(f.at(3)), Num(f.at(4))});
  }
  // win:bottom,left,width,height,"name","id","amName"
  AMWindowInfo* Window(size_t i) {
    if (Null(i)) return nullptr;
    const auto f = Split(Arg(i).substr(4), ',');
    return &Keep(AMWindowInfo{static_cast<int32_t>(Num(f.at(0))), static_cast<int32_t>(Num(f.at(1))),
                              static_cast<int32_t>(Num(f.at(2))), static_cast<int32_t>(Num(f.at(3))), Text(f.at(4)),
                              Text(f.at(5)), Text(f.at(6))});
  }
  // args:"first","second"
  AMUTF8Char** List(size_t i) {
    if (Null(i)) return nullptr;
    auto& list = Keep(std::vector<char*>());
    for (const auto& item : Split(Arg(i).substr(5), ',')) list.push_back(Keep(Bytes(item)).data());
    list.push_back(nullptr);
    return list.data();
  }
  // buf:<size>, filled with 0xAB
  AMByte* Buffer(size_t i) {
    if (Null(i)) return nullptr;
    std::string& buffer = Keep(std::string(std::stoul(Arg(i).substr(4)), '\xab'));
    outs[i] = [&buffer](bool) {
      return buffer.find_first_not_of('\xab') == std::string::npos ? "untouched" : Shown(buffer);
    };
    return reinterpret_cast<AMByte*>(buffer.data());
  }
  uint32_t* OutU(size_t i) {
    uint32_t* value = &Keep(kUnset);
    if (!Null(i)) outs[i] = [value](bool) { return *value == kUnset ? "unset" : std::to_string(*value); };
    return Null(i) ? nullptr : value;
  }
  // A pointer out-value, "unset" while it still points at the untouched test memory.
  template <typename T>
  T** Out(size_t i) {
    T** slot = &Keep(reinterpret_cast<T*>(g_testMemory));
    if (Null(i)) return nullptr;
    outs[i] = [slot](bool release) -> std::string {
      if (reinterpret_cast<unsigned char*>(*slot) == g_testMemory) {
        return std::count(g_testMemory, g_testMemory + 64, 0) == 64 ? "unset" : "clobbered";
      }
      const std::string shown = *slot == nullptr ? "null" : Show(*slot);
      return shown + (release && *slot != nullptr && Release(*slot) != 0 ? " (release failed)" : "");
    };
    return slot;
  }
};

// Each export by name, with the message type it sends (0 for none).
using Export = std::pair<uint32_t, std::function<AMResult(Call&)>>;
#define PAM_EXPORT(name, ...)                                                                  \
  {                                                                                            \
#name, Export(msg::k##name, [](Call& c) { return PalvonAuthManager_##name(__VA_ARGS__); }) \
  }
#define PAM_LOCAL(name, ...)                                                        \
  {                                                                                 \
#name, Export(0, [](Call& c) { return PalvonAuthManager_##name(__VA_ARGS__); }) \
  }
const std::map<std::string, Export> kExports = {
    {"Initialize", Export(msg::kInitialize, [](Call&) { return PalvonAuthManager_Initialize(); })},
    {"Uninitialize", Export(msg::kUninitialize, [](Call&) { return PalvonAuthManager_Uninitialize(); })},
    {"GetServerSDKVersion", Export(msg::kGetServerSDKVersion, [](Call& c) { return GetServerSDKVersion(c.OutU(0)); })},
    PAM_EXPORT(CreateConnection, c.W(0), c.Null(1) ? nullptr : &StatusCallback, c.Null(1) ? nullptr : g_testMemory,
               c.OutU(2)),
    PAM_LOCAL(GetApiLevel, c.OutU(0)),
    PAM_EXPORT(DestroyConnection, c.U(0)),
    PAM_EXPORT(LogOff, c.U(0)),
    PAM_EXPORT(ClearAllCredentials, c.U(0)),
    PAM_EXPORT(CancelAllCalls, c.U(0)),
    PAM_EXPORT(CreateVpnAuthContext, c.U(0), c.Gw(1), c.U(2), c.OutU(3)),
    PAM_EXPORT(DestroyVpnAuthContext, c.U(0)),
    PAM_EXPORT(GetVpnAuthorizationInfo, c.U(0), c.Out<AM_VPN_AUTHORIZATION_INFO>(1)),
    PAM_LOCAL(FreeVpnAuthorizationInfo, c.Mine<AM_VPN_AUTHORIZATION_INFO>(0)),
    PAM_EXPORT(GenerateTrampolineUrl, c.U(0), c.W(1), c.U(2), c.W(3), c.Out<AMChar>(4), c.OutU(5)),
    PAM_LOCAL(FreeString, c.Mine<AMChar>(0)),
    PAM_EXPORT(GetVersion, c.U(0), c.Out<AMChar>(1)),
    PAM_EXPORT(SetClientWindow, c.U(0), c.Window(1)),
    PAM_LOCAL(FreeServerInfo, c.Mine<AM_SERVER_INFO>(0)),
    PAM_EXPORT(DetermineServerType, c.U(0), c.W(1), c.Out<AM_SERVER_INFO>(2)),
    PAM_EXPORT(RetrieveGatewayDiscoveryData, c.U(0), c.Gw(1), c.U(2), c.Out<AMChar>(3), c.OutU(4)),
    PAM_EXPORT(LogOffGateway, c.U(0), c.Gw(1)),
    PAM_EXPORT(LogOffAuthService, c.U(0), c.W(1)),
    PAM_EXPORT(GetLogonStatus, c.U(0), c.W(1), c.OutU(2)),
    PAM_LOCAL(DestroyContext, c.U(0)),
    PAM_LOCAL(CreateRequestContext, c.U(0), c.W(1), c.U(2), c.OutU(3)),
    PAM_LOCAL(Prepare2, c.U(0), c.OutU(1)),
    PAM_LOCAL(Prepare, c.U(0), c.Out<AMChar>(1), c.OutU(2)),
    PAM_LOCAL(GetHeaders, c.U(0), c.Out<AMChar*>(1)),
    PAM_LOCAL(FreeHeaders, c.Mine<AMChar*>(0)),
    PAM_LOCAL(GetTranslatedUrl, c.U(0), c.Out<AMChar>(1)),
    PAM_LOCAL(FreeTranslatedUrl, c.Mine<AMChar>(0)),
    PAM_LOCAL(ReportHttpFailure, c.U(0), c.U(1)),
    PAM_LOCAL(ReportHttpResponse, c.U(0), c.U(1), c.Out<AMChar>(2)),
    PAM_LOCAL(ForceRoute, c.U(0), c.Gw(1)),
    PAM_LOCAL(SetReferenceUrl, c.U(0), c.W(1)),
    PAM_EXPORT(CreateAMHttpRequest, c.U(0), c.OutU(1)),
    PAM_EXPORT(SetRequestMethod, c.U(0), c.W(1)),
    PAM_EXPORT(SetRequestUrl, c.U(0), c.W(1)),
    PAM_EXPORT(SetRequestReferenceUrl, c.U(0), c.W(1)),
    PAM_EXPORT(SetRequestUserAgentSuffix, c.U(0), c.W(1)),
    PAM_EXPORT(SetRequestAuthenticationFlags, c.U(0), c.U(1)),
    PAM_EXPORT(SetRequestTimeoutSeconds, c.U(0), c.U(1)),
    PAM_EXPORT(SetRequestRoute, c.U(0), c.Gw(1)),
    PAM_EXPORT(AddRequestHeader, c.U(0), c.W(1)),
    PAM_EXPORT(SetRequestData, c.U(0), c.Data(1), c.U(2)),
    PAM_EXPORT(SendRequestAndReceiveResponse, c.U(0)),
    PAM_EXPORT(GetResponseStatusCode, c.U(0), c.OutU(1)),
    PAM_EXPORT(GetResponseReasonPhrase, c.U(0), c.Out<AMChar>(1)),
    PAM_EXPORT(GetResponseHeaders, c.U(0), c.Out<AMChar*>(1)),
    PAM_LOCAL(FreeResponseHeaders, c.Mine<AMChar*>(0)),
    PAM_LOCAL(GetResponseServerCertificate, c.U(0), c.OutU(1)),
    PAM_LOCAL(FreeCertificate, c.U(0)),
    PAM_EXPORT(GetResponseTrustFailureFlags, c.U(0), c.OutU(1)),
    PAM_LOCAL(DuplicateCertificate, c.U(0), c.OutU(1)),
    PAM_LOCAL(GetServerCertificate, c.U(0), c.W(1), c.OutU(2), c.OutU(3)),
    PAM_EXPORT(DestroyAMHttpRequest, c.U(0)),
    PAM_EXPORT(ReadResponseBodyStream, c.U(0), c.Buffer(1), c.U(2), c.OutU(3)),
    PAM_EXPORT(LaunchRZPFile, c.N(0), c.List(1), c.OutU(2))};
#undef PAM_EXPORT
#undef PAM_LOCAL

// reply <Type> [count=<n>] [<key>=u:1 | i:-1 | w:"text" | n:"bytes" | b:<bytes>]... [pieces=<size>]
// A raw reply instead: raw=<body length the envelope declares> [body=<bytes>].
void Script(pam_test::TestService& service, const std::vector<std::string>& words) {
  pam_test::Reply reply;
  uint32_t count = 1;
  std::string body;
  int64_t declared = -1;
  for (size_t i = 2; i < words.size(); ++i) {
    const std::string key = words[i].substr(0, words[i].find('='));
    const std::string value = words[i].substr(std::min(words[i].size(), key.size() + 1));
    const std::wstring wideKey = FromUtf8OrLatin1(key);
    const std::string typed = Bytes(value.substr(std::min<size_t>(2, value.size())));
    if (key == "count")
      count = Num(value);
    else if (key == "pieces")
      reply.pieceSize = Num(value);
    else if (key == "raw")
      declared = Num(value);
    else if (key == "body")
      body = Bytes(value);
    else if (value[0] == 'u')
      reply.values.SetUInt(wideKey.c_str(), Num(typed));
    else if (value[0] == 'i')
      reply.values.SetInt(wideKey.c_str(), static_cast<int32_t>(Num(typed)));
    else if (value[0] == 'w')
      reply.values.SetWideString(wideKey.c_str(), FromUtf8OrLatin1(typed));
    else if (value[0] == 'n')
      reply.values.SetNarrowString(wideKey.c_str(), typed);
    else
      reply.Buffer(wideKey.c_str(), std::vector<uint8_t>(typed.begin(), typed.end()));
  }
  const uint32_t header[3] = {kExports.at(words[1]).first, kPid, static_cast<uint32_t>(declared)};
  const std::string frame = std::string(reinterpret_cast<const char*>(header), 12) + body;
  if (declared >= 0) reply.raw.emplace(frame.begin(), frame.end());
  service.Script(header[0], std::vector<pam_test::Reply>(count, reply));
}

std::string Describe(const pam_test::Request& request, const pam_test::Request* before) {
  std::map<std::string, std::string> values;
  const LinuxDictionary& m = request.message;
  for (const auto& [k, v] : m.UIntValues()) values[U8(k)] = "u:" + std::to_string(v);
  for (const auto& [k, v] : m.IntValues()) values[U8(k)] = "i:" + std::to_string(v);
  for (const auto& [k, v] : m.ByteValues()) values[U8(k)] = "y:" + std::to_string(v);
  for (const auto& [k, v] : m.WideStringValues()) values[U8(k)] = "w:" + Shown(U8(v), true);
  for (const auto& [k, v] : m.NarrowStringValues()) values[U8(k)] = "n:" + Shown(v);
  for (const auto& [k, v] : m.BufferValues()) values[U8(k)] = "b:" + Shown({v.first.begin(), v.first.end()});
  std::string out = "  sent ";
  for (const auto& [name, entry] : kExports) out += entry.first == request.type ? name : "";
  out += (request.processId == kPid ? " self #" : " other #") + std::to_string(request.raw.size());
  for (const auto& [key, value] : values) out += " " + key + "=" + value;
  const bool pause = before != nullptr && request.receivedAt - before->receivedAt >= std::chrono::milliseconds(100);
  if (before != nullptr && before->raw == request.raw) out += pause ? " (again, after a pause)" : " (again, at once)";
  return out + "\n";
}

class Replay : public testing::TestWithParam<const char*> {
 protected:
  void SetUp() override {
    CTracer::s_tracingEnabled = true;
    (void)mkdir((Home() + "/.RZPClient").c_str(), 0700);
    exe_ = std::filesystem::read_symlink("/proc/self/exe");
#ifdef PALVONAUTHD_PATH
    http_.Routes().Get("/big", [](const httplib::Request&, httplib::Response& response) {
      response.set_content(std::string((16u << 20) + 5, 'b'), "application/octet-stream");
    });
    http_.Routes().Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
      response.status = 201;
      response.set_content("received " + std::to_string(request.body.size()), "text/plain");
    });
    http_.Start();
    httpPort_ = http_.Port();
#endif
  }
  void TearDown() override {
    for (int i = 0; i < 4; ++i) (void)PalvonAuthManager_Uninitialize();
    service_.Stop();
#ifdef PALVONAUTHD_PATH
    daemon_.reset();
#endif
    CTracer::s_tracingEnabled = false;
  }

  // Time stamps, this process's id, HOME and program paths vary from run to run.
  std::string Mask(std::string line) const {
    static const std::regex time(R"(\d{4}-\d{2}-\d{2}_\d{2}_\d{2}_\d{2}_[+-]\d{4})");
    line = std::regex_replace(line, time, "<T>");
    const std::string pid = std::to_string(getpid());
    for (const auto& [from, to] : {std::pair<std::string, std::string>{Home(), "$HOME"},
                                   {exe_, "<program>"},
                                   {PAM_HTTP_EXAMPLE, "<http example>"},
                                   {PAM_LIFECYCLE_EXAMPLE, "<lifecycle example>"},
                                   {".AuthManager" + pid, ".AuthManager<pid>"},
                                   {"-" + pid + "-", "-<pid>-"},
                                   {"http://127.0.0.1:" + std::to_string(httpPort_), "$HTTP"}}) {
      for (size_t at; (at = line.find(from)) != std::string::npos;) line.replace(at, from.size(), to);
    }
    return line;
  }

  std::string Lines(const std::string& prefix, const std::string& text) const {
    std::string out;
    std::istringstream in(text);
    for (std::string l; std::getline(in, l);) out += "  " + prefix + " " + (l.size() > 999 ? Shown(l) : Mask(l)) + "\n";
    return text.empty() || text.back() == '\n' ? out : out + "  " + prefix + " (no line feed at the end)\n";
  }

  // Registrations, requests and trace lines that arrived since the last command.
  std::string News(bool oneCall) {
    std::string out;
    const auto records = service_.RegistrationBytes();
    for (uint32_t w[3]; seenRecords_ < records.size(); ++seenRecords_) {
      std::memcpy(w, records[seenRecords_].data(), sizeof w);
      out += "  registered type=" + std::to_string(w[0]) + (w[1] == kPid ? " self" : " other") + " len=";
      out += std::to_string(w[2]) + "\n";
    }
    const auto requests = service_.Requests();
    for (size_t i = seenRequests_; i < requests.size(); ++i) {
      out += Describe(requests[i], oneCall && i > seenRequests_ ? &requests[i - 1] : nullptr);
    }
    seenRequests_ = requests.size();
    std::set<std::filesystem::path> files;  // trace files, oldest first
    std::error_code none;
    for (const auto& e : std::filesystem::directory_iterator(Home() + "/.RZPClient/logs", none)) files.insert(e);
    if (!files.empty() && !fileShown_) {
      const std::string name = Mask(files.begin()->filename());
      out += "  file " + std::regex_replace(name, std::regex(R"(-0x[0-9a-f]+\.txt$)"), "-<address>.txt") + "\n";
    }
    fileShown_ = fileShown_ || !files.empty();
    for (const auto& file : files) {
      const std::string text = pam_test::ReadFile(file);
      out += Lines("|", text.substr(std::min(text.size(), traceSeen_[file])));
      traceSeen_[file] = text.size();
    }
    return out;
  }

  std::string Command(const std::vector<std::string>& words) {
    const std::string& verb = words[0];
    std::string out;
    if (verb == "reply") {
      Script(service_, words);
    } else if (verb == "service") {  // service version <n>
      service_.SetVersion(Num(words.at(2)));
    } else if (verb == "close-channel") {
      CurrentChannel()->Close();
    } else if (verb == "release") {  // what calls marked "keep" handed out
      for (const auto& show : held_) out += "  held " + show(true) + "\n";
      held_.clear();
    } else if (verb == "state") {
      const std::string pipes = CLinuxIPC::getUserTmpDir() + "/" + ClientChannelName(CurrentProcessId());
      out = std::string("  initialised=") + (IsInitialised() ? "yes" : "no") +
            " channel=" + (CurrentChannel() ? "yes" : "no") + " pipes=" + FileKind(pipes + "Read") + ", " +
            FileKind(pipes + "Write");
      out += "\n";
    } else if (verb == "trace") {
      CTracer::s_tracingEnabled = words.at(1) == "on";
#ifdef PALVONAUTHD_PATH
    } else if (verb == "daemon") {  // daemon <arguments>: the real service takes over from the test service
      service_.Stop();
      daemon_.reset();
      daemon_.emplace(std::vector<std::string>(words.begin() + 1, words.end()));
      logSeen_ = 0;
    } else if (verb == "log") {  // log <text>: the service's log up to the next line holding the text
      std::string text, log;
      for (size_t i = 1; i < words.size(); ++i) text += (i > 1 ? " " : "") + words[i];
      for (int i = 0; i < 2000 && (log = daemon_->Log()).find(text, logSeen_) == std::string::npos; ++i) {
        std::this_thread::sleep_for(5ms);
      }
      const size_t at = log.find(text, logSeen_), end = at == std::string::npos ? at : log.find('\n', at);
      const std::string lines = log.substr(logSeen_, end == std::string::npos ? end : end + 1 - logSeen_);
      logSeen_ += lines.size();
      out = Lines("log", pam_test::MaskLog(lines));
#endif
    } else if (verb == "run") {  // run http|lifecycle <arguments>
      std::vector<std::string> argv = {words[1] == "http" ? PAM_HTTP_EXAMPLE : PAM_LIFECYCLE_EXAMPLE};
      for (size_t i = 2; i < words.size(); ++i) argv.push_back(Bytes(words[i]));
      const pam_test::ChildResult child = pam_test::RunChild(argv);
      out = "  exit " + std::to_string(child.exitCode) + "\n" + Lines("stdout", child.out) + Lines("stderr", child.err);
    } else if (kExports.count(verb) != 0) {
      Call& call = calls_.emplace_back();
      call.args.assign(words.begin() + 1, words.end());
      const bool keep = !call.args.empty() && call.args.back() == "keep";
      if (keep) call.args.pop_back();
      out = "  -> " + std::to_string(kExports.at(verb).second(call));
      for (const auto& [index, show] : call.outs) {
        out += " " + show(!keep);
        if (keep) held_.push_back(show);
      }
      out += "\n";
    } else {
      ADD_FAILURE() << "unknown command " << verb;
    }
    return out;
  }

  std::string Run(const std::vector<std::string>& words) {
    std::string out;
    const std::string printed = pam_test::CaptureStdout([&] { out = Command(words); });
    const std::string& verb = words[0];
    return out + Lines("stdout", printed) + (verb == "reply" || verb == "service" ? "" : News(verb != "run"));
  }

  pam_test::TestService service_;
#ifdef PALVONAUTHD_PATH
  std::optional<pam_test::Daemon> daemon_;
  size_t logSeen_ = 0;
  pam_test::LoopbackHttp http_;
#endif
  int httpPort_ = -1;
  std::string exe_;
  std::deque<Call> calls_;
  std::vector<std::function<std::string(bool)>> held_;
  size_t seenRecords_ = 0, seenRequests_ = 0;
  bool fileShown_ = false;
  std::map<std::filesystem::path, size_t> traceSeen_;
};

TEST_P(Replay, ReproducesTheTranscript) {
  const std::string path = std::string(PAM_TRANSCRIPTS) + "/" + GetParam() + ".txt";
  const std::string expected = pam_test::ReadFile(path);
  ASSERT_FALSE(expected.empty()) << path;
  std::string actual;
  std::istringstream in(expected);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("  ", 0) == 0) continue;  // what the previous command brought
    const std::string url = "http://127.0.0.1:" + std::to_string(httpPort_);
    actual +=
        line + "\n" +
        (line.empty() || line[0] == '#' ? "" : Run(Split(std::regex_replace(line, std::regex(R"(\$HTTP)"), url), ' ')));
  }
  if (getenv("PAM_UPDATE_TRANSCRIPTS") != nullptr) std::ofstream(path) << actual;
  EXPECT_EQ(actual, expected);
}

const char* const kTranscripts[] = {
    "session",          "before_initialise", "level1",    "level1_failures",   "level2",
    "level2_responses", "service_levels",    "lifecycle", "lifecycle_refused", "lifecycle_version",
    "examples",
#ifdef PALVONAUTHD_PATH
    "service",
#endif
};
INSTANTIATE_TEST_SUITE_P(Api, Replay, testing::ValuesIn(kTranscripts),
                         [](const testing::TestParamInfo<const char*>& info) { return std::string(info.param); });

std::string RegistrationPath() { return CLinuxIPC::getUserTmpDir() + "/" + kRegistrationPipeName; }

std::vector<uint8_t> Record(uint32_t pid) {
  std::vector<uint8_t> bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 12, 0, 0, 0};
  std::memcpy(bytes.data() + 4, &pid, 4);
  return bytes;
}

pid_t ForkClient() {
  return pam_test::ForkChild([] {
    return PalvonAuthManager_Initialize() != 0 ? 1 : PalvonAuthManager_Uninitialize() != 0 ? 2 : 0;
  });
}

}  // namespace

TEST(Registration, PipeIsMadeOrResetToMode0666AndTheRecordWaitsUntilRead) {
  const std::string path = RegistrationPath();
  const auto readRecord = [&] {
    while (FileKind(path).rfind("fifo", 0) != 0) std::this_thread::sleep_for(2ms);
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);  // blocks until the client writes
    std::vector<uint8_t> bytes(12);
    EXPECT_EQ(read(fd, bytes.data(), 12), 12);
    close(fd);
    return bytes;
  };
  // Made under a narrow umask, then an existing FIFO both narrower and wider.
  for (const mode_t mode : {0u, 0600u, 0777u}) {
    SCOPED_TRACE(mode);
    umask(mode == 0 ? 077 : 022);
    ASSERT_EQ(mode == 0 ? 0 : chmod(path.c_str(), mode), 0);
    auto reader = std::async(std::launch::async, readRecord);
    EXPECT_TRUE(ClientIPCRegistration(mode == 0600 ? 12345 : 0));  // the argument is not used
    EXPECT_EQ(reader.get(), Record(CurrentProcessId()));
    EXPECT_EQ(FileKind(path), "fifo 0666");
  }
}

TEST(Registration, AnythingButOwnFifoAtThePipePathFailsWithoutTouchingIt) {
  // A link planted on the pipe name must not lead the client to change or
  // write the file it points at, nor may a file or another user's FIFO.
  const std::string path = RegistrationPath();
  const std::string victim = Home() + "/victim";
  const struct {
    const char* what;
    bool needsRoot;
    std::function<int()> plant;
  } cases[] = {
      {"link to a file", false, [&] { return symlink(victim.c_str(), path.c_str()); }},
      {"dangling link", false, [&] { return symlink((victim + "-none").c_str(), path.c_str()); }},
      {"regular file", false, [&] { return rename(victim.c_str(), path.c_str()); }},
      {"FIFO of another user", true,
       [&] { return mkfifo(path.c_str(), 0666) != 0 ? -1 : chown(path.c_str(), 4242, 4242); }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    if (c.needsRoot && geteuid() != 0) continue;
    const int fd = open(victim.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_EQ(write(fd, "0123456789", 10), 10);
    close(fd);
    ASSERT_EQ(c.plant(), 0);
    auto registration = std::async(std::launch::async, [] { return ClientIPCRegistration(0); });
    ASSERT_EQ(registration.wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(registration.get());
    // The file (moved to the pipe name, or where a link points) is as it was.
    const std::string file = FileKind(victim) != "none" ? victim : path;
    EXPECT_EQ(pam_test::ReadFile(file), "0123456789");
    EXPECT_EQ(FileKind(file), "file 0600");
    unlink(path.c_str());
    unlink(victim.c_str());
  }
  // Initialize fails; the call channel made before the registration stays
  // until Uninitialize.
  CTracer::s_tracingEnabled = true;
  ASSERT_EQ(symlink(victim.c_str(), path.c_str()), 0);
  EXPECT_EQ(PalvonAuthManager_Initialize(), 0xFFFFu);
  EXPECT_FALSE(IsInitialised());
  const std::string base = CLinuxIPC::getUserTmpDir() + "/" + ClientChannelName(CurrentProcessId());
  EXPECT_EQ(FileKind(base + "Read"), "fifo 0666");
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_EQ(FileKind(base + "Read") + " " + FileKind(base + "Write"), "none none");
  std::string trace;
  for (const auto& file : std::filesystem::directory_iterator(Home() + "/.RZPClient/logs")) {
    trace += pam_test::ReadFile(file.path());
  }
  EXPECT_NE(trace.find("Failed to create the Registration pipe : " + path + " with error File exists"), trace.npos);
  CTracer::s_tracingEnabled = false;
}

TEST(Registration, PipeThatCannotBeMadeFailsWithoutBlocking) {
  // A home so deep that the pipe folder can still be made but a pipe name
  // inside it exceeds the longest path (ENAMETOOLONG).
  std::string home = Home();
  while (home.size() < 4070) {
    home += "/" + std::string(std::max<size_t>(1, std::min<size_t>(200, 4070 - home.size() - 1)), 'd');
    ASSERT_EQ(mkdir(home.c_str(), 0700), 0) << home.size();
  }
  setenv("HOME", home.c_str(), 1);
  ASSERT_EQ(CLinuxIPC::getUserTmpDir(), home + "/.RZPClient/.tmp");
  auto registration = std::async(std::launch::async, [] { return ClientIPCRegistration(0); });
  ASSERT_EQ(registration.wait_for(10s), std::future_status::ready);
  EXPECT_FALSE(registration.get());
  EXPECT_EQ(PalvonAuthManager_Initialize(), 0xFFFFu);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Registration, InitializeWaitsUntilAServiceOpensThePipe) {
  auto initialise = std::async(std::launch::async, [] { return PalvonAuthManager_Initialize(); });
  EXPECT_EQ(initialise.wait_for(400ms), std::future_status::timeout);
  EXPECT_EQ(FileKind(RegistrationPath()), "fifo 0666");
  TestService service;
  ASSERT_EQ(initialise.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(initialise.get(), 0u);
  EXPECT_EQ(service.RegistrationBytes(), std::vector<std::vector<uint8_t>>{Record(CurrentProcessId())});
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Registration, ClientsRegisterThroughOneSharedPipeWhileAReaderComesAndGoes) {
  // Two clients forked before the service thread exists block in their
  // registration while another process opens and closes the pipe: their
  // writes raise no SIGPIPE, and both records reach the service that starts
  // afterwards; each client then talks over its own pipes.
  const std::string path = RegistrationPath();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const std::vector<pid_t> children = {ForkClient(), ForkClient()};
  for (auto until = std::chrono::steady_clock::now() + 300ms; std::chrono::steady_clock::now() < until;) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0) close(fd);
  }
  TestService service;
  std::set<std::vector<uint8_t>> expected;
  for (const pid_t child : children) {
    EXPECT_EQ(pam_test::WaitChild(child), 0) << child;
    expected.insert(Record(static_cast<uint32_t>(child)));
    std::vector<uint32_t> types;
    for (const auto& request : service.Requests()) {
      if (request.processId == static_cast<uint32_t>(child)) types.push_back(request.type);
    }
    EXPECT_EQ(types, (std::vector<uint32_t>{msg::kGetServerSDKVersion, msg::kInitialize, msg::kUninitialize}));
  }
  const auto records = service.RegistrationBytes();
  EXPECT_EQ(std::set<std::vector<uint8_t>>(records.begin(), records.end()), expected);
  EXPECT_EQ(records.size(), 2u);
}

TEST(PipeDirectory, OnlyAPrivateFolderOfTheUserIsTaken) {
  const std::string user = "pam-test-user-" + std::to_string(getpid()), tmpUser = "/tmp/" + user;
  const std::string notFolder = "it is not a directory (or is a link)";
  const std::string none = "No private pipe folder: set HOME to a home directory of this user\n";
  const auto folder = [](const std::string& path, mode_t mode) {
    return mkdir(path.c_str(), mode) == 0 && chmod(path.c_str(), mode) == 0;
  };
  // prepare(home) sets the scene; "<home>" stands for the fresh home folder.
  const struct {
    const char* what;
    bool needsRoot;
    std::function<bool(const std::string& home)> prepare;
    std::string home, user, directory, standardError;
  } cases[] = {
      {"fresh home", false, nullptr, "<home>", user, "<home>/.RZPClient/.tmp", ""},
      {"own folders readable by others are narrowed", false,
       [&](const std::string& h) { return folder(h + "/.RZPClient", 0755) && folder(h + "/.RZPClient/.tmp", 0750); },
       "<home>", user, "<home>/.RZPClient/.tmp", ""},
      {"pipe folder is a link", false,
       [&](const std::string& h) {
         return folder(h + "/.RZPClient", 0700) && folder(h + "/elsewhere", 0700) &&
                symlink((h + "/elsewhere").c_str(), (h + "/.RZPClient/.tmp").c_str()) == 0;
       },
       "<home>", user, tmpUser, ""},
      {"group may write", false, [&](const std::string& h) { return folder(h + "/.RZPClient", 0770); }, "<home>", user,
       tmpUser, ""},
      {"home unusable", false,
       [](const std::string& h) { return close(open((h + "/.RZPClient").c_str(), O_CREAT | O_WRONLY, 0600)) == 0; },
       "<home>", user, tmpUser, ""},
      {"/tmp/<user> of another user, open to all", true,
       [&](const std::string& h) {
         return folder(h + "/.RZPClient", 0777) && folder(tmpUser, 0777) && chown(tmpUser.c_str(), 4242, 4242) == 0;
       },
       "<home>", user, "", "Pipe folder " + tmpUser + " is not used: it belongs to user 4242\n" + none},
      {"/tmp/<user> is a link", false,
       [&](const std::string& h) { return folder(h + "/.RZPClient", 0777) && !symlink(h.c_str(), tmpUser.c_str()); },
       "<home>", user, "", "Pipe folder " + tmpUser + " is not used: " + notFolder + "\n" + none},
      // An empty HOME is neither "/" nor "/tmp"; a user name leaving /tmp gives no folder.
      {"empty home", false, nullptr, "", user, tmpUser, ""},
      {"user name leaving /tmp", false, nullptr, "", "../etc", "", none},
  };
  umask(022);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    if (c.needsRoot && geteuid() != 0) continue;
    pam_test::TempHome home;
    ASSERT_TRUE(!c.prepare || c.prepare(home.Path()));
    const std::string expected = std::regex_replace(c.directory, std::regex("<home>"), home.Path());
    setenv("HOME", std::regex_replace(c.home, std::regex("<home>"), home.Path()).c_str(), 1);
    setenv("USER", c.user.c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(CLinuxIPC::getUserTmpDir(), expected);
    EXPECT_EQ(testing::internal::GetCapturedStderr(), c.standardError);
    EXPECT_EQ(FileKind(expected.empty() ? "/nonexistent" : expected), expected.empty() ? "none" : "dir 0700");
    setenv("HOME", home.Path().c_str(), 1);
    unlink(tmpUser.c_str());
    pam_test::RemoveTree(tmpUser);
  }
}

TEST(PipeDirectory, ChangePermissionWidensThroughTheFileAndNeverFollowsALink) {
  const std::string fifo = Home() + "/fifo", victim = Home() + "/victim", link = Home() + "/link";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(close(open(victim.c_str(), O_CREAT | O_WRONLY, 0100)), 0);
  ASSERT_EQ(chmod(victim.c_str(), 0100), 0);
  ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
  EXPECT_TRUE(ChangePermission(fifo.c_str()));
  EXPECT_EQ(FileKind(fifo), "fifo 0666");
  EXPECT_FALSE(ChangePermission(link.c_str()));
  EXPECT_EQ(FileKind(victim), "file 0100");
  EXPECT_FALSE(ChangePermission((Home() + "/missing").c_str()));
}
