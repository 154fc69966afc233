// The call pattern every level-1 operation shares, exercised through the
// exported functions: null arguments, busy repeats, rejected handles,
// foreign result codes, replies without "return", missing texts, and a
// reply that never comes.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <functional>
#include <thread>

#include "api/SignatureTexts.h"
#include "client/CClientCommLib.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::CallTrace;
using l1test::ErrLine;
using l1test::ExpectRequest;
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

/** An operation that hands nothing out: its out-variables are trivially untouched. */
template <typename Call>
std::function<AMResult(uint32_t, bool&)> NoOutput(Call call) {
  return [call](uint32_t handle, bool& untouched) {
    untouched = true;
    return call(handle);
  };
}

/**
 * An operation handing out one value: the variable is preset to `unset`, and
 * what was handed out is released with `release` (when given).
 */
template <typename T, typename Call>
std::function<AMResult(uint32_t, bool&)> OneOutput(T unset, Call call, AMResult (*release)(T) = nullptr) {
  return [=](uint32_t handle, bool& untouched) {
    T value = unset;
    const AMResult result = call(handle, &value);
    untouched = value == unset;
    if (release != nullptr && value != unset) release(value);
    return result;
  };
}

const char* const kConnectionMessage = "Invalid connection handle %u.";
const char* const kContextMessage = "Invalid request context handle %u.";

// Name, message type, export signature and operation signature of one operation.
#define PAM_OPERATION(name) #name, msg::k##name, sig::api::k##name, sig::l1::k##name

std::vector<Operation> Operations() {
  return {
      {PAM_OPERATION(CreateConnection), nullptr,
       OneOutput(kSentinel,
                 [](uint32_t, ConnectionHandle* handle) {
                   return PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, handle);
                 }),
       0, true},
      {PAM_OPERATION(DestroyConnection), kConnectionMessage, NoOutput(&PalvonAuthManager_DestroyConnection), 0, true},
      {PAM_OPERATION(ClearAllCredentials), kConnectionMessage, NoOutput(&PalvonAuthManager_ClearAllCredentials), 0,
       true},
      {PAM_OPERATION(CancelAllCalls), kConnectionMessage, NoOutput(&PalvonAuthManager_CancelAllCalls), 0, true},
      {PAM_OPERATION(LogOff), kConnectionMessage, NoOutput(&PalvonAuthManager_LogOff), 0, true},
      {PAM_OPERATION(LogOffGateway), kConnectionMessage,
       NoOutput([](uint32_t handle) { return PalvonAuthManager_LogOffGateway(handle, &kGateway); }), 0, true},
      {PAM_OPERATION(LogOffAuthService), kContextMessage,
       NoOutput([](uint32_t handle) { return PalvonAuthManager_LogOffAuthService(handle, L"https://auth/"); }), 0,
       true},
      {PAM_OPERATION(GetLogonStatus), kContextMessage,
       OneOutput(kSentinel,
                 [](uint32_t handle, AMLogonStatus* status) {
                   return PalvonAuthManager_GetLogonStatus(handle, L"https://auth/", status);
                 }),
       0, true},
      {PAM_OPERATION(GenerateTrampolineUrl), kConnectionMessage,
       [](uint32_t handle, bool& untouched) {
         AMChar* url = nullptr;
         AMAuthenticationResult authResult = kSentinel;
         const AMResult result = PalvonAuthManager_GenerateTrampolineUrl(handle, L"s", 0, L"r", &url, &authResult);
         untouched = url == nullptr && authResult == kSentinel;
         if (url != nullptr) PalvonAuthManager_FreeString(url);
         return result;
       },
       0xFFF8u, true},
      {PAM_OPERATION(CreateVpnAuthContext), kConnectionMessage,
       OneOutput(kSentinel,
                 [](uint32_t handle, VpnAuthContextHandle* context) {
                   return PalvonAuthManager_CreateVpnAuthContext(handle, &kGateway, 0, context);
                 }),
       0, true},
      {PAM_OPERATION(DestroyVpnAuthContext), kContextMessage, NoOutput(&PalvonAuthManager_DestroyVpnAuthContext), 0,
       true},
      {PAM_OPERATION(GetVpnAuthorizationInfo), kContextMessage,
       OneOutput<AM_VPN_AUTHORIZATION_INFO*>(nullptr, &PalvonAuthManager_GetVpnAuthorizationInfo,
                                             &PalvonAuthManager_FreeVpnAuthorizationInfo),
       0xFFF8u, true},
      {PAM_OPERATION(GetVersion), kConnectionMessage,
       OneOutput<AMChar*>(nullptr, &PalvonAuthManager_GetVersion, &PalvonAuthManager_FreeString), 0xFFF8u, true},
      {PAM_OPERATION(SetClientWindow), kConnectionMessage, NoOutput([](uint32_t handle) {
         AMWindowInfo window = {1, 2, 3, 4, L"n", L"i", L"a"};
         return PalvonAuthManager_SetClientWindow(handle, &window);
       }),
       0, true},
      // A reply without "serverType" describes a server of type 0.
      {PAM_OPERATION(DetermineServerType), kConnectionMessage,
       OneOutput<AM_SERVER_INFO*>(
           nullptr,
           [](uint32_t handle, AM_SERVER_INFO** info) {
             return PalvonAuthManager_DetermineServerType(handle, L"https://server/", info);
           },
           &PalvonAuthManager_FreeServerInfo),
       0, false},
      {PAM_OPERATION(RetrieveGatewayDiscoveryData), kConnectionMessage,
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

#undef PAM_OPERATION

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
    std::function<AMResult()> call;
  };
  AMChar* text = nullptr;
  AMAuthenticationResult authResult = kSentinel;
  AMLogonStatus status = kSentinel;
  AM_SERVER_INFO* info = nullptr;
  const std::vector<NullCase> cases = {
      {"CreateConnection", "outHandle",
       [] { return PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, nullptr); }},
      {"CreateVpnAuthContext", "gatewayInfo",
       [] { return PalvonAuthManager_CreateVpnAuthContext(1, nullptr, 0, nullptr); }},
      {"CreateVpnAuthContext", "vpnAuthContextHandle",
       [] { return PalvonAuthManager_CreateVpnAuthContext(1, &kGateway, 0, nullptr); }},
      {"GetVpnAuthorizationInfo", "vpnAuthorizationInfo",
       [] { return PalvonAuthManager_GetVpnAuthorizationInfo(1, nullptr); }},
      {"GenerateTrampolineUrl", "serviceUrl",
       [] { return PalvonAuthManager_GenerateTrampolineUrl(1, nullptr, 0, nullptr, nullptr, nullptr); }},
      {"GenerateTrampolineUrl", "trampolineUrl",
       [&] { return PalvonAuthManager_GenerateTrampolineUrl(1, L"s", 0, L"r", nullptr, &authResult); }},
      {"GenerateTrampolineUrl", "authenticationResult",
       [&] { return PalvonAuthManager_GenerateTrampolineUrl(1, L"s", 0, nullptr, &text, nullptr); }},
      {"GetVersion", "version", [] { return PalvonAuthManager_GetVersion(1, nullptr); }},
      {"DetermineServerType", "outServerInfo",
       [] { return PalvonAuthManager_DetermineServerType(1, nullptr, nullptr); }},
      {"DetermineServerType", "serverUrl", [&] { return PalvonAuthManager_DetermineServerType(1, nullptr, &info); }},
      {"RetrieveGatewayDiscoveryData", "gatewayInfo",
       [] { return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, nullptr, 0, nullptr, nullptr); }},
      {"RetrieveGatewayDiscoveryData", "outDiscoveryData",
       [&] { return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &kGateway, 0, nullptr, &authResult); }},
      {"RetrieveGatewayDiscoveryData", "outAuthenticationResult",
       [&] { return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &kGateway, 0, &text, nullptr); }},
      {"LogOffGateway", "gatewayInfo", [] { return PalvonAuthManager_LogOffGateway(1, nullptr); }},
      {"LogOffAuthService", "authServiceUrl", [] { return PalvonAuthManager_LogOffAuthService(1, nullptr); }},
      {"GetLogonStatus", "authServiceUrl", [] { return PalvonAuthManager_GetLogonStatus(1, nullptr, nullptr); }},
      {"GetLogonStatus", "authServiceUrl", [&] { return PalvonAuthManager_GetLogonStatus(1, nullptr, &status); }},
      {"GetLogonStatus", "outLogonStatus", [&] { return PalvonAuthManager_GetLogonStatus(1, L"u", nullptr); }},
  };
  const auto operations = Operations();
  for (const NullCase& c : cases) {
    SCOPED_TRACE(std::string(c.operation) + " / " + c.argument);
    const auto op = std::find_if(operations.begin(), operations.end(),
                                 [&](const Operation& o) { return std::strcmp(o.name, c.operation) == 0; });
    ASSERT_NE(op, operations.end());
    const size_t mark = TraceMark();
    EXPECT_EQ(c.call(), 0xFFFBu);
    // Entry lines and the null message, but no exit line.
    EXPECT_EQ(TraceSince(mark),
              CallTrace(op->exportSignature, op->operationSignature, -1,
                        {ErrLine(std::string(c.operation) + ": failed because " + c.argument + " is NULL!")}));
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
    std::vector<std::string> middle;
    if (op.invalidHandleFormat != nullptr) middle.push_back(ErrLine(Formatted(op.invalidHandleFormat, 4242)));
    EXPECT_EQ(TraceSince(mark), CallTrace(op.exportSignature, op.operationSignature, 65530, middle));
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
      EXPECT_EQ(TraceSince(mark), CallTrace(op.exportSignature, op.operationSignature, code));
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
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kCreateConnection, sig::l1::kCreateConnection, 0));
}

TEST_F(PatternTest, BusyRepliesNeverHandOutValuesNorEndTheWait) {
  // The busy replies carry a status; the final success does not, so the
  // caller's variable must still hold its own value.
  Service().Script(msg::kGetLogonStatus,
                   {Reply::Busy().UInt(L"logonStatus", 1), Reply::Busy().UInt(L"logonStatus", 2), Reply::Return(0)});
  AMLogonStatus status = kSentinel;
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(3, L"u", &status), 0u);
  EXPECT_EQ(status, kSentinel);

  // Without "return" the result keeps its previous value, busy, so the
  // request goes out once more.
  Service().Script(msg::kDestroyConnection, {Reply::Busy(), Reply::Empty(), Reply::Return(0)});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(PalvonAuthManager_DestroyConnection(7), 0u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_EQ(Service().RequestsOfType(msg::kGetLogonStatus).size(), 3u);
  EXPECT_EQ(Service().RequestsOfType(msg::kDestroyConnection).size(), 3u);
}

TEST_F(PatternTest, BusyThenRejectedHandleTracesTheHandleOnce) {
  Service().Script(msg::kGetVersion, {Reply::Busy(), Reply::Return(0xFFFAu)});
  AMChar* version = nullptr;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GetVersion(31, &version), 0xFFFAu);
  EXPECT_EQ(version, nullptr);
  EXPECT_EQ(TraceSince(mark),
            CallTrace(sig::api::kGetVersion, sig::l1::kGetVersion, 65530, {ErrLine("Invalid connection handle 31.")}));
}

TEST_F(PatternTest, ReadFailureFailsWith65528AndWritesNoOutValue) {
  // An exchange whose reply could not be read never passes for success.
  Service().Script(msg::kCreateConnection, {UnreadableFrame(msg::kCreateConnection)});
  ConnectionHandle handle = kSentinel;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, &handle), 0xFFF8u);
  EXPECT_EQ(handle, kSentinel);

  Service().Script(msg::kGetVersion, {UnreadableFrame(msg::kGetVersion)});
  AMChar* version = nullptr;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GetVersion(1, &version), 0xFFF8u);
  EXPECT_EQ(version, nullptr);
  EXPECT_EQ(TraceSince(mark),
            CallTrace(sig::api::kGetVersion, sig::l1::kGetVersion, 65528, {ErrLine("Unexpected exception chaught.")}));

  Service().Script(msg::kGetVpnAuthorizationInfo, {UnreadableFrame(msg::kGetVpnAuthorizationInfo)});
  AM_VPN_AUTHORIZATION_INFO* info = nullptr;
  EXPECT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(6, &info), 0xFFF8u);
  EXPECT_EQ(info, nullptr);

  // The frame was consumed whole: the channel stays in step.
  Service().Script(msg::kGetLogonStatus, {Reply::Return(0).UInt(L"logonStatus", 8)});
  AMLogonStatus status = 0;
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(1, L"u", &status), 0u);
  EXPECT_EQ(status, 8u);
}

TEST_F(PatternTest, ChannelClosedDuringTheWaitFailsTheCall) {
  Service().Script(msg::kCreateConnection, {Silent()});
  const size_t before = Service().RequestCount();
  std::thread closer([&] {
    (void)Service().WaitForRequests(before + 1);
    // Give the caller time to be inside its wait.
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    const boost::shared_ptr<CClientCommLib> channel = CurrentChannel();
    if (channel) channel->Close();
  });
  ConnectionHandle handle = kSentinel;
  const AMResult result = PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, &handle);
  closer.join();
  EXPECT_EQ(result, 0xFFF8u);
  EXPECT_EQ(handle, kSentinel);

  // Nothing more can be sent; shutting down still releases everything.
  EXPECT_EQ(Uninitialise(), 0xFFF8u);
  EXPECT_FALSE(IsInitialised());
  EXPECT_FALSE(CurrentChannel());
}

TEST_F(PatternTest, RequestThatCannotBeSentFails) {
  g_ClientCommPtr->Close();
  AMLogonStatus status = kSentinel;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(1, L"u", &status), 0xFFF8u);
  EXPECT_EQ(status, kSentinel);
  EXPECT_TRUE(Sent().empty());
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kGetLogonStatus, sig::l1::kGetLogonStatus, 65528,
                                        {ErrLine("Unexpected exception chaught.")}));
  EXPECT_EQ(Uninitialise(), 0xFFF8u);
  EXPECT_FALSE(IsInitialised());
}

}  // namespace
