// The export frames seen from outside: every level-1 export before
// initialisation, the request-context functions before and after it, and
// the API level query.
#include <unistd.h>

#include <cstdio>
#include <functional>

#include "api/SignatureTexts.h"
#include "level1_fixture.h"
#include "support/CaptureStdout.h"

using namespace PalvonAuthManagerSDK;
using l1test::MaskTime;
using l1test::MsgLine;

namespace {

using pam_test::CaptureStdout;

constexpr uint32_t kSentinel = 0x5EB7u;

struct ExportCall {
  const char* signature;
  std::function<AMResult()> call;
};

/** Calls each export with tracing on and checks its result and its one entry line on standard output. */
void ExpectResultAndEntryLine(const std::vector<ExportCall>& calls, AMResult expected) {
  CTracer::s_tracingEnabled = true;
  for (const ExportCall& c : calls) {
    SCOPED_TRACE(c.signature);
    AMResult result = 0;
    const std::string printed = CaptureStdout([&] { result = c.call(); });
    EXPECT_EQ(result, expected);
    // Without a trace file the line goes to standard output, followed by an
    // empty line.
    EXPECT_EQ(MaskTime(printed), MsgLine(c.signature) + "\n\n");
  }
  CTracer::s_tracingEnabled = false;
}

struct RequestContextOutputs {
  RequestContextHandle context = kSentinel;
  AMChar text[8] = L"keep";
  AMChar* url = text;
  AMChar* headerArray[2] = {text, nullptr};
  AMChar** headers = headerArray;
  AMAuthenticationResult authResult = kSentinel;

  bool Untouched() const {
    return context == kSentinel && url == text && headers == headerArray && headerArray[0] == text &&
           headerArray[1] == nullptr && authResult == kSentinel && std::wstring(text) == L"keep";
  }
};

std::vector<ExportCall> RequestContextCalls(RequestContextOutputs& out) {
  static const AM_GATEWAY_INFO gateway = {L"g", L"u", 1, 2, 3};
  return {
      {sig::api::kCreateRequestContext,
       [&] { return PalvonAuthManager_CreateRequestContext(1, L"https://x/", 0, &out.context); }},
      {sig::api::kDestroyContext, [] { return PalvonAuthManager_DestroyContext(1); }},
      {sig::api::kPrepare, [&] { return PalvonAuthManager_Prepare(1, &out.url, &out.authResult); }},
      {sig::api::kGetHeaders, [&] { return PalvonAuthManager_GetHeaders(1, &out.headers); }},
      // The release functions must not release anything: these point into the test's own memory.
      {sig::api::kFreeHeaders, [&] { return PalvonAuthManager_FreeHeaders(out.headerArray); }},
      {sig::api::kGetTranslatedUrl, [&] { return PalvonAuthManager_GetTranslatedUrl(1, &out.url); }},
      {sig::api::kFreeTranslatedUrl, [&] { return PalvonAuthManager_FreeTranslatedUrl(out.text); }},
      {sig::api::kPrepare2, [&] { return PalvonAuthManager_Prepare2(1, &out.authResult); }},
      {sig::api::kReportHttpResponse, [&] { return PalvonAuthManager_ReportHttpResponse(1, 200, &out.url); }},
      {sig::api::kReportHttpFailure, [] { return PalvonAuthManager_ReportHttpFailure(1, 3); }},
      {sig::api::kForceRoute, [] { return PalvonAuthManager_ForceRoute(1, &gateway); }},
      {sig::api::kSetReferenceUrl, [] { return PalvonAuthManager_SetReferenceUrl(1, L"https://ref/"); }},
  };
}

TEST(Level1Frames, BeforeInitialisationExportsAnswerNotInitialisedOrNotImplementedAndTraceTheirEntry) {
  const AM_GATEWAY_INFO gateway = {L"g", L"u", 1, 2, 3};
  AMWindowInfo window = {1, 2, 3, 4, nullptr, nullptr, nullptr};
  ConnectionHandle handle = kSentinel;
  VpnAuthContextHandle context = kSentinel;
  AM_VPN_AUTHORIZATION_INFO vpnRecord{};
  AM_VPN_AUTHORIZATION_INFO* vpnInfo = &vpnRecord;
  AM_SERVER_INFO serverRecord{};
  AM_SERVER_INFO* serverInfo = &serverRecord;
  AMChar textBuffer[8] = L"keep";
  AMChar* text = textBuffer;
  AMAuthenticationResult authResult = kSentinel;
  AMLogonStatus status = kSentinel;
  AMUint level = kSentinel;

  // The release functions get the test's own memory: releasing it would be
  // caught as an invalid free.
  const std::vector<ExportCall> calls = {
      {sig::api::kCreateConnection,
       [&] { return PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, &handle); }},
      {sig::api::kDestroyConnection, [] { return PalvonAuthManager_DestroyConnection(1); }},
      {sig::api::kClearAllCredentials, [] { return PalvonAuthManager_ClearAllCredentials(1); }},
      {sig::api::kCancelAllCalls, [] { return PalvonAuthManager_CancelAllCalls(1); }},
      {sig::api::kLogOff, [] { return PalvonAuthManager_LogOff(1); }},
      {sig::api::kCreateVpnAuthContext,
       [&] { return PalvonAuthManager_CreateVpnAuthContext(1, &gateway, 0, &context); }},
      {sig::api::kDestroyVpnAuthContext, [] { return PalvonAuthManager_DestroyVpnAuthContext(1); }},
      {sig::api::kGetVpnAuthorizationInfo, [&] { return PalvonAuthManager_GetVpnAuthorizationInfo(1, &vpnInfo); }},
      {sig::api::kFreeVpnAuthorizationInfo, [&] { return PalvonAuthManager_FreeVpnAuthorizationInfo(&vpnRecord); }},
      {sig::api::kGenerateTrampolineUrl,
       [&] { return PalvonAuthManager_GenerateTrampolineUrl(1, L"s", 0, nullptr, &text, &authResult); }},
      {sig::api::kFreeString, [&] { return PalvonAuthManager_FreeString(textBuffer); }},
      {sig::api::kGetVersion, [&] { return PalvonAuthManager_GetVersion(1, &text); }},
      {sig::api::kSetClientWindow, [&] { return PalvonAuthManager_SetClientWindow(1, &window); }},
      {sig::api::kDetermineServerType, [&] { return PalvonAuthManager_DetermineServerType(1, L"u", &serverInfo); }},
      {sig::api::kFreeServerInfo, [&] { return PalvonAuthManager_FreeServerInfo(&serverRecord); }},
      {sig::api::kRetrieveGatewayDiscoveryData,
       [&] { return PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &gateway, 0, &text, &authResult); }},
      {sig::api::kLogOffGateway, [&] { return PalvonAuthManager_LogOffGateway(1, &gateway); }},
      {sig::api::kLogOffAuthService, [] { return PalvonAuthManager_LogOffAuthService(1, L"u"); }},
      {sig::api::kGetLogonStatus, [&] { return PalvonAuthManager_GetLogonStatus(1, L"u", &status); }},
      {sig::api::kGetApiLevel, [&] { return PalvonAuthManager_GetApiLevel(&level); }},
  };
  ASSERT_FALSE(IsInitialised());
  ExpectResultAndEntryLine(calls, 0xFFFDu);

  EXPECT_EQ(handle, kSentinel);
  EXPECT_EQ(context, kSentinel);
  EXPECT_EQ(vpnInfo, &vpnRecord);
  EXPECT_EQ(serverInfo, &serverRecord);
  EXPECT_EQ(text, textBuffer);
  EXPECT_EQ(std::wstring(textBuffer), L"keep");
  EXPECT_EQ(authResult, kSentinel);
  EXPECT_EQ(status, kSentinel);
  EXPECT_EQ(level, kSentinel);

  // The initialised check comes before any argument is looked at.
  EXPECT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, nullptr), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_GetVersion(1, nullptr), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(1, nullptr), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(nullptr), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_FreeString(nullptr), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_FreeServerInfo(nullptr), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_FreeVpnAuthorizationInfo(nullptr), 0xFFFDu);

  // The request-context functions are not implemented, initialised or not.
  RequestContextOutputs out;
  ExpectResultAndEntryLine(RequestContextCalls(out), 0xFFF5u);
  EXPECT_TRUE(out.Untouched());
}

using InitialisedFrames = l1test::Level1Test;

TEST_F(InitialisedFrames, RequestContextFunctionsAnswerNotImplementedAndSendNothing) {
  RequestContextOutputs out;
  const auto calls = RequestContextCalls(out);
  const size_t mark = TraceMark();
  std::vector<std::string> expected;
  for (const ExportCall& c : calls) {
    SCOPED_TRACE(c.signature);
    EXPECT_EQ(c.call(), 0xFFF5u);
    expected.push_back(MsgLine(c.signature));
  }
  EXPECT_TRUE(out.Untouched());
  EXPECT_TRUE(Sent().empty());
  // Only the entry lines: no operation runs behind these functions.
  EXPECT_EQ(TraceSince(mark), expected);
}

TEST_F(InitialisedFrames, ApiLevelIsReportedAndANullPointerIsRefused) {
  AMUint level = kSentinel;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  EXPECT_EQ(level, 2u);
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(nullptr), 0xFFFBu);
  EXPECT_EQ(TraceSince(mark), std::vector<std::string>{MsgLine(sig::api::kGetApiLevel)});
  EXPECT_TRUE(Sent().empty());
}

}  // namespace
