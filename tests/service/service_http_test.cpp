// API level 2 against the real palvonauthd: HTTP requests performed by the
// service (libcurl) against a loopback HTTP server started by the test.
#include <gtest/gtest.h>
#include <httplib.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <string>

#include "PalvonAuthManager.h"
#include "service/ServiceClient.h"
#include "service/ServiceHarness.h"
#include "support/TestService.h"

using namespace PalvonAuthManagerSDK;
using pam_test::Contains;
using pam_test::Daemon;
using pam_test::Take;
using pam_test::TakeHeaders;

namespace {

constexpr AMResult kConnectFailed = 0x8001;
constexpr AMResult kTimedOut = 0x8002;
constexpr AMResult kNoResponse = 0x8004;

std::string Text(const std::vector<unsigned char>& bytes) { return std::string(bytes.begin(), bytes.end()); }

class Http : public ::testing::Test {
 protected:
  void SetUp() override {
    body_ = pam_test::PatternBytes(1 << 20, 7);
    auto& routes = server_.Routes();
    routes.Get("/data", [this](const httplib::Request& request, httplib::Response& response) {
      response.set_header("X-Test", "yes");
      response.set_header("X-Echo-Client", request.get_header_value("X-Client"));
      response.set_header("X-Echo-Agent", request.get_header_value("User-Agent"));
      response.set_header("X-Echo-Referer", request.get_header_value("Referer"));
      response.set_content(Text(body_), "application/octet-stream");
    });
    routes.Post("/echo", [this](const httplib::Request& request, httplib::Response& response) {
      {
        std::lock_guard<std::mutex> lock(receivedLock_);
        received_ = request.body;
      }
      response.status = 201;
      response.set_header("X-Body-Length", std::to_string(request.body.size()));
      response.set_header("X-Echo-Type", request.get_header_value("Content-Type"));
      response.set_header("X-Echo-Client", request.get_header_value("X-Client"));
      std::string reversed(request.body.rbegin(), request.body.rend());
      response.set_content(reversed, "application/octet-stream");
    });
    routes.Get("/hold", [this](const httplib::Request&, httplib::Response& response) {
      release_.WaitOpen(std::chrono::seconds(10));
      response.set_content("late", "text/plain");
    });
    routes.Get("/big", [](const httplib::Request&, httplib::Response& response) {
      response.set_content(std::string((16u << 20) + 5, 'b'), "application/octet-stream");
    });
    server_.Start();
  }

  void TearDown() override {
    release_.Open();
    if (IsInitialised()) {
      EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
    }
  }

  void StartService(std::vector<std::string> args = {}) {
    daemon_ = std::make_unique<Daemon>(std::move(args));
    ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
    ASSERT_EQ(PalvonAuthManager_CreateConnection(L"http", nullptr, nullptr, &connection_), 0u);
  }

  AMHttpHandle NewRequest(const wchar_t* method, const std::wstring& url) {
    AMHttpHandle handle = 0;
    EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(connection_, &handle), 0u);
    EXPECT_NE(handle, 0u);
    EXPECT_EQ(PalvonAuthManager_SetRequestMethod(handle, method), 0u);
    EXPECT_EQ(PalvonAuthManager_SetRequestUrl(handle, url.c_str()), 0u);
    return handle;
  }

  std::vector<unsigned char> ReadBody(AMHttpHandle handle, AMUint max, std::vector<AMUint>* sizes = nullptr) {
    std::vector<unsigned char> body;
    std::vector<unsigned char> buffer(max);
    for (int guard = 0; guard < 100000; ++guard) {
      AMUint got = 12345;
      const AMResult result = PalvonAuthManager_ReadResponseBodyStream(handle, buffer.data(), max, &got);
      if (result != 0) {
        ADD_FAILURE() << "ReadResponseBodyStream returned " << result;
        break;
      }
      if (got == 0) break;
      if (sizes != nullptr) sizes->push_back(got);
      body.insert(body.end(), buffer.begin(), buffer.begin() + got);
    }
    return body;
  }

  // Status and reason phrase of the response, "<error N>" when there is none.
  std::string StatusLine(AMHttpHandle handle) {
    AMUint status = 0;
    AMChar* reason = nullptr;
    const AMResult result = PalvonAuthManager_GetResponseStatusCode(handle, &status);
    if (result != 0) return "<error " + std::to_string(result) + ">";
    EXPECT_EQ(PalvonAuthManager_GetResponseReasonPhrase(handle, &reason), 0u);
    return std::to_string(status) + " " + pam_test::Utf8(Take(reason));
  }
  std::vector<std::wstring> Headers(AMHttpHandle handle) {
    AMChar** headers = nullptr;
    EXPECT_EQ(PalvonAuthManager_GetResponseHeaders(handle, &headers), 0u);
    return TakeHeaders(headers);
  }

  std::string Received() {
    std::lock_guard<std::mutex> lock(receivedLock_);
    return received_;
  }

  // What the handlers use is declared before the server, so that the
  // server's threads are gone before it is destroyed.
  pam_test::Gate release_;
  std::vector<unsigned char> body_;
  std::mutex receivedLock_;
  std::string received_;
  pam_test::LoopbackHttp server_;
  std::unique_ptr<Daemon> daemon_;
  ConnectionHandle connection_ = 0;
};

}  // namespace

TEST_F(Http, GetWithHeadersDeliversStatusReasonHeadersAndTheWholeBodyInChunks) {
  StartService();
  const AMHttpHandle handle = NewRequest(L"GET", server_.Url("/data"));
  EXPECT_EQ(PalvonAuthManager_AddRequestHeader(handle, L"X-Client: abc 1"), 0u);
  EXPECT_EQ(PalvonAuthManager_SetRequestUserAgentSuffix(handle, L"TestApp/2"), 0u);
  EXPECT_EQ(PalvonAuthManager_SetRequestReferenceUrl(handle, L"https://ref.example.com/page"), 0u);
  EXPECT_EQ(PalvonAuthManager_SetRequestTimeoutSeconds(handle, 30), 0u);
  EXPECT_EQ(PalvonAuthManager_SetRequestAuthenticationFlags(handle, 3), 0u);
  ASSERT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), 0u);

  EXPECT_EQ(StatusLine(handle), "200 OK");
  const auto lines = Headers(handle);
  EXPECT_TRUE(Contains(lines, L"X-Test: yes"));
  EXPECT_TRUE(Contains(lines, L"X-Echo-Client: abc 1"));
  EXPECT_TRUE(Contains(lines, L"X-Echo-Agent: palvonauthd/1.0 TestApp/2"));
  EXPECT_TRUE(Contains(lines, L"X-Echo-Referer: https://ref.example.com/page"));
  EXPECT_TRUE(Contains(lines, L"Content-Length: 1048576"));
  AMUint trust = 77;
  EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(handle, &trust), 0u);
  EXPECT_EQ(trust, 0u);

  // Chunks never exceed the caller's maximum and add up to the exact body.
  std::vector<AMUint> sizes;
  const auto body = ReadBody(handle, 300000, &sizes);
  EXPECT_EQ(body, body_);
  ASSERT_EQ(sizes.size(), 4u);
  EXPECT_EQ(sizes[0], 300000u);
  EXPECT_EQ(sizes[3], (1u << 20) - 900000u);
  // The end stays the end.
  unsigned char untouched = 0xAB;
  AMUint got = 5;
  EXPECT_EQ(PalvonAuthManager_ReadResponseBodyStream(handle, &untouched, 1, &got), 0u);
  EXPECT_EQ(got, 0u);
  EXPECT_EQ(untouched, 0xAB);
  EXPECT_EQ(PalvonAuthManager_DestroyAMHttpRequest(handle), 0u);
}

TEST_F(Http, PostSendsTheBodyAndHeadersByteForByte) {
  StartService();
  const AMHttpHandle handle = NewRequest(L"POST", server_.Url("/echo"));
  EXPECT_EQ(PalvonAuthManager_AddRequestHeader(handle, L"Content-Type: application/x-test"), 0u);
  EXPECT_EQ(PalvonAuthManager_AddRequestHeader(handle, L"X-Client: poster"), 0u);
  ASSERT_EQ(PalvonAuthManager_SetRequestData(handle, body_.data(), static_cast<AMUint>(body_.size())), 0u);
  ASSERT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), 0u);
  EXPECT_EQ(Received(), Text(body_));

  EXPECT_EQ(StatusLine(handle), "201 Created");
  const auto lines = Headers(handle);
  EXPECT_TRUE(Contains(lines, L"X-Body-Length: 1048576"));
  EXPECT_TRUE(Contains(lines, L"X-Echo-Type: application/x-test"));
  EXPECT_TRUE(Contains(lines, L"X-Echo-Client: poster"));
  auto expected = body_;
  std::reverse(expected.begin(), expected.end());
  EXPECT_EQ(ReadBody(handle, 1 << 20), expected);

  // Sending again repeats the request with the same body; clearing the body sends none.
  ASSERT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), 0u);
  EXPECT_EQ(Received().size(), body_.size());
  ASSERT_EQ(PalvonAuthManager_SetRequestData(handle, nullptr, 0), 0u);
  ASSERT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), 0u);
  EXPECT_TRUE(Received().empty());
  EXPECT_TRUE(Contains(Headers(handle), L"X-Body-Length: 0"));
}

TEST_F(Http, UnreachableHostFailsTheSendAndLeavesNoResponse) {
  StartService();
  pam_test::RefusingPort closed;
  const std::string url = "http://127.0.0.1:" + std::to_string(closed.Port()) + "/";
  const AMHttpHandle handle = NewRequest(L"GET", std::wstring(url.begin(), url.end()));
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), kConnectFailed);
  AMUint status = 77;
  EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(handle, &status), kNoResponse);
  EXPECT_EQ(status, 0u);
  AMUint got = 77;
  unsigned char byte = 0;
  EXPECT_EQ(PalvonAuthManager_ReadResponseBodyStream(handle, &byte, 1, &got), kNoResponse);
  AMUint trust = 77;
  EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(handle, &trust), 0u);
  EXPECT_EQ(trust, 0u);
  EXPECT_TRUE(daemon_->WaitForLog("failed with 32769")) << daemon_->LogText();

  // The same handle works once it points somewhere reachable, and a
  // missing page is a response, not a failure.
  EXPECT_EQ(PalvonAuthManager_SetRequestUrl(handle, server_.Url("/missing").c_str()), 0u);
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), 0u);
  EXPECT_EQ(StatusLine(handle), "404 Not Found");
}

TEST_F(Http, RequestTimeOutEndsTheSend) {
  StartService();
  const AMHttpHandle handle = NewRequest(L"GET", server_.Url("/hold"));
  EXPECT_EQ(PalvonAuthManager_SetRequestTimeoutSeconds(handle, 1), 0u);
  const auto started = std::chrono::steady_clock::now();
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), kTimedOut);
  EXPECT_GE(std::chrono::steady_clock::now() - started, std::chrono::milliseconds(900));
}

TEST_F(Http, HandlesAreCheckedAndDieWithTheirConnection) {
  StartService();
  AMHttpHandle handle = NewRequest(L"GET", server_.Url("/data"));
  // Reading before sending.
  EXPECT_EQ(StatusLine(handle), "<error " + std::to_string(kNoResponse) + ">");
  AMUint trust = 0;
  EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(handle, &trust), kNoResponse);
  // Malformed settings.
  EXPECT_EQ(PalvonAuthManager_AddRequestHeader(handle, L"no colon here"), 0xFFFBu);
  EXPECT_EQ(PalvonAuthManager_AddRequestHeader(handle, L"X-Bad: a\r\nInjected: b"), 0xFFFBu);
  EXPECT_EQ(PalvonAuthManager_SetRequestMethod(handle, L"GE T"), 0xFFFBu);
  AM_GATEWAY_INFO gateway = {L"GW", nullptr, 1, 2, 0};
  EXPECT_EQ(PalvonAuthManager_SetRequestRoute(handle, &gateway), 0u);

  ASSERT_EQ(PalvonAuthManager_DestroyAMHttpRequest(handle), 0u);
  unsigned char byte = 0;
  AMUint got = 0;
  AMChar* text = nullptr;
  AMChar** headers = nullptr;
  EXPECT_EQ(PalvonAuthManager_DestroyAMHttpRequest(handle), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetRequestUrl(handle, L"http://127.0.0.1/"), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetRequestMethod(handle, L"GET"), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetRequestReferenceUrl(handle, L"http://127.0.0.1/"), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_AddRequestHeader(handle, L"A: b"), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetRequestAuthenticationFlags(handle, 1), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetRequestUserAgentSuffix(handle, L"x"), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetRequestData(handle, &byte, 1), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetRequestRoute(handle, &gateway), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetRequestTimeoutSeconds(handle, 1), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(handle, &got), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_GetResponseReasonPhrase(handle, &text), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_GetResponseHeaders(handle, &headers), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_GetResponseTrustFailureFlags(handle, &got), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_ReadResponseBodyStream(handle, &byte, 1, &got), 0xFFFAu);

  // Handles of a destroyed connection are gone too.
  handle = NewRequest(L"GET", server_.Url("/data"));
  ASSERT_EQ(PalvonAuthManager_DestroyConnection(connection_), 0u);
  EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), 0xFFFAu);
}

TEST_F(Http, BodyChunksAreCappedAt16MiBAndTheConfiguredUserAgentIsUsed) {
  StartService({"--user-agent", "Custom/9"});
  const AMHttpHandle handle = NewRequest(L"GET", server_.Url("/big"));
  ASSERT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(handle), 0u);
  // A zero maximum reads nothing and consumes nothing.
  AMUint got = 5;
  EXPECT_EQ(PalvonAuthManager_ReadResponseBodyStream(handle, nullptr, 0, &got), 0u);
  EXPECT_EQ(got, 0u);
  std::vector<AMUint> sizes;
  const auto body = ReadBody(handle, 32u << 20, &sizes);
  EXPECT_EQ(body.size(), (16u << 20) + 5);
  ASSERT_EQ(sizes.size(), 2u);
  EXPECT_EQ(sizes[0], 16u << 20);
  EXPECT_EQ(sizes[1], 5u);

  const AMHttpHandle data = NewRequest(L"GET", server_.Url("/data"));
  ASSERT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(data), 0u);
  EXPECT_TRUE(Contains(Headers(data), L"X-Echo-Agent: Custom/9"));
}
