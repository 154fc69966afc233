// API level 2: request handles and the request settings, through the exported
// functions against the scriptable test service.
#include <chrono>
#include <functional>

#include "level2_support.h"

using namespace PalvonAuthManagerSDK;
using namespace l2test;
using Described = std::map<std::string, std::string>;

namespace {

class Level2Requests : public Level2Test {};

constexpr AMHttpHandle kHandle = 41;

// ---------------------------------------------------------------------------
// CreateAMHttpRequest

TEST_F(Level2Requests, CreateSendsOnlyTheConnectionAndHandsOutTheHandle) {
  service.Script(msg::kCreateAMHttpRequest, {Reply::Return(0).UInt(L"httpHandle", 42), Reply::Return(0)});
  AMHttpHandle handle = 555;
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(7, &handle), 0u);
  EXPECT_EQ(handle, 42u);
  EXPECT_EQ(OnlyDescribed(msg::kCreateAMHttpRequest), (Described{{"AuthManagerHandle", "uint:7"}}));
  EXPECT_EQ(CountTrace(Level::kMessage, "Created http request handle 42 for connection handle 7."), 1u);
  // Success without a handle leaves the cleared zero.
  handle = 555;
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(7, &handle), 0u);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(CountTrace(Level::kMessage, "Created http request handle 0 for connection handle 7."), 1u);
  EXPECT_EQ(CountTraceStartingWith("Unexpected result from IPC"), 0u);
}

TEST_F(Level2Requests, CreateFailureClearsTheHandleAndComplainsOnlyAboutForeignCodes) {
  service.Script(msg::kCreateAMHttpRequest, {Reply::Return(rc::kInvalidHandle).UInt(L"httpHandle", 9),
                                             Reply::Return(1234).UInt(L"httpHandle", 9)});
  AMHttpHandle handle = 555;
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(7, &handle), rc::kInvalidHandle);
  EXPECT_EQ(handle, 0u);  // cleared before sending, and not read from a failed reply
  EXPECT_EQ(CountTrace(Level::kError, "Connection handle 7 is not valid."), 1u);
  EXPECT_EQ(CountTraceStartingWith("Unexpected result from IPC"), 0u);
  EXPECT_EQ(CountTraceStartingWith("Created http request handle"), 0u);
  // Other service codes are passed on with one complaint.
  handle = 555;
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(7, &handle), 1234u);
  EXPECT_EQ(handle, 0u);
  EXPECT_EQ(CountTrace(Level::kError, "Unexpected result from IPC"), 1u);
  EXPECT_EQ(CountTraceStartingWith("Connection handle"), 1u);
}

TEST_F(Level2Requests, CreateRetriesWhileBusyAndComplainsAboutEachBusyReply) {
  service.Script(msg::kCreateAMHttpRequest, {Reply::Busy(), Reply::Busy(), Reply::Return(0).UInt(L"httpHandle", 3)});
  AMHttpHandle handle = 555;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(7, &handle), 0u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_EQ(handle, 3u);
  const auto sent = service.RequestsOfType(msg::kCreateAMHttpRequest);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].raw, sent[1].raw);
  EXPECT_EQ(sent[0].raw, sent[2].raw);
  EXPECT_EQ(CountTrace(Level::kError, "Unexpected result from IPC"), 2u);
}

// ---------------------------------------------------------------------------
// DestroyAMHttpRequest

TEST_F(Level2Requests, DestroySendsTheHandleAndReportsUnknownOnes) {
  EXPECT_EQ(PalvonAuthManager_DestroyAMHttpRequest(kHandle), 0u);
  EXPECT_EQ(OnlyDescribed(msg::kDestroyAMHttpRequest), (Described{{"httpHandle", "uint:41"}}));

  service.Script(msg::kDestroyAMHttpRequest, {Reply::Return(rc::kInvalidHandle)});
  EXPECT_EQ(PalvonAuthManager_DestroyAMHttpRequest(kHandle), rc::kInvalidHandle);
  EXPECT_EQ(CountTrace(Level::kError, "Http request handle 41 is not valid."), 1u);
}

// ---------------------------------------------------------------------------
// Text setters

struct TextSetter {
  const char* name;
  AMResult (*call)(AMHttpHandle, const AMChar*);
  uint32_t type;
  const char* key;
  const char* nullMessage;
};

const TextSetter kTextSetters[] = {
    {"AddRequestHeader", PalvonAuthManager_AddRequestHeader, msg::kAddRequestHeader, "httpheader",
     "AddRequestHeader: failed because header is NULL!"},
    {"SetRequestMethod", PalvonAuthManager_SetRequestMethod, msg::kSetRequestMethod, "httpMethod",
     "SetRequestMethod: failed because method is NULL!"},
    {"SetRequestUrl", PalvonAuthManager_SetRequestUrl, msg::kSetRequestUrl, "httpUrl",
     "SetRequestUrl: failed because url is NULL!"},
    {"SetRequestReferenceUrl", PalvonAuthManager_SetRequestReferenceUrl, msg::kSetRequestReferenceUrl, "httpUrl",
     "SetRequestReferenceUrl: failed because url is NULL!"},
    {"SetRequestUserAgentSuffix", PalvonAuthManager_SetRequestUserAgentSuffix, msg::kSetRequestUserAgentSuffix,
     "userAgentSuffix", "SetRequestUserAgentSuffix: failed because UserAgentSuffix is NULL!"},
};

TEST_F(Level2Requests, TextSettersSendHandleAndOneWideText) {
  // Non-ASCII and a character outside the basic plane travel unchanged.
  const std::wstring text = L"X-Caf\u00e9: \u2713 \U0001D11E end";
  for (const auto& setter : kTextSetters) {
    SCOPED_TRACE(setter.name);
    const size_t before = service.RequestsOfType(setter.type).size();
    ASSERT_EQ(setter.call(kHandle, text.c_str()), 0u);
    const auto sent = service.RequestsOfType(setter.type);
    ASSERT_EQ(sent.size(), before + 1);
    EXPECT_EQ(Describe(sent.back().message),
              (Described{{"httpHandle", "uint:41"}, {setter.key, "wide:" + pam_test::Utf8(text)}}));
    // An empty text is sent as an empty string, not left out.
    ASSERT_EQ(setter.call(kHandle, L""), 0u);
    EXPECT_EQ(Describe(service.RequestsOfType(setter.type).back().message),
              (Described{{"httpHandle", "uint:41"}, {setter.key, "wide:"}}));
  }
  // The URL and the reference URL share their key and differ by message type.
  EXPECT_EQ(service.RequestsOfType(262).size(), 2u);
  EXPECT_EQ(service.RequestsOfType(264).size(), 2u);
}

TEST_F(Level2Requests, SetterRetriesWhileBusyAndPassesServiceCodesOn) {
  service.Script(msg::kSetRequestMethod, {Reply::Busy(), Reply::Busy(), Reply::Return(rc::kInvalidHandle)});
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(PalvonAuthManager_SetRequestMethod(kHandle, L"PUT"), rc::kInvalidHandle);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  const auto sent = service.RequestsOfType(msg::kSetRequestMethod);
  ASSERT_EQ(sent.size(), 3u);
  EXPECT_EQ(sent[0].raw, sent[2].raw);
  EXPECT_EQ(CountTrace(Level::kError, "Http request handle 41 is not valid."), 1u);
  // Busy replies are not complaints of their own outside the create call.
  EXPECT_EQ(CountTraceStartingWith("Unexpected result from IPC"), 0u);
  EXPECT_EQ(CountTrace(Level::kMessage,
                       "[-] virtual PalvonAuthManagerSDK::AMResult "
                       "PalvonAuthManagerSDK::LinuxAMImplementationV2::SetRequestMethod("
                       "PalvonAuthManagerSDK::AMHttpHandle, const AMChar*) : result = 65530"),
            1u);
  // Other codes are passed on without the handle message; no "return" counts as success.
  service.Script(msg::kSetRequestMethod, {Reply::Return(17), Reply::Empty()});
  EXPECT_EQ(PalvonAuthManager_SetRequestMethod(kHandle, L"GET"), 17u);
  EXPECT_EQ(PalvonAuthManager_SetRequestMethod(kHandle, L"GET"), 0u);
  EXPECT_EQ(CountTraceStartingWith("Http request handle"), 1u);
}

TEST_F(Level2Requests, NullArgumentsAreRejectedWithoutSending) {
  std::vector<std::pair<AMResult, std::string>> cases = {
      {PalvonAuthManager_CreateAMHttpRequest(7, nullptr), "CreateAMHttpRequest: failed because outHttpHandle is NULL!"},
      {PalvonAuthManager_SetRequestData(kHandle, nullptr, 5),
       "BadParameter : pBufferToSend is NULL and a non-zero number of bytes were specified!"},
      {PalvonAuthManager_SetRequestRoute(kHandle, nullptr), "SetRequestRoute: failed because gatewayInfo is NULL!"}};
  for (const auto& setter : kTextSetters) cases.emplace_back(setter.call(kHandle, nullptr), setter.nullMessage);
  for (const auto& [result, message] : cases) {
    EXPECT_EQ(result, rc::kBadParameter) << message;
    EXPECT_EQ(CountTrace(Level::kError, message), 1u);
  }
  EXPECT_EQ(SentSinceSetUp(), 0u);
  // The early returns write no exit line.
  for (const char* name : {"CreateAMHttpRequest", "SetRequestData"}) {
    EXPECT_EQ(CountTraceStartingWith(std::string("[-] virtual PalvonAuthManagerSDK::AMResult "
                                                 "PalvonAuthManagerSDK::LinuxAMImplementationV2::") +
                                     name),
              0u);
  }
}

// ---------------------------------------------------------------------------
// Number setters

TEST_F(Level2Requests, NumberSettersAcceptEveryValue) {
  for (const uint32_t value : {0u, 1u, 0xFFFFFFFFu}) {
    ASSERT_EQ(PalvonAuthManager_SetRequestAuthenticationFlags(kHandle, value), 0u);
    EXPECT_EQ(Describe(service.RequestsOfType(msg::kSetRequestAuthenticationFlags).back().message),
              (Described{{"httpHandle", "uint:41"}, {"authFlags", "uint:" + std::to_string(value)}}));
    ASSERT_EQ(PalvonAuthManager_SetRequestTimeoutSeconds(kHandle, value), 0u);
    EXPECT_EQ(Describe(service.RequestsOfType(msg::kSetRequestTimeoutSeconds).back().message),
              (Described{{"httpHandle", "uint:41"}, {"timeout", "uint:" + std::to_string(value)}}));
  }
  EXPECT_EQ(service.RequestsOfType(msg::kSetRequestAuthenticationFlags).size(), 3u);
  EXPECT_EQ(service.RequestsOfType(msg::kSetRequestTimeoutSeconds).size(), 3u);
}

// ---------------------------------------------------------------------------
// SetRequestData

TEST_F(Level2Requests, DataIsSentUnchangedAndWithoutBytesClearsTheBody) {
  ASSERT_EQ(PalvonAuthManager_SetRequestData(kHandle, nullptr, 0), 0u);
  const AMByte unused[1] = {1};
  ASSERT_EQ(PalvonAuthManager_SetRequestData(kHandle, unused, 0), 0u);
  const auto sent = service.RequestsOfType(msg::kSetRequestData);
  ASSERT_EQ(sent.size(), 2u);
  for (const auto& request : sent) {
    EXPECT_EQ(Describe(request.message), (Described{{"httpHandle", "uint:41"}, {"numBytes", "uint:0"}}));
  }

  // Bytes arrive unchanged, zeros included.
  const std::vector<uint8_t> small = {0x00, 0xFF, 'a', 0x00, 0x7F};
  ASSERT_EQ(PalvonAuthManager_SetRequestData(kHandle, small.data(), static_cast<AMUint>(small.size())), 0u);
  // Larger than a pipe's buffer, so the service reads while the library writes.
  std::vector<uint8_t> large(256 * 1024);
  for (size_t i = 0; i < large.size(); ++i) large[i] = static_cast<uint8_t>(i * 31 + i / 256);
  ASSERT_EQ(PalvonAuthManager_SetRequestData(kHandle, large.data(), static_cast<AMUint>(large.size())), 0u);

  const auto data = service.RequestsOfType(msg::kSetRequestData);
  ASSERT_EQ(data.size(), 4u);
  EXPECT_EQ(Describe(data[2].message),
            (Described{{"httpHandle", "uint:41"}, {"amByteData", "buffer:5"}, {"numBytes", "uint:5"}}));
  ASSERT_NE(data[2].message.FindBuffer(L"amByteData"), nullptr);
  EXPECT_EQ(data[2].message.FindBuffer(L"amByteData")->first, small);
  ASSERT_NE(data[3].message.FindBuffer(L"amByteData"), nullptr);
  EXPECT_EQ(data[3].message.FindBuffer(L"amByteData")->first, large);
  EXPECT_EQ(Describe(data[3].message).at("numBytes"), "uint:262144");
}

// ---------------------------------------------------------------------------
// SetRequestRoute

TEST_F(Level2Requests, RouteSendsNumbersAndOnlyTheTextsGiven) {
  const AM_GATEWAY_INFO gateway = {nullptr, nullptr, 3, 4, 99};
  ASSERT_EQ(PalvonAuthManager_SetRequestRoute(kHandle, &gateway), 0u);
  // The rewrite rule belongs to gateway discovery and never travels here.
  EXPECT_EQ(OnlyDescribed(msg::kSetRequestRoute),
            (Described{{"httpHandle", "uint:41"}, {"amGatewayEdition", "uint:3"}, {"amGatewayAuthType", "uint:4"}}));
  // Texts travel as wide strings.
  const AM_GATEWAY_INFO named = {L"Gateway \u00c5", L"https://gw.example/logon", 0, 0, 0};
  ASSERT_EQ(PalvonAuthManager_SetRequestRoute(kHandle, &named), 0u);
  EXPECT_EQ(Describe(service.RequestsOfType(msg::kSetRequestRoute).back().message),
            (Described{{"httpHandle", "uint:41"},
                       {"friendlyName", "wide:Gateway \u00c5"},
                       {"logonPointUrl", "wide:https://gw.example/logon"},
                       {"amGatewayEdition", "uint:0"},
                       {"amGatewayAuthType", "uint:0"}}));
}

// ---------------------------------------------------------------------------
// Certificate functions

TEST_F(Level2Requests, CertificateFunctionsAreNotImplementedAndSendNothing) {
  EXPECT_EQ(PalvonAuthManager_GetResponseServerCertificate(kHandle, nullptr), rc::kNotImplemented);
  EXPECT_EQ(PalvonAuthManager_GetServerCertificate(7, nullptr, nullptr, nullptr), rc::kNotImplemented);
  EXPECT_EQ(PalvonAuthManager_FreeCertificate(0), rc::kNotImplemented);
  EXPECT_EQ(PalvonAuthManager_DuplicateCertificate(0, nullptr), rc::kNotImplemented);
  // With real out-values they are not touched either.
  AMCertificate certificate = 77;
  AMUint flags = 88;
  EXPECT_EQ(PalvonAuthManager_GetServerCertificate(7, L"https://x.example/", &certificate, &flags),
            rc::kNotImplemented);
  EXPECT_EQ(PalvonAuthManager_DuplicateCertificate(5, &certificate), rc::kNotImplemented);
  EXPECT_EQ(PalvonAuthManager_GetResponseServerCertificate(kHandle, &certificate), rc::kNotImplemented);
  EXPECT_EQ(certificate, 77u);
  EXPECT_EQ(flags, 88u);

  EXPECT_EQ(SentSinceSetUp(), 0u);
  EXPECT_EQ(CountTrace(Level::kError, "Function not implemented"), 7u);
  EXPECT_EQ(CountTraceStartingWith("[+] virtual PalvonAuthManagerSDK::AMResult "
                                   "PalvonAuthManagerSDK::LinuxAMImplementationV2::FreeCertificate("),
            1u);
  // No exit line for any of them.
  for (const auto& line : ReadTrace()) {
    EXPECT_EQ(line.text.find("Certificate(") != std::string::npos && line.text.rfind("[-]", 0) == 0, false)
        << line.text;
  }
}

// ---------------------------------------------------------------------------
// Export frame of level 2

// Every level-2 export, called with harmless arguments.
std::vector<std::pair<const char*, std::function<AMResult()>>> EveryLevel2Export() {
  static AMUint number = 0;
  static AMChar* text = nullptr;
  static AMChar** headers = nullptr;
  static AMCertificate certificate = 0;
  static AMByte buffer[4];
  static char arg0[] = "x";
  static AMUTF8Char* args[] = {arg0, nullptr};
  static const AM_GATEWAY_INFO gateway = {nullptr, nullptr, 0, 0, 0};
  return {
      {"CreateAMHttpRequest", [] { return PalvonAuthManager_CreateAMHttpRequest(1, &number); }},
      {"SetRequestMethod", [] { return PalvonAuthManager_SetRequestMethod(1, L"GET"); }},
      {"SetRequestUrl", [] { return PalvonAuthManager_SetRequestUrl(1, L"u"); }},
      {"SetRequestReferenceUrl", [] { return PalvonAuthManager_SetRequestReferenceUrl(1, L"u"); }},
      {"SetRequestAuthenticationFlags", [] { return PalvonAuthManager_SetRequestAuthenticationFlags(1, 0); }},
      {"SetRequestTimeoutSeconds", [] { return PalvonAuthManager_SetRequestTimeoutSeconds(1, 0); }},
      {"SetRequestUserAgentSuffix", [] { return PalvonAuthManager_SetRequestUserAgentSuffix(1, L"s"); }},
      {"SetRequestRoute", [] { return PalvonAuthManager_SetRequestRoute(1, &gateway); }},
      {"AddRequestHeader", [] { return PalvonAuthManager_AddRequestHeader(1, L"h: v"); }},
      {"SetRequestData", [] { return PalvonAuthManager_SetRequestData(1, buffer, 4); }},
      {"SendRequestAndReceiveResponse", [] { return PalvonAuthManager_SendRequestAndReceiveResponse(1); }},
      {"GetResponseStatusCode", [] { return PalvonAuthManager_GetResponseStatusCode(1, &number); }},
      {"GetResponseReasonPhrase", [] { return PalvonAuthManager_GetResponseReasonPhrase(1, &text); }},
      {"GetResponseHeaders", [] { return PalvonAuthManager_GetResponseHeaders(1, &headers); }},
      {"GetResponseServerCertificate", [] { return PalvonAuthManager_GetResponseServerCertificate(1, &certificate); }},
      {"GetResponseTrustFailureFlags", [] { return PalvonAuthManager_GetResponseTrustFailureFlags(1, &number); }},
      {"GetServerCertificate", [] { return PalvonAuthManager_GetServerCertificate(1, L"u", &certificate, &number); }},
      {"FreeCertificate", [] { return PalvonAuthManager_FreeCertificate(1); }},
      {"DuplicateCertificate", [] { return PalvonAuthManager_DuplicateCertificate(1, &certificate); }},
      {"ReadResponseBodyStream", [] { return PalvonAuthManager_ReadResponseBodyStream(1, buffer, 4, &number); }},
      {"DestroyAMHttpRequest", [] { return PalvonAuthManager_DestroyAMHttpRequest(1); }},
      {"LaunchRZPFile", [] { return PalvonAuthManager_LaunchRZPFile("u", args, &number); }},
  };
}

TEST(Level2Frame, EveryExportAnswersNotInitialisedBeforeInitialise) {
  TestService service;
  for (const auto& [name, call] : EveryLevel2Export()) EXPECT_EQ(call(), rc::kNotInitialized) << name;
  EXPECT_EQ(service.RequestCount(), 0u);
  // Releasing a header array needs no service.
  EXPECT_EQ(PalvonAuthManager_FreeResponseHeaders(nullptr), 0u);
}

TEST(Level2Frame, EveryExportAnswersNotImplementedAtLevelOneWithoutSending) {
  TestService service;
  service.SetVersion(1);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  AMUint level = 0;
  ASSERT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  ASSERT_EQ(level, 1u);
  const size_t before = service.RequestCount();
  for (const auto& [name, call] : EveryLevel2Export()) EXPECT_EQ(call(), rc::kNotImplemented) << name;
  EXPECT_EQ(service.RequestCount(), before);
  EXPECT_EQ(PalvonAuthManager_FreeResponseHeaders(nullptr), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Level2Frame, ServiceAboveLevelTwoStillGivesLevelTwo) {
  TestService service;
  service.SetVersion(5);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  AMUint level = 0;
  ASSERT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  EXPECT_EQ(level, 2u);
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(1), 0u);
  EXPECT_EQ(service.RequestsOfType(msg::kSendRequestAndReceiveResponse).size(), 1u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

}  // namespace
