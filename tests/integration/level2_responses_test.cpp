// API level 2: sending a request and reading its response, through the
// exported functions against the scriptable test service.
#include <chrono>
#include <cstring>
#include <functional>

#include "level2_support.h"

using namespace PalvonAuthManagerSDK;
using namespace l2test;
using Described = std::map<std::string, std::string>;

namespace {

class Level2Responses : public Level2Test {};

constexpr AMHttpHandle kHandle = 9;
const Described kHandleOnly = {{"httpHandle", "uint:9"}};

TEST_F(Level2Responses, SendCarriesOnlyTheHandleAndPassesTheResultOn) {
  service.Script(msg::kSendRequestAndReceiveResponse, {Reply::Return(0), Reply::Return(12345)});
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(kHandle), 0u);
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(kHandle), 12345u);
  const auto sent = service.RequestsOfType(msg::kSendRequestAndReceiveResponse);
  ASSERT_EQ(sent.size(), 2u);
  EXPECT_EQ(Describe(sent[0].message), kHandleOnly);
}

TEST_F(Level2Responses, NullArgumentsAreRejectedBeforeSending) {
  AMByte buffer[8];
  AMUint read = 3;
  const std::pair<AMResult, const char*> cases[] = {
      {PalvonAuthManager_GetResponseStatusCode(kHandle, nullptr),
       "GetResponseStatusCode: failed because httpStatusCode is NULL!"},
      {PalvonAuthManager_GetResponseReasonPhrase(kHandle, nullptr),
       "GetResponseReasonPhrase: failed because outReasonPhrase is NULL!"},
      {PalvonAuthManager_GetResponseHeaders(kHandle, nullptr), "GetResponseHeaders: failed because headers is NULL!"},
      {PalvonAuthManager_GetResponseTrustFailureFlags(kHandle, nullptr),
       "GetResponseTrustFailureFlags: failed because outTrustFailureFlags is NULL!"},
      {PalvonAuthManager_ReadResponseBodyStream(kHandle, buffer, 8, nullptr),
       "ReadResponseBodyStream: failed because numBytesRead is NULL!"},
      {PalvonAuthManager_ReadResponseBodyStream(kHandle, nullptr, 5, &read),
       "ReadResponseBodyStream: failed because buffer is NULL!"},
  };
  for (const auto& [result, message] : cases) {
    EXPECT_EQ(result, rc::kBadParameter) << message;
    EXPECT_EQ(CountTrace(Level::kError, message), 1u);
  }
  EXPECT_EQ(read, 3u);
  EXPECT_EQ(SentSinceSetUp(), 0u);
}

// ---------------------------------------------------------------------------
// Status code

TEST_F(Level2Responses, StatusCodeIsStoredAndTracedAndZeroWhenMissing) {
  service.Script(msg::kGetResponseStatusCode, {Reply::Return(0).UInt(L"httpStatus", 404), Reply::Return(0)});
  AMUint status = 1;
  EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(kHandle, &status), 0u);
  EXPECT_EQ(status, 404u);
  EXPECT_EQ(Describe(service.RequestsOfType(msg::kGetResponseStatusCode)[0].message), kHandleOnly);
  EXPECT_EQ(CountTrace(Level::kMessage, "GetResponseStatusCode completed for handle 9 with result 404"), 1u);
  status = 1;
  EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(kHandle, &status), 0u);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(CountTrace(Level::kMessage, "GetResponseStatusCode completed for handle 9 with result 0"), 1u);
}

TEST_F(Level2Responses, StatusCodeOfUnknownHandleStaysZeroAfterBusyRetries) {
  service.Script(msg::kGetResponseStatusCode,
                 {Reply::Busy(), Reply::Busy(), Reply::Return(rc::kInvalidHandle).UInt(L"httpStatus", 200)});
  AMUint status = 1;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(kHandle, &status), rc::kInvalidHandle);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(service.RequestsOfType(msg::kGetResponseStatusCode).size(), 3u);
  EXPECT_EQ(CountTrace(Level::kError, "Http request handle 9 is not valid."), 1u);
  EXPECT_EQ(CountTraceStartingWith("GetResponseStatusCode completed"), 0u);
}

// ---------------------------------------------------------------------------
// Reason phrase

TEST_F(Level2Responses, ReasonPhraseIsTheCallersOwnCopyOrNull) {
  service.Script(msg::kGetResponseReasonPhrase, {Reply::Return(0).Wide(L"httpResponse", L"Non-Authoritative \u00dc"),
                                                 Reply::Return(0).Wide(L"httpResponse", L"Gone")});
  AMChar* first = nullptr;
  AMChar* second = nullptr;
  ASSERT_EQ(PalvonAuthManager_GetResponseReasonPhrase(kHandle, &first), 0u);
  ASSERT_EQ(PalvonAuthManager_GetResponseReasonPhrase(kHandle, &second), 0u);
  ASSERT_NE(first, nullptr);
  ASSERT_NE(second, nullptr);
  // The first text outlives its reply and the call after it.
  EXPECT_EQ(std::wstring(first), L"Non-Authoritative \u00dc");
  EXPECT_EQ(std::wstring(second), L"Gone");
  EXPECT_EQ(Describe(service.RequestsOfType(msg::kGetResponseReasonPhrase)[0].message), kHandleOnly);
  EXPECT_EQ(PalvonAuthManager_FreeString(first), 0u);
  EXPECT_EQ(PalvonAuthManager_FreeString(second), 0u);

  // Missing from the reply, or a failure: null.
  service.Script(msg::kGetResponseReasonPhrase,
                 {Reply::Return(0), Reply::Return(rc::kInvalidHandle).Wide(L"httpResponse", L"OK")});
  AMChar placeholder[] = L"caller";
  AMChar* phrase = placeholder;
  EXPECT_EQ(PalvonAuthManager_GetResponseReasonPhrase(kHandle, &phrase), 0u);
  EXPECT_EQ(phrase, nullptr);
  phrase = placeholder;
  EXPECT_EQ(PalvonAuthManager_GetResponseReasonPhrase(kHandle, &phrase), rc::kInvalidHandle);
  EXPECT_EQ(phrase, nullptr);
  EXPECT_EQ(CountTrace(Level::kError, "Http request handle 9 is not valid."), 1u);
}

// ---------------------------------------------------------------------------
// Headers

Reply HeadersReply(uint32_t count, uint32_t skip = 0xFFFFFFFFu) {
  Reply reply = Reply::Return(0).UInt(L"numHeaders", count);
  for (uint32_t i = 0; i < count; ++i) {
    if (i != skip) reply.Wide((L"Attrib" + std::to_wstring(i)).c_str(), L"Header-" + std::to_wstring(i) + L": v");
  }
  return reply;
}

TEST_F(Level2Responses, HeadersFollowDecimalIndexOrderAndAreNullTerminated) {
  // A zero count, a missing count, then eleven entries: the reply's keys sort
  // Attrib0, Attrib1, Attrib10, Attrib2...; the array follows the index.
  service.Script(msg::kGetResponseHeaders,
                 {Reply::Return(0).UInt(L"numHeaders", 0), Reply::Return(0), HeadersReply(11)});
  for (const size_t count : {0u, 0u, 11u}) {
    AMChar** headers = nullptr;
    ASSERT_EQ(PalvonAuthManager_GetResponseHeaders(kHandle, &headers), 0u);
    ASSERT_NE(headers, nullptr);
    for (size_t i = 0; i < count; ++i) {
      ASSERT_NE(headers[i], nullptr) << i;
      EXPECT_EQ(std::wstring(headers[i]), L"Header-" + std::to_wstring(i) + L": v");
    }
    EXPECT_EQ(headers[count], nullptr);
    EXPECT_EQ(PalvonAuthManager_FreeResponseHeaders(headers), 0u);
  }
  EXPECT_EQ(Describe(service.RequestsOfType(msg::kGetResponseHeaders)[0].message), kHandleOnly);
}

TEST_F(Level2Responses, HeadersWithAMissingEntryOrFailureCodeFail) {
  // As many texts as headers counted, but Attrib1 is not among them: nothing
  // is handed out, and the entry already copied is released.
  service.Script(msg::kGetResponseHeaders, {HeadersReply(3, 1).Wide(L"Attrib3", L"X: z")});
  AMChar* sentinel[1] = {nullptr};
  AMChar** headers = sentinel;
  EXPECT_EQ(PalvonAuthManager_GetResponseHeaders(kHandle, &headers), rc::kCommunicationFailure);
  EXPECT_EQ(headers, sentinel);
  EXPECT_EQ(CountTrace(Level::kMessage, "Unexpected exception caught for http handle 9."), 1u);
  EXPECT_EQ(CountTrace(Level::kError, "Unexpected exception caught for http handle 9."), 0u);

  // A failure code leaves the caller's pointer alone.
  service.Script(msg::kGetResponseHeaders, {Reply::Return(rc::kInvalidHandle).UInt(L"numHeaders", 2)});
  EXPECT_EQ(PalvonAuthManager_GetResponseHeaders(kHandle, &headers), rc::kInvalidHandle);
  EXPECT_EQ(headers, sentinel);
  EXPECT_EQ(CountTrace(Level::kError, "Http request handle 9 is not valid."), 1u);
}

// Replies that announce more than they hold, or lack or mistype a value the
// operation hands out: 65528, and the caller's variables keep their values.
TEST_F(Level2Responses, HostileRepliesFailAndHandOutNothing) {
  using Call = std::function<AMResult(bool& untouched)>;
  const Call headers = [](bool& untouched) {
    AMChar* unset[1] = {nullptr};
    AMChar** out = unset;
    const AMResult result = PalvonAuthManager_GetResponseHeaders(kHandle, &out);
    untouched = out == unset;
    if (!untouched) (void)PalvonAuthManager_FreeResponseHeaders(out);
    return result;
  };
  const Call vpn = [](bool& untouched) {
    AM_VPN_AUTHORIZATION_INFO* info = nullptr;
    const AMResult result = PalvonAuthManager_GetVpnAuthorizationInfo(5, &info);
    untouched = info == nullptr;
    (void)PalvonAuthManager_FreeVpnAuthorizationInfo(info);
    return result;
  };
  const Call server = [](bool& untouched) {
    AM_SERVER_INFO* info = nullptr;
    const AMResult result = PalvonAuthManager_DetermineServerType(3, L"https://gw/", &info);
    untouched = info == nullptr;
    (void)PalvonAuthManager_FreeServerInfo(info);
    return result;
  };
  const Call trampoline = [](bool& untouched) {
    AMChar* url = nullptr;
    AMAuthenticationResult authResult = 77;
    const AMResult result = PalvonAuthManager_GenerateTrampolineUrl(3, L"https://s/", 0, nullptr, &url, &authResult);
    untouched = url == nullptr && authResult == 77;
    (void)PalvonAuthManager_FreeString(url);
    return result;
  };
  const Reply gateway = Reply::Return(0).UInt(L"serverType", 2).UInt(L"amGatewayEdition", 4);
  const struct {
    const char* name;
    uint32_t type;
    Reply reply;
    const Call& call;
  } cases[] = {
      {"count of 100,000,000 in a small reply", msg::kGetResponseHeaders,
       Reply::Return(0).UInt(L"numHeaders", 100000000), headers},
      {"largest count", msg::kGetResponseHeaders, HeadersReply(2).UInt(L"numHeaders", 0xFFFFFFFFu), headers},
      {"one header more than sent", msg::kGetResponseHeaders, HeadersReply(2).UInt(L"numHeaders", 3), headers},
      {"header of the wrong type", msg::kGetResponseHeaders, HeadersReply(2, 1).Narrow(L"Attrib1", "X: y"), headers},
      {"authorization without logon point", msg::kGetVpnAuthorizationInfo,
       Reply::Return(0).UInt(L"amAuthenticationResult", 2).Wide(L"vpnauthorizationstr", L"a"), vpn},
      {"authorization of the wrong type", msg::kGetVpnAuthorizationInfo,
       Reply::Return(0).UInt(L"vpnauthorizationstr", 1).Wide(L"vpnsessionlogonpointurl", L"u"), vpn},
      {"gateway without logon point", msg::kDetermineServerType, Reply(gateway).Wide(L"friendlyName", L"gw"), server},
      {"gateway name of the wrong type", msg::kDetermineServerType,
       Reply(gateway).Buffer(L"friendlyName", {'g'}).Wide(L"logonPointUrl", L"u"), server},
      {"trampoline URL of the wrong type", msg::kGenerateTrampolineUrl,
       Reply::Return(0).Narrow(L"trampolineUrl", "u").UInt(L"amAuthenticationResult", 1), trampoline},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    service.Script(c.type, {c.reply});
    bool untouched = false;
    EXPECT_EQ(c.call(untouched), rc::kCommunicationFailure);
    EXPECT_TRUE(untouched);
  }
}

TEST_F(Level2Responses, HeaderArrayCanBeReleasedAfterUninitialise) {
  service.Script(msg::kGetResponseHeaders, {HeadersReply(2)});
  AMChar** headers = nullptr;
  ASSERT_EQ(PalvonAuthManager_GetResponseHeaders(kHandle, &headers), 0u);
  ASSERT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  const size_t sent = service.RequestCount();
  EXPECT_EQ(PalvonAuthManager_FreeResponseHeaders(headers), 0u);
  EXPECT_EQ(PalvonAuthManager_FreeResponseHeaders(nullptr), 0u);
  EXPECT_EQ(service.RequestCount(), sent);
}

// ---------------------------------------------------------------------------
// Trust-failure flags

TEST_F(Level2Responses, TrustFailureFlagsAreClearedThenStored) {
  service.Script(msg::kGetResponseTrustFailureFlags,
                 {Reply::Return(0).UInt(L"trustFailureFlags", 0x80000011u), Reply::Return(0),
                  Reply::Return(rc::kInvalidHandle).UInt(L"trustFailureFlags", 5)});
  AMUint flags = 1;
  EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(kHandle, &flags), 0u);
  EXPECT_EQ(flags, 0x80000011u);
  flags = 1;
  EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(kHandle, &flags), 0u);
  EXPECT_EQ(flags, 0u);
  flags = 1;
  EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(kHandle, &flags), rc::kInvalidHandle);
  EXPECT_EQ(flags, 0u);
  EXPECT_EQ(Describe(service.RequestsOfType(msg::kGetResponseTrustFailureFlags)[0].message), kHandleOnly);
  EXPECT_EQ(service.RequestsOfType(msg::kGetResponseTrustFailureFlags)[0].type, 288u);
}

// ---------------------------------------------------------------------------
// Body

std::vector<uint8_t> Pattern(size_t size, uint8_t first) {
  std::vector<uint8_t> bytes(size);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<uint8_t>(first + i * 13 + i / 251);
  return bytes;
}

TEST_F(Level2Responses, BodyIsReadInChunksUntilAnEmptyRead) {
  const auto first = Bytes("Hello, ");
  const auto large = Pattern(100 * 1024, 3);  // must arrive whole, though written in pieces
  const auto last = Bytes("world!\n");
  service.Script(msg::kReadResponseBodyStream, {Reply::Return(0).Buffer(L"amByteData", first),
                                                Reply::Return(0).Buffer(L"amByteData", large).InPieces(4096),
                                                Reply::Return(0).Buffer(L"amByteData", last), Reply::Return(0)});
  constexpr AMUint kMax = 128 * 1024;
  std::vector<AMByte> buffer(kMax);
  std::vector<uint8_t> body;
  std::vector<AMUint> counts;
  for (int guard = 0; guard < 10; ++guard) {
    AMUint read = 12345;
    ASSERT_EQ(PalvonAuthManager_ReadResponseBodyStream(kHandle, buffer.data(), kMax, &read), 0u);
    counts.push_back(read);
    if (read == 0) break;
    body.insert(body.end(), buffer.begin(), buffer.begin() + read);
  }
  EXPECT_EQ(counts, (std::vector<AMUint>{7, 100 * 1024, 7, 0}));
  std::vector<uint8_t> expected = first;
  expected.insert(expected.end(), large.begin(), large.end());
  expected.insert(expected.end(), last.begin(), last.end());
  EXPECT_EQ(body, expected);

  const auto sent = service.RequestsOfType(msg::kReadResponseBodyStream);
  ASSERT_EQ(sent.size(), 4u);
  for (const auto& request : sent) {
    EXPECT_EQ(Describe(request.message),
              (Described{{"httpHandle", "uint:9"}, {"maxNumberOfBytesToRead", "uint:131072"}}));
  }
}

// A reply frame holding "return" 0 and an "amByteData" record of length 0.
std::vector<uint8_t> EmptyChunkFrame() {
  std::vector<uint8_t> frame(12, 0);
  auto record = [&frame](uint8_t type, const std::wstring& key, const std::vector<uint8_t>& value) {
    std::vector<uint8_t> header(136, 0);
    header[0] = type;
    for (size_t i = 0; i < key.size(); ++i) {
      const auto c = static_cast<uint32_t>(key[i]);
      std::memcpy(header.data() + 4 + 4 * i, &c, 4);
    }
    const auto length = static_cast<uint32_t>(value.size());
    std::memcpy(header.data() + 132, &length, 4);
    frame.insert(frame.end(), header.begin(), header.end());
    frame.insert(frame.end(), value.begin(), value.end());
  };
  record(1, L"amByteData", {});
  record(2, L"return", {0, 0, 0, 0});
  record(5, L"", {});
  const uint32_t type = msg::kReadResponseBodyStream;
  const auto pid = static_cast<uint32_t>(getpid());
  const auto body = static_cast<uint32_t>(frame.size() - 12);
  std::memcpy(frame.data(), &type, 4);
  std::memcpy(frame.data() + 4, &pid, 4);
  std::memcpy(frame.data() + 8, &body, 4);
  return frame;
}

TEST_F(Level2Responses, BodyAtItsEndOrOnFailureLeavesTheBufferUntouched) {
  // No "amByteData" at all, then an empty one.
  service.Script(msg::kReadResponseBodyStream, {Reply::Return(0), Reply::Raw(EmptyChunkFrame())});
  std::vector<AMByte> buffer(16, 0xAB);
  for (int i = 0; i < 2; ++i) {
    AMUint read = 99;
    EXPECT_EQ(PalvonAuthManager_ReadResponseBodyStream(kHandle, buffer.data(), 16, &read), 0u);
    EXPECT_EQ(read, 0u);
  }
  EXPECT_EQ(buffer, std::vector<AMByte>(16, 0xAB));

  // A failure code leaves the count and the buffer alone.
  service.Script(msg::kReadResponseBodyStream,
                 {Reply::Busy(), Reply::Return(rc::kInvalidHandle).Buffer(L"amByteData", Bytes("xyz"))});
  AMUint read = 3;
  EXPECT_EQ(PalvonAuthManager_ReadResponseBodyStream(kHandle, buffer.data(), 8, &read), rc::kInvalidHandle);
  EXPECT_EQ(read, 3u);
  EXPECT_EQ(buffer, std::vector<AMByte>(16, 0xAB));
  EXPECT_EQ(service.RequestsOfType(msg::kReadResponseBodyStream).size(), 4u);
  EXPECT_EQ(CountTrace(Level::kError, "Http request handle 9 is not valid."), 1u);
}

TEST_F(Level2Responses, BodyChunkIsBoundedByTheCallersMaximum) {
  const auto chunk = Pattern(64, 1);
  service.Script(msg::kReadResponseBodyStream, {Reply::Return(0).Buffer(L"amByteData", chunk)});
  std::vector<AMByte> buffer(64 + 32, 0xAB);
  AMUint read = 0;
  ASSERT_EQ(PalvonAuthManager_ReadResponseBodyStream(kHandle, buffer.data(), 64, &read), 0u);
  EXPECT_EQ(read, 64u);
  EXPECT_TRUE(std::equal(chunk.begin(), chunk.end(), buffer.begin()));
  EXPECT_EQ(std::vector<AMByte>(buffer.begin() + 64, buffer.end()), std::vector<AMByte>(32, 0xAB));

  // One byte over, and far over: nothing may land behind the caller's maximum.
  service.Script(msg::kReadResponseBodyStream, {Reply::Return(0).Buffer(L"amByteData", Pattern(65, 1)),
                                                Reply::Return(0).Buffer(L"amByteData", Pattern(4096, 2))});
  constexpr size_t kMax = 64;
  constexpr size_t kGuard = 8192;
  for (int i = 0; i < 2; ++i) {
    std::vector<AMByte> guarded(kMax + kGuard, 0xAB);
    read = 777;
    EXPECT_EQ(PalvonAuthManager_ReadResponseBodyStream(kHandle, guarded.data(), kMax, &read),
              rc::kCommunicationFailure);
    EXPECT_EQ(read, 777u);
    EXPECT_EQ(std::vector<AMByte>(guarded.begin() + kMax, guarded.end()), std::vector<AMByte>(kGuard, 0xAB));
  }
  EXPECT_EQ(CountTrace(Level::kError, "Unexpected exception caught for http handle 9."), 2u);

  // A zero maximum accepts a null buffer.
  read = 5;
  EXPECT_EQ(PalvonAuthManager_ReadResponseBodyStream(kHandle, nullptr, 0, &read), 0u);
  EXPECT_EQ(read, 0u);
  EXPECT_EQ(Describe(service.RequestsOfType(msg::kReadResponseBodyStream).back().message),
            (Described{{"httpHandle", "uint:9"}, {"maxNumberOfBytesToRead", "uint:0"}}));
}

}  // namespace
