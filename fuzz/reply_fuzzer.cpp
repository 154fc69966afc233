// Fuzz target of the client's whole reply path. The first input byte picks an
// operation (level 1 or level 2, called through the exports); the rest is the
// reply frame the "service" writes into the process's real reply pipe before
// the call. The frame goes through the channel's framing, the decoder, the
// busy/result handling and the operation's reading of its out-values.
//
// Checked besides memory safety and leaks: an operation that does not return
// 0 leaves every out-value as it was before the call (or as the operation
// documents to clear it first), and whatever it hands out on 0 is released
// with the library's own release functions.
//
// Frame adjustments, so that every input is exactly one complete reply:
//  - a frame shorter than the 12-byte prefix is padded with zeros;
//  - the prefix's body length is set to the bytes present (a longer one
//    would make the channel wait out its read budget; framing mismatches
//    are covered by the channel's own tests);
//  - a frame that decodes to the busy result is not run: the library then
//    sleeps 100 ms and asks again, and the values of a busy reply are never
//    read.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <boost/make_shared.hpp>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "PalvonAuthManager.h"
#include "api/GlobalState.h"
#include "client/CClientCommLib.h"
#include "client/ServerVersion.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/LinuxAMImplementationV2.h"
#include "ipc/CLinuxIPC.h"
#include "message/MessageTypes.h"

namespace {

using namespace PalvonAuthManagerSDK;

constexpr uint32_t kSentinel = 0x5EB7u;
constexpr AMUint kBodyBufferSize = 16;
const AM_GATEWAY_INFO kGateway = {L"gw", L"https://gw/lp", 1, 2, 3};

std::string g_home;
int g_replyFd = -1;    // the service's end of the client's reply pipe
int g_requestFd = -1;  // the service's end of the client's request pipe
size_t g_replyCapacity = 0;

void Check(bool condition) {
  if (!condition) std::abort();
}

void CloseServiceEnds() {
  if (g_replyFd >= 0) close(g_replyFd);
  if (g_requestFd >= 0) close(g_requestFd);
  g_replyFd = g_requestFd = -1;
}

// Builds the call channel the way initialisation does (without registering)
// and opens the service's ends of its two pipes, both non-blocking.
void OpenChannel() {
  CloseServiceEnds();
  auto channel = boost::make_shared<CClientCommLib>(".AuthManagerFuzz");
  const auto* ipc = dynamic_cast<const CLinuxIPC*>(channel->Channel());
  Check(ipc != nullptr);
  g_replyFd = open(ipc->ReadPath().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  g_requestFd = open(ipc->WritePath().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  Check(g_replyFd >= 0 && g_requestFd >= 0);
  (void)fcntl(g_replyFd, F_SETPIPE_SZ, 1 << 20);
  const int capacity = fcntl(g_replyFd, F_GETPIPE_SZ);
  Check(capacity > 0);
  g_replyCapacity = static_cast<size_t>(capacity);
  std::lock_guard<std::mutex> lock(g_ClientCommPtr_mutex);
  g_ClientCommPtr = channel;
}

void Teardown() {
  {
    std::lock_guard<std::mutex> lock(g_ClientCommPtr_mutex);
    g_ClientCommPtr.reset();
  }
  CloseServiceEnds();
  GlobalState& state = Globals();
  delete state.level1.exchange(nullptr);
  delete state.level2.exchange(nullptr);
  std::error_code ignored;
  std::filesystem::remove_all(g_home, ignored);
}

void DrainRequests() {
  unsigned char scratch[4096];
  while (read(g_requestFd, scratch, sizeof scratch) > 0) {
  }
}

// An address no operation ever hands out, to tell "untouched" pointers apart.
template <typename T>
T Unset() {
  static char marker;
  return reinterpret_cast<T>(&marker);
}

// One unsigned out-value; `cleared` is what the operation stores before
// sending (the sentinel when it stores nothing).
template <typename Call>
void Number(Call call, uint32_t cleared = kSentinel) {
  uint32_t value = kSentinel;
  if (call(&value) != rc::kSuccess) Check(value == cleared);
}

// One text out-value, released with FreeString.
template <typename Call>
void Text(Call call, bool mayBeNull = false) {
  AMChar* text = Unset<AMChar*>();
  if (call(&text) != rc::kSuccess) {
    Check(text == (mayBeNull ? nullptr : Unset<AMChar*>()));
    return;
  }
  Check(text != Unset<AMChar*>() && (mayBeNull || text != nullptr));
  (void)PalvonAuthManager_FreeString(text);
}

// A text and an unsigned out-value together.
template <typename Call>
void TextAndNumber(Call call) {
  AMChar* text = Unset<AMChar*>();
  uint32_t value = kSentinel;
  if (call(&text, &value) != rc::kSuccess) {
    Check(text == Unset<AMChar*>() && value == kSentinel);
    return;
  }
  Check(text != Unset<AMChar*>() && text != nullptr);
  (void)PalvonAuthManager_FreeString(text);
}

// A record out-value, released with `release`.
template <typename T, typename Call>
void Record(Call call, AMResult (*release)(T*)) {
  T* record = Unset<T*>();
  if (call(&record) != rc::kSuccess) {
    Check(record == Unset<T*>());
    return;
  }
  Check(record != Unset<T*>() && record != nullptr);
  (void)release(record);
}

void ReadBody() {
  // Exactly the size asked for, so a copy past it is reported.
  std::vector<AMByte> buffer(kBodyBufferSize, 0xA5);
  AMUint count = kSentinel;
  if (PalvonAuthManager_ReadResponseBodyStream(4, buffer.data(), kBodyBufferSize, &count) != rc::kSuccess) {
    Check(count == kSentinel);
    for (AMByte b : buffer) Check(b == 0xA5);
    return;
  }
  Check(count <= kBodyBufferSize);
}

void Launch() {
  char first[] = "-a";
  char second[] = "b";
  AMUTF8Char* args[] = {first, second, nullptr};
  Number([&](AMUint* status) { return PalvonAuthManager_LaunchRZPFile("https://l/f.rzp", args, status); });
}

void SetWindow() {
  AMWindowInfo window = {1, 2, 3, 4, L"n", L"i", L"a"};
  (void)PalvonAuthManager_SetClientWindow(1, &window);
}

void SetData() {
  const AMByte body[] = {1, 2, 3};
  (void)PalvonAuthManager_SetRequestData(4, body, sizeof body);
}

using Operation = void (*)();

// Every operation that sends one request and reads one reply. The seeds
// written by make_corpus.cpp follow this order.
const Operation kOperations[] = {
    // Level 1.
    [] { (void)Globals().level1.load()->Initialize(); },
    [] {
      (void)Globals().level1.load()->Uninitialize();
      OpenChannel();  // the call released the channel
    },
    [] { Number([](AMUint* v) { return GetServerSDKVersion(v); }); },
    [] { Number([](ConnectionHandle* h) { return PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, h); }); },
    [] { (void)PalvonAuthManager_DestroyConnection(1); },
    [] { (void)PalvonAuthManager_ClearAllCredentials(1); },
    [] { (void)PalvonAuthManager_CancelAllCalls(1); },
    [] { (void)PalvonAuthManager_LogOff(1); },
    [] { Number([](VpnAuthContextHandle* h) { return PalvonAuthManager_CreateVpnAuthContext(1, &kGateway, 0, h); }); },
    [] { (void)PalvonAuthManager_DestroyVpnAuthContext(2); },
    [] {
      Record<AM_VPN_AUTHORIZATION_INFO>(
          [](AM_VPN_AUTHORIZATION_INFO** info) { return PalvonAuthManager_GetVpnAuthorizationInfo(2, info); },
          &PalvonAuthManager_FreeVpnAuthorizationInfo);
    },
    [] {
      TextAndNumber([](AMChar** url, AMAuthenticationResult* result) {
        return PalvonAuthManager_GenerateTrampolineUrl(1, L"https://s/", 0, L"https://r/", url, result);
      });
    },
    [] { Text([](AMChar** version) { return PalvonAuthManager_GetVersion(1, version); }); },
    SetWindow,
    [] {
      Record<AM_SERVER_INFO>(
          [](AM_SERVER_INFO** info) { return PalvonAuthManager_DetermineServerType(1, L"https://server/", info); },
          &PalvonAuthManager_FreeServerInfo);
    },
    [] {
      TextAndNumber([](AMChar** data, AMAuthenticationResult* result) {
        return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &kGateway, 0, data, result);
      });
    },
    [] { (void)PalvonAuthManager_LogOffGateway(1, &kGateway); },
    [] { (void)PalvonAuthManager_LogOffAuthService(1, L"https://auth/"); },
    [] { Number([](AMLogonStatus* s) { return PalvonAuthManager_GetLogonStatus(1, L"https://auth/", s); }); },
    // Level 2; the four that clear their out-value before sending say so.
    [] { Number([](AMHttpHandle* h) { return PalvonAuthManager_CreateAMHttpRequest(1, h); }, 0); },
    [] { (void)PalvonAuthManager_AddRequestHeader(4, L"X-A: b"); },
    [] { (void)PalvonAuthManager_SetRequestMethod(4, L"POST"); },
    [] { (void)PalvonAuthManager_SetRequestUrl(4, L"https://u/"); },
    [] { (void)PalvonAuthManager_SetRequestReferenceUrl(4, L"https://r/"); },
    [] { (void)PalvonAuthManager_SetRequestAuthenticationFlags(4, 1); },
    [] { (void)PalvonAuthManager_SetRequestUserAgentSuffix(4, L"fuzz"); },
    SetData,
    [] { (void)PalvonAuthManager_SetRequestRoute(4, &kGateway); },
    [] { (void)PalvonAuthManager_SetRequestTimeoutSeconds(4, 30); },
    [] { (void)PalvonAuthManager_SendRequestAndReceiveResponse(4); },
    [] { Number([](AMUint* code) { return PalvonAuthManager_GetResponseStatusCode(4, code); }, 0); },
    [] { Text([](AMChar** phrase) { return PalvonAuthManager_GetResponseReasonPhrase(4, phrase); }, true); },
    [] {
      Record<AMChar*>([](AMChar*** headers) { return PalvonAuthManager_GetResponseHeaders(4, headers); },
                      &PalvonAuthManager_FreeResponseHeaders);
    },
    [] { Number([](AMUint* flags) { return PalvonAuthManager_GetResponseTrustFailureFlags(4, flags); }, 0); },
    ReadBody,
    [] { (void)PalvonAuthManager_DestroyAMHttpRequest(4); },
    Launch,
};
constexpr size_t kOperationCount = sizeof kOperations / sizeof kOperations[0];

// True when the client would take the frame as a busy answer.
bool IsBusy(const std::vector<uint8_t>& frame) {
  auto* copy = static_cast<uint8_t*>(std::malloc(frame.size()));
  Check(copy != nullptr);
  std::memcpy(copy, frame.data(), frame.size());
  LinuxDictionary reply;
  reply.AdoptEncoding(copy, static_cast<uint32_t>(frame.size()));
  reply.Deserialize();
  unsigned int result = 0;
  return reply.GetUInt(L"return", &result) && result == rc::kBusy;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  // A reply of a few kilobytes has no business making the library allocate
  // megabytes: unless the command line sets its own limit, any single
  // allocation above 16 MiB is reported (libFuzzer reads its flags after
  // this function returns).
  bool limited = false;
  for (int i = 1; i < *argc; ++i) limited |= std::strncmp((*argv)[i], "-malloc_limit_mb=", 17) == 0;
  if (!limited) {
    static char flag[] = "-malloc_limit_mb=16";
    static std::vector<char*> arguments;
    arguments.assign(*argv, *argv + *argc);
    arguments.push_back(flag);
    arguments.push_back(nullptr);
    *argv = arguments.data();
    ++*argc;
  }

  char home[] = "/tmp/pam-reply-fuzz-XXXXXX";
  Check(mkdtemp(home) != nullptr);
  g_home = home;
  Check(setenv("HOME", home, 1) == 0);
  OpenChannel();
  GlobalState& state = Globals();
  state.level1 = new LinuxAMImplementation();
  state.level2 = new LinuxAMImplementationV2();
  state.apiLevel = 2;
  std::atexit(Teardown);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::vector<uint8_t> frame(data + 1, data + size);
  if (frame.size() < kMessagePrefixSize) frame.resize(kMessagePrefixSize, 0);
  if (frame.size() > g_replyCapacity) return 0;
  const auto bodyLength = static_cast<uint32_t>(frame.size() - kMessagePrefixSize);
  std::memcpy(frame.data() + 8, &bodyLength, sizeof bodyLength);
  if (IsBusy(frame)) return 0;

  Check(write(g_replyFd, frame.data(), frame.size()) == static_cast<ssize_t>(frame.size()));
  kOperations[data[0] % kOperationCount]();
  DrainRequests();
  // The operation took its reply, all of it.
  int left = 0;
  Check(ioctl(g_replyFd, FIONREAD, &left) == 0 && left == 0);
  return 0;
}
