// The call pattern every level-1 operation shares, exercised through the
// exported functions: null arguments, busy repeats, rejected handles,
// foreign result codes, replies without "return", missing texts, and a
// reply that never comes.
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>

#include "api/SignatureTexts.h"
#include "client/CClientCommLib.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::ErrLine;
using l1test::ExpectRequest;
using l1test::MsgLine;
using pam_test::Reply;

namespace {

using PatternTest = l1test::Level1Test;

constexpr uint32_t kSentinel = 0x5EB7u;
const AM_GATEWAY_INFO kGateway = {L"gw", L"https://gw/lp", 1, 2, 3};

/** One level-1 operation that talks to the service, called with valid arguments. */
struct Operation {
  const char* name;
  uint32_t type;
  const char* exportSignature;
  const char* operationSignature;
  /** Traced at error level on 65530, or null when the operation has none. */
  const char* invalidHandleFormat;
  /**
   * Calls the export on `handle` with out-variables preset to sentinels,
   * releases whatever was handed out (so a call that hands out nothing traces
   * nothing more), and sets `untouched` when every
   * out-variable still holds its sentinel.
   */
  std::function<AMResult(uint32_t handle, bool& untouched)> call;
  /** Result for a reply that has no "return" and no other value. */
  AMResult emptyReplyResult;
  /** Whether the out-variables stay untouched for such a reply. */
  bool emptyReplyUntouched;
};

const char* const kConnectionMessage = "Invalid connection handle %u.";
const char* const kContextMessage = "Invalid request context handle %u.";

std::vector<Operation> Operations() {
  return {
      {"CreateConnection", msg::kCreateConnection, sig::api::kCreateConnection, sig::l1::kCreateConnection, nullptr,
       [](uint32_t, bool& untouched) {
         ConnectionHandle handle = kSentinel;
         const AMResult result = PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, &handle);
         untouched = handle == kSentinel;
         return result;
       },
       0, true},
      {"DestroyConnection", msg::kDestroyConnection, sig::api::kDestroyConnection, sig::l1::kDestroyConnection,
       kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         untouched = true;
         return PalvonAuthManager_DestroyConnection(handle);
       },
       0, true},
      {"ClearAllCredentials", msg::kClearAllCredentials, sig::api::kClearAllCredentials, sig::l1::kClearAllCredentials,
       kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         untouched = true;
         return PalvonAuthManager_ClearAllCredentials(handle);
       },
       0, true},
      {"CancelAllCalls", msg::kCancelAllCalls, sig::api::kCancelAllCalls, sig::l1::kCancelAllCalls, kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         untouched = true;
         return PalvonAuthManager_CancelAllCalls(handle);
       },
       0, true},
      {"LogOff", msg::kLogOff, sig::api::kLogOff, sig::l1::kLogOff, kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         untouched = true;
         return PalvonAuthManager_LogOff(handle);
       },
       0, true},
      {"LogOffGateway", msg::kLogOffGateway, sig::api::kLogOffGateway, sig::l1::kLogOffGateway, kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         untouched = true;
         return PalvonAuthManager_LogOffGateway(handle, &kGateway);
       },
       0, true},
      {"LogOffAuthService", msg::kLogOffAuthService, sig::api::kLogOffAuthService, sig::l1::kLogOffAuthService,
       kContextMessage,
       [](uint32_t handle, bool& untouched) {
         untouched = true;
         return PalvonAuthManager_LogOffAuthService(handle, L"https://auth/");
       },
       0, true},
      {"GetLogonStatus", msg::kGetLogonStatus, sig::api::kGetLogonStatus, sig::l1::kGetLogonStatus, kContextMessage,
       [](uint32_t handle, bool& untouched) {
         AMLogonStatus status = kSentinel;
         const AMResult result = PalvonAuthManager_GetLogonStatus(handle, L"https://auth/", &status);
         untouched = status == kSentinel;
         return result;
       },
       0, true},
      {"GenerateTrampolineUrl", msg::kGenerateTrampolineUrl, sig::api::kGenerateTrampolineUrl,
       sig::l1::kGenerateTrampolineUrl, kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         AMChar* url = nullptr;
         AMAuthenticationResult authResult = kSentinel;
         const AMResult result = PalvonAuthManager_GenerateTrampolineUrl(handle, L"s", 0, L"r", &url, &authResult);
         untouched = url == nullptr && authResult == kSentinel;
         if (url != nullptr) PalvonAuthManager_FreeString(url);
         return result;
       },
       0xFFF8u, true},
      {"CreateVpnAuthContext", msg::kCreateVpnAuthContext, sig::api::kCreateVpnAuthContext,
       sig::l1::kCreateVpnAuthContext, kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         VpnAuthContextHandle context = kSentinel;
         const AMResult result = PalvonAuthManager_CreateVpnAuthContext(handle, &kGateway, 0, &context);
         untouched = context == kSentinel;
         return result;
       },
       0, true},
      {"DestroyVpnAuthContext", msg::kDestroyVpnAuthContext, sig::api::kDestroyVpnAuthContext,
       sig::l1::kDestroyVpnAuthContext, kContextMessage,
       [](uint32_t handle, bool& untouched) {
         untouched = true;
         return PalvonAuthManager_DestroyVpnAuthContext(handle);
       },
       0, true},
      {"GetVpnAuthorizationInfo", msg::kGetVpnAuthorizationInfo, sig::api::kGetVpnAuthorizationInfo,
       sig::l1::kGetVpnAuthorizationInfo, kContextMessage,
       [](uint32_t handle, bool& untouched) {
         AM_VPN_AUTHORIZATION_INFO* info = nullptr;
         const AMResult result = PalvonAuthManager_GetVpnAuthorizationInfo(handle, &info);
         untouched = info == nullptr;
         if (info != nullptr) PalvonAuthManager_FreeVpnAuthorizationInfo(info);
         return result;
       },
       // The record is handed out before its first text is found missing.
       0xFFF8u, false},
      {"GetVersion", msg::kGetVersion, sig::api::kGetVersion, sig::l1::kGetVersion, kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         AMChar* version = nullptr;
         const AMResult result = PalvonAuthManager_GetVersion(handle, &version);
         untouched = version == nullptr;
         if (version != nullptr) PalvonAuthManager_FreeString(version);
         return result;
       },
       0xFFF8u, true},
      {"SetClientWindow", msg::kSetClientWindow, sig::api::kSetClientWindow, sig::l1::kSetClientWindow,
       kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         AMWindowInfo window = {1, 2, 3, 4, L"n", L"i", L"a"};
         untouched = true;
         return PalvonAuthManager_SetClientWindow(handle, &window);
       },
       0, true},
      {"DetermineServerType", msg::kDetermineServerType, sig::api::kDetermineServerType, sig::l1::kDetermineServerType,
       kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         AM_SERVER_INFO* info = nullptr;
         const AMResult result = PalvonAuthManager_DetermineServerType(handle, L"https://server/", &info);
         untouched = info == nullptr;
         if (info != nullptr) PalvonAuthManager_FreeServerInfo(info);
         return result;
       },
       // A reply without "serverType" describes a server of type 0.
       0, false},
      {"RetrieveGatewayDiscoveryData", msg::kRetrieveGatewayDiscoveryData, sig::api::kRetrieveGatewayDiscoveryData,
       sig::l1::kRetrieveGatewayDiscoveryData, kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         AMChar* data = nullptr;
         AMAuthenticationResult authResult = kSentinel;
         const AMResult result =
             PalvonAuthManager_RetrieveGatewayDiscoveryData(handle, &kGateway, 0, &data, &authResult);
         untouched = data == nullptr && authResult == kSentinel;
         if (data != nullptr) PalvonAuthManager_FreeString(data);
         return result;
       },
       0xFFF8u, true},
  };
}

/** A reply with `code` that also carries every out-value any level-1 operation reads. */
Reply FullReply(uint32_t code) {
  return Reply::Return(code)
      .UInt(L"AuthManagerHandle", 1)
      .UInt(L"vpnauthcontexthandle", 2)
      .UInt(L"amAuthenticationResult", 3)
      .UInt(L"logonStatus", 4)
      .UInt(L"serverType", 2)
      .Wide(L"friendlyName", L"f")
      .Wide(L"logonPointUrl", L"l")
      .Wide(L"vpnauthorizationstr", L"a")
      .Wide(L"vpnsessionlogonpointurl", L"u")
      .Wide(L"trampolineUrl", L"t")
      .Wide(L"version", L"v")
      .Wide(L"discoveryData", L"d");
}

/** A reply frame whose announced body is far beyond what the client accepts: a read error. */
Reply UnreadableFrame(uint32_t type) {
  std::vector<uint8_t> frame(12);
  const uint32_t prefix[3] = {type, static_cast<uint32_t>(getpid()), 0xFFFFFFF0u};
  std::memcpy(frame.data(), prefix, sizeof prefix);
  return Reply::Raw(frame);
}

Reply Silent() {
  Reply reply;
  reply.silent = true;
  return reply;
}

std::string Formatted(const char* format, uint32_t value) {
  char text[128];
  std::snprintf(text, sizeof text, format, value);
  return text;
}

TEST_F(PatternTest, NullArgumentsAreReportedInOrderAndNothingIsSent) {
  struct NullCase {
    const char* operation;
    const char* argument;
    const char* exportSignature;
    const char* operationSignature;
    std::function<AMResult()> call;
  };
  AMChar* text = nullptr;
  AMAuthenticationResult authResult = kSentinel;
  AMLogonStatus status = kSentinel;
  AM_SERVER_INFO* info = nullptr;
  const std::vector<NullCase> cases = {
      {"CreateConnection", "outHandle", sig::api::kCreateConnection, sig::l1::kCreateConnection,
       [] { return PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, nullptr); }},
      {"CreateVpnAuthContext", "gatewayInfo", sig::api::kCreateVpnAuthContext, sig::l1::kCreateVpnAuthContext,
       [] { return PalvonAuthManager_CreateVpnAuthContext(1, nullptr, 0, nullptr); }},
      {"CreateVpnAuthContext", "vpnAuthContextHandle", sig::api::kCreateVpnAuthContext, sig::l1::kCreateVpnAuthContext,
       [] { return PalvonAuthManager_CreateVpnAuthContext(1, &kGateway, 0, nullptr); }},
      {"GetVpnAuthorizationInfo", "vpnAuthorizationInfo", sig::api::kGetVpnAuthorizationInfo,
       sig::l1::kGetVpnAuthorizationInfo, [] { return PalvonAuthManager_GetVpnAuthorizationInfo(1, nullptr); }},
      {"GenerateTrampolineUrl", "serviceUrl", sig::api::kGenerateTrampolineUrl, sig::l1::kGenerateTrampolineUrl,
       [] { return PalvonAuthManager_GenerateTrampolineUrl(1, nullptr, 0, nullptr, nullptr, nullptr); }},
      {"GenerateTrampolineUrl", "trampolineUrl", sig::api::kGenerateTrampolineUrl, sig::l1::kGenerateTrampolineUrl,
       [&] { return PalvonAuthManager_GenerateTrampolineUrl(1, L"s", 0, L"r", nullptr, &authResult); }},
      {"GenerateTrampolineUrl", "authenticationResult", sig::api::kGenerateTrampolineUrl,
       sig::l1::kGenerateTrampolineUrl,
       [&] { return PalvonAuthManager_GenerateTrampolineUrl(1, L"s", 0, nullptr, &text, nullptr); }},
      {"GetVersion", "version", sig::api::kGetVersion, sig::l1::kGetVersion,
       [] { return PalvonAuthManager_GetVersion(1, nullptr); }},
      {"DetermineServerType", "outServerInfo", sig::api::kDetermineServerType, sig::l1::kDetermineServerType,
       [] { return PalvonAuthManager_DetermineServerType(1, nullptr, nullptr); }},
      {"DetermineServerType", "serverUrl", sig::api::kDetermineServerType, sig::l1::kDetermineServerType,
       [&] { return PalvonAuthManager_DetermineServerType(1, nullptr, &info); }},
      {"RetrieveGatewayDiscoveryData", "gatewayInfo", sig::api::kRetrieveGatewayDiscoveryData,
       sig::l1::kRetrieveGatewayDiscoveryData,
       [] { return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, nullptr, 0, nullptr, nullptr); }},
      {"RetrieveGatewayDiscoveryData", "outDiscoveryData", sig::api::kRetrieveGatewayDiscoveryData,
       sig::l1::kRetrieveGatewayDiscoveryData,
       [&] { return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &kGateway, 0, nullptr, &authResult); }},
      {"RetrieveGatewayDiscoveryData", "outAuthenticationResult", sig::api::kRetrieveGatewayDiscoveryData,
       sig::l1::kRetrieveGatewayDiscoveryData,
       [&] { return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &kGateway, 0, &text, nullptr); }},
      {"LogOffGateway", "gatewayInfo", sig::api::kLogOffGateway, sig::l1::kLogOffGateway,
       [] { return PalvonAuthManager_LogOffGateway(1, nullptr); }},
      {"LogOffAuthService", "authServiceUrl", sig::api::kLogOffAuthService, sig::l1::kLogOffAuthService,
       [] { return PalvonAuthManager_LogOffAuthService(1, nullptr); }},
      {"GetLogonStatus", "authServiceUrl", sig::api::kGetLogonStatus, sig::l1::kGetLogonStatus,
       [] { return PalvonAuthManager_GetLogonStatus(1, nullptr, nullptr); }},
      {"GetLogonStatus", "authServiceUrl", sig::api::kGetLogonStatus, sig::l1::kGetLogonStatus,
       [&] { return PalvonAuthManager_GetLogonStatus(1, nullptr, &status); }},
      {"GetLogonStatus", "outLogonStatus", sig::api::kGetLogonStatus, sig::l1::kGetLogonStatus,
       [&] { return PalvonAuthManager_GetLogonStatus(1, L"u", nullptr); }},
  };
  for (const NullCase& c : cases) {
    SCOPED_TRACE(std::string(c.operation) + " / " + c.argument);
    const size_t mark = TraceMark();
    EXPECT_EQ(c.call(), 0xFFFBu);
    // Entry lines and the null message, but no exit line.
    const std::vector<std::string> expected = {
        MsgLine(c.exportSignature),
        MsgLine(std::string("[+] ") + c.operationSignature),
        ErrLine(std::string(c.operation) + ": failed because " + c.argument + " is NULL!"),
    };
    EXPECT_EQ(TraceSince(mark), expected);
  }
  EXPECT_TRUE(Sent().empty());
  // The non-null out-arguments of the failed calls were not written.
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(authResult, kSentinel);
  EXPECT_EQ(status, kSentinel);
  EXPECT_EQ(info, nullptr);
}

TEST_F(PatternTest, RejectedHandleIsTracedWithEachOperationsMessage) {
  for (const Operation& op : Operations()) {
    SCOPED_TRACE(op.name);
    Service().Script(op.type, {FullReply(0xFFFAu)});
    const size_t mark = TraceMark();
    bool untouched = false;
    EXPECT_EQ(op.call(4242, untouched), 0xFFFAu);
    EXPECT_TRUE(untouched);
    std::vector<std::string> expected = {MsgLine(op.exportSignature),
                                         MsgLine(std::string("[+] ") + op.operationSignature)};
    if (op.invalidHandleFormat != nullptr) expected.push_back(ErrLine(Formatted(op.invalidHandleFormat, 4242)));
    expected.push_back(MsgLine(std::string("[-] ") + op.operationSignature + " : result = 65530"));
    EXPECT_EQ(TraceSince(mark), expected);
  }
}

TEST_F(PatternTest, ForeignResultCodesArePassedThroughWithoutReadingValues) {
  for (const Operation& op : Operations()) {
    SCOPED_TRACE(op.name);
    for (const uint32_t code : {1234u, 0xFF01u, 0xFEFFu, 0xFFFFFFFFu}) {
      Service().Script(op.type, {FullReply(code)});
      const size_t mark = TraceMark();
      bool untouched = false;
      EXPECT_EQ(op.call(5, untouched), code);
      EXPECT_TRUE(untouched);
      const std::vector<std::string> expected = {
          MsgLine(op.exportSignature),
          MsgLine(std::string("[+] ") + op.operationSignature),
          MsgLine(std::string("[-] ") + op.operationSignature + " : result = " + std::to_string(code)),
      };
      EXPECT_EQ(TraceSince(mark), expected);
    }
  }
}

TEST_F(PatternTest, ReplyWithoutReturnCountsAsSuccess) {
  for (const Operation& op : Operations()) {
    SCOPED_TRACE(op.name);
    Service().Script(op.type, {Reply::Empty()});
    bool untouched = false;
    EXPECT_EQ(op.call(5, untouched), op.emptyReplyResult);
    EXPECT_EQ(untouched, op.emptyReplyUntouched);
  }
}

TEST_F(PatternTest, EveryOperationSendsItsOwnMessageTypeOnce) {
  const auto operations = Operations();
  for (const Operation& op : operations) {
    Service().Script(op.type, {FullReply(0)});
    bool untouched = true;
    EXPECT_EQ(op.call(5, untouched), 0u) << op.name;
  }
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), operations.size());
  for (size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(sent[i].type, operations[i].type) << operations[i].name;
    EXPECT_EQ(sent[i].processId, static_cast<uint32_t>(getpid()));
  }
}

TEST_F(PatternTest, BusyTwiceThenSuccessRepeatsTheIdenticalRequest) {
  Service().Script(msg::kCreateConnection,
                   {Reply::Busy().UInt(L"AuthManagerHandle", 1), Reply::Busy().UInt(L"AuthManagerHandle", 2),
                    Reply::Return(0).UInt(L"AuthManagerHandle", 9)});
  ConnectionHandle handle = 0;
  const size_t mark = TraceMark();
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"busy", nullptr, nullptr, &handle), 0u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_EQ(handle, 9u);

  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].raw, sent[1].raw);
  EXPECT_EQ(sent[1].raw, sent[2].raw);
  EXPECT_GE(sent[1].receivedAt - sent[0].receivedAt, std::chrono::milliseconds(100));
  EXPECT_GE(sent[2].receivedAt - sent[1].receivedAt, std::chrono::milliseconds(100));
  // The repeats are not traced: one entry, one exit.
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kCreateConnection),
      MsgLine(std::string("[+] ") + sig::l1::kCreateConnection),
      MsgLine(std::string("[-] ") + sig::l1::kCreateConnection + " : result = 0"),
  };
  EXPECT_EQ(TraceSince(mark), expected);
}

TEST_F(PatternTest, BusyRepliesNeverHandOutValues) {
  // The busy replies carry a status; the final success does not, so the
  // caller's variable must still hold its own value.
  Service().Script(msg::kGetLogonStatus,
                   {Reply::Busy().UInt(L"logonStatus", 1), Reply::Busy().UInt(L"logonStatus", 2), Reply::Return(0)});
  AMLogonStatus status = kSentinel;
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(3, L"u", &status), 0u);
  EXPECT_EQ(status, kSentinel);
  EXPECT_EQ(Sent().size(), 3u);
}

TEST_F(PatternTest, ReplyWithoutReturnAfterBusyKeepsWaiting) {
  // Without "return" the result keeps its previous value, busy, so the
  // request goes out once more.
  Service().Script(msg::kDestroyConnection, {Reply::Busy(), Reply::Empty(), Reply::Return(0)});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(PalvonAuthManager_DestroyConnection(7), 0u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_EQ(Sent().size(), 3u);
}

TEST_F(PatternTest, BusyThenRejectedHandleTracesTheHandleOnce) {
  Service().Script(msg::kGetVersion, {Reply::Busy(), Reply::Return(0xFFFAu)});
  AMChar* version = nullptr;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GetVersion(31, &version), 0xFFFAu);
  EXPECT_EQ(version, nullptr);
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kGetVersion),
      MsgLine(std::string("[+] ") + sig::l1::kGetVersion),
      ErrLine("Invalid connection handle 31."),
      MsgLine(std::string("[-] ") + sig::l1::kGetVersion + " : result = 65530"),
  };
  EXPECT_EQ(TraceSince(mark), expected);
}

TEST_F(PatternTest, ReadFailureHandsBackTheRequestsOwnValues) {
  // CreateConnection: the request holds no "return" and no handle, so the
  // call reports success and leaves the handle alone.
  Service().Script(msg::kCreateConnection, {UnreadableFrame(msg::kCreateConnection)});
  ConnectionHandle handle = kSentinel;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, &handle), 0u);
  EXPECT_EQ(handle, kSentinel);

  // A text out-value is then missing: 65528, out-pointer untouched.
  Service().Script(msg::kGetVersion, {UnreadableFrame(msg::kGetVersion)});
  AMChar* version = nullptr;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GetVersion(1, &version), 0xFFF8u);
  EXPECT_EQ(version, nullptr);
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kGetVersion),
      MsgLine(std::string("[+] ") + sig::l1::kGetVersion),
      ErrLine("Unexpected exception chaught."),
      MsgLine(std::string("[-] ") + sig::l1::kGetVersion + " : result = 65528"),
  };
  EXPECT_EQ(TraceSince(mark), expected);

  // The authorization record is handed out empty before its text is missed.
  Service().Script(msg::kGetVpnAuthorizationInfo, {UnreadableFrame(msg::kGetVpnAuthorizationInfo)});
  AM_VPN_AUTHORIZATION_INFO* info = nullptr;
  EXPECT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(6, &info), 0xFFF8u);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->amAuthenticationResult, 0u);
  EXPECT_EQ(info->vpnauthorizationstr, nullptr);
  EXPECT_EQ(info->vpnsessionlogonpointurl, nullptr);
  EXPECT_EQ(PalvonAuthManager_FreeVpnAuthorizationInfo(info), 0u);

  // The frame was consumed whole: the channel stays in step.
  Service().Script(msg::kGetLogonStatus, {Reply::Return(0).UInt(L"logonStatus", 8)});
  AMLogonStatus status = 0;
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(1, L"u", &status), 0u);
  EXPECT_EQ(status, 8u);
}

TEST_F(PatternTest, ChannelClosedDuringTheWaitHandsBackTheRequest) {
  Service().Script(msg::kCreateConnection, {Silent()});
  const size_t before = Service().RequestCount();
  std::thread closer([&] {
    (void)Service().WaitForRequests(before + 1);
    // Give the caller time to be inside its wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const boost::shared_ptr<CClientCommLib> channel = g_ClientCommPtr;
    if (channel) channel->Close();
  });
  ConnectionHandle handle = kSentinel;
  const size_t mark = TraceMark();
  const AMResult result = PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, &handle);
  closer.join();
  EXPECT_EQ(result, 0u);
  EXPECT_EQ(handle, kSentinel);
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kCreateConnection),
      MsgLine(std::string("[+] ") + sig::l1::kCreateConnection),
      MsgLine(std::string("[-] ") + sig::l1::kCreateConnection + " : result = 0"),
  };
  EXPECT_EQ(TraceSince(mark), expected);

  // Nothing more can be sent; shutting down still releases everything.
  EXPECT_EQ(Uninitialise(), 0xFFF8u);
  EXPECT_FALSE(IsInitialised());
  EXPECT_FALSE(g_ClientCommPtr);
}

TEST_F(PatternTest, RequestThatCannotBeSentFails) {
  g_ClientCommPtr->Close();
  AMLogonStatus status = kSentinel;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(1, L"u", &status), 0xFFF8u);
  EXPECT_EQ(status, kSentinel);
  EXPECT_TRUE(Sent().empty());
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kGetLogonStatus),
      MsgLine(std::string("[+] ") + sig::l1::kGetLogonStatus),
      ErrLine("Unexpected exception chaught."),
      MsgLine(std::string("[-] ") + sig::l1::kGetLogonStatus + " : result = 65528"),
  };
  EXPECT_EQ(TraceSince(mark), expected);
  EXPECT_EQ(Uninitialise(), 0xFFF8u);
  EXPECT_FALSE(IsInitialised());
}

}  // namespace
