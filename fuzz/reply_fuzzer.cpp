// Fuzz target of the client's whole reply path: the first input byte picks an
// operation, called through the exports; the rest is the reply written into the
// real reply pipe first, made one complete frame (padded to the prefix, body
// length set to the bytes present; a busy reply, which would make the library
// sleep and ask again, is skipped). A failed call leaves its out-values alone
// (or cleared, where documented); what a successful one hands out is released.
#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <boost/make_shared.hpp>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <mutex>
#include <vector>

#include "PalvonAuthManager.h"
#include "api/GlobalState.h"
#include "client/CClientCommLib.h"
#include "client/ServerVersion.h"
#include "impl/LinuxAMImplementation.h"
#include "impl/LinuxAMImplementationV2.h"
#include "ipc/CLinuxIPC.h"
#include "protocol/ResultCodes.h"
#include "protocol/Keys.h"

namespace {

using namespace PalvonAuthManagerSDK;

constexpr uint32_t kSentinel = 0x5EB7u;
const AM_GATEWAY_INFO kGateway = {L"gw", L"https://gw/lp", 1, 2, 3};
const AMByte kBody[] = {1, 2, 3};
AMWindowInfo g_window = {1, 2, 3, 4, L"n", L"i", L"a"};
char g_first[] = "-a", g_second[] = "b";
AMUTF8Char* g_arguments[] = {g_first, g_second, nullptr};
char g_home[] = "/tmp/pam-reply-fuzz-XXXXXX";
int g_replyFd = -1, g_requestFd = -1;  // the service's ends of the two pipes
size_t g_replyCapacity = 0;

void Check(bool condition) {
  if (!condition) std::abort();
}

// Builds the call channel as initialisation does (without registering) and
// opens the service's ends of its pipes, both non-blocking.
void OpenChannel() {
  for (int fd : {g_replyFd, g_requestFd}) close(fd);
  auto channel = boost::make_shared<CClientCommLib>(".AuthManagerFuzz");
  const auto* ipc = dynamic_cast<const CLinuxIPC*>(channel->Channel());
  Check(ipc != nullptr);
  g_replyFd = open(ipc->ReadPath().c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  g_requestFd = open(ipc->WritePath().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  (void)fcntl(g_replyFd, F_SETPIPE_SZ, 1 << 20);
  const int capacity = fcntl(g_replyFd, F_GETPIPE_SZ);
  Check(g_requestFd >= 0 && capacity > 0);
  g_replyCapacity = static_cast<size_t>(capacity);
  std::lock_guard<std::mutex> lock(g_ClientCommPtr_mutex);
  g_ClientCommPtr = channel;
}

// Out-values preset to markers: a failed call leaves them alone, except that
// four level-2 calls clear theirs before sending.
struct Outs {
  static inline char marker;
  uint32_t number = kSentinel, other = kSentinel, cleared = kSentinel;
  AMChar* text = reinterpret_cast<AMChar*>(&marker);
  AMChar* clearedText = reinterpret_cast<AMChar*>(&marker);
  AMChar** headers = reinterpret_cast<AMChar**>(&marker);
  AM_SERVER_INFO* server = reinterpret_cast<AM_SERVER_INFO*>(&marker);
  AM_VPN_AUTHORIZATION_INFO* vpn = reinterpret_cast<AM_VPN_AUTHORIZATION_INFO*>(&marker);
  std::vector<AMByte> body = std::vector<AMByte>(16, 0xA5);  // exactly the size a read asks for
};

// Every operation that sends one request and reads one reply, in the order
// the seeds in corpus/reply (op<index>_success.bin) were written for.
AMResult (*const kOperations[])(Outs&) = {
    [](Outs&) { return Globals().level1.load()->Initialize(); },
    [](Outs&) {
      const AMResult result = Globals().level1.load()->Uninitialize();
      OpenChannel();  // the call released the channel
      return result;
    },
    [](Outs& o) { return GetServerSDKVersion(&o.number); },
    [](Outs& o) { return PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, &o.number); },
    [](Outs&) { return PalvonAuthManager_DestroyConnection(1); },
    [](Outs&) { return PalvonAuthManager_ClearAllCredentials(1); },
    [](Outs&) { return PalvonAuthManager_CancelAllCalls(1); },
    [](Outs&) { return PalvonAuthManager_LogOff(1); },
    [](Outs& o) { return PalvonAuthManager_CreateVpnAuthContext(1, &kGateway, 0, &o.number); },
    [](Outs&) { return PalvonAuthManager_DestroyVpnAuthContext(2); },
    [](Outs& o) { return PalvonAuthManager_GetVpnAuthorizationInfo(2, &o.vpn); },
    [](Outs& o) { return PalvonAuthManager_GenerateTrampolineUrl(1, L"https://s/", 0, L"r", &o.text, &o.other); },
    [](Outs& o) { return PalvonAuthManager_GetVersion(1, &o.text); },
    [](Outs&) { return PalvonAuthManager_SetClientWindow(1, &g_window); },
    [](Outs& o) { return PalvonAuthManager_DetermineServerType(1, L"https://server/", &o.server); },
    [](Outs& o) { return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &kGateway, 0, &o.text, &o.other); },
    [](Outs&) { return PalvonAuthManager_LogOffGateway(1, &kGateway); },
    [](Outs&) { return PalvonAuthManager_LogOffAuthService(1, L"https://auth/"); },
    [](Outs& o) { return PalvonAuthManager_GetLogonStatus(1, L"https://auth/", &o.number); },
    [](Outs& o) { return o.cleared = 0, PalvonAuthManager_CreateAMHttpRequest(1, &o.number); },
    [](Outs&) { return PalvonAuthManager_AddRequestHeader(4, L"X-A: b"); },
    [](Outs&) { return PalvonAuthManager_SetRequestMethod(4, L"POST"); },
    [](Outs&) { return PalvonAuthManager_SetRequestUrl(4, L"https://u/"); },
    [](Outs&) { return PalvonAuthManager_SetRequestReferenceUrl(4, L"https://r/"); },
    [](Outs&) { return PalvonAuthManager_SetRequestAuthenticationFlags(4, 1); },
    [](Outs&) { return PalvonAuthManager_SetRequestUserAgentSuffix(4, L"fuzz"); },
    [](Outs&) { return PalvonAuthManager_SetRequestData(4, kBody, sizeof kBody); },
    [](Outs&) { return PalvonAuthManager_SetRequestRoute(4, &kGateway); },
    [](Outs&) { return PalvonAuthManager_SetRequestTimeoutSeconds(4, 30); },
    [](Outs&) { return PalvonAuthManager_SendRequestAndReceiveResponse(4); },
    [](Outs& o) { return o.cleared = 0, PalvonAuthManager_GetResponseStatusCode(4, &o.number); },
    [](Outs& o) { return o.clearedText = nullptr, PalvonAuthManager_GetResponseReasonPhrase(4, &o.text); },
    [](Outs& o) { return PalvonAuthManager_GetResponseHeaders(4, &o.headers); },
    [](Outs& o) { return o.cleared = 0, PalvonAuthManager_GetResponseTrustFailureFlags(4, &o.number); },
    [](Outs& o) {
      const AMResult result = PalvonAuthManager_ReadResponseBodyStream(4, o.body.data(), 16, &o.number);
      Check(result != rc::kSuccess || o.number <= 16);
      return result;
    },
    [](Outs&) { return PalvonAuthManager_DestroyAMHttpRequest(4); },
    [](Outs& o) { return PalvonAuthManager_LaunchRZPFile("https://l/f.rzp", g_arguments, &o.number); },
};
static_assert(sizeof kOperations / sizeof kOperations[0] == 37, "the seeds' first bytes index this table");

void Run(AMResult (*operation)(Outs&)) {
  Outs o;
  const Outs unset;
  if (operation(o) != rc::kSuccess) {
    Check(o.number == o.cleared && o.other == kSentinel && o.text == o.clearedText && o.headers == unset.headers &&
          o.server == unset.server && o.vpn == unset.vpn && o.body == unset.body);
    return;
  }
  Check(o.headers != nullptr && o.server != nullptr && o.vpn != nullptr && (o.text || o.clearedText == nullptr));
  if (o.text != unset.text) (void)PalvonAuthManager_FreeString(o.text);
  if (o.headers != unset.headers) (void)PalvonAuthManager_FreeResponseHeaders(o.headers);
  if (o.server != unset.server) (void)PalvonAuthManager_FreeServerInfo(o.server);
  if (o.vpn != unset.vpn) (void)PalvonAuthManager_FreeVpnAuthorizationInfo(o.vpn);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  // Asking for more than 16 MiB at once is a finding, unless the command line sets its own limit.
  static char limit[] = "-malloc_limit_mb=16";
  static std::vector<char*> arguments(*argv, *argv + *argc);
  const bool own = std::any_of(arguments.begin(), arguments.end(), [](char* a) { return !std::strncmp(a, limit, 17); });
  if (!own) arguments.push_back(limit), ++*argc;
  arguments.push_back(nullptr), *argv = arguments.data();
  Check(mkdtemp(g_home) != nullptr && setenv("HOME", g_home, 1) == 0);
  OpenChannel();
  Globals().level1 = new LinuxAMImplementation();
  Globals().level2 = new LinuxAMImplementationV2();
  Globals().apiLevel = 2;
  std::atexit([] { std::filesystem::remove_all(g_home); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  std::vector<uint8_t> frame(data + 1, data + size);
  frame.resize(std::max(frame.size(), size_t{kMessagePrefixSize}));
  if (frame.size() > g_replyCapacity) return 0;
  const auto bodyLength = static_cast<uint32_t>(frame.size() - kMessagePrefixSize);
  std::memcpy(frame.data() + 8, &bodyLength, sizeof bodyLength);
  auto* copy = static_cast<uint8_t*>(std::malloc(frame.size()));
  Check(copy != nullptr);
  std::memcpy(copy, frame.data(), frame.size());
  LinuxDictionary reply;
  reply.AdoptEncoding(copy, static_cast<uint32_t>(frame.size()));
  reply.Deserialize();
  unsigned int result = 0;
  if (reply.GetUInt(key::kReturn, &result) && result == rc::kBusy) return 0;

  Check(write(g_replyFd, frame.data(), frame.size()) == static_cast<ssize_t>(frame.size()));
  Run(kOperations[data[0] % 37]);
  unsigned char scratch[4096];
  while (read(g_requestFd, scratch, sizeof scratch) > 0) {
  }
  int left = 0;  // the operation took its whole reply
  Check(ioctl(g_replyFd, FIONREAD, &left) == 0 && left == 0);
  return 0;
}
