// API level 2 end to end: whole HTTP exchanges through the exported functions
// against a test service that plays a small web server.
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "level2_support.h"

using namespace PalvonAuthManagerSDK;
using namespace l2test;

namespace {

/** What an application learns from one exchange. */
struct Exchange {
  AMResult failure = 0;  // first non-zero result, 0 when every call succeeded
  AMUint status = 0;
  std::wstring phrase;
  std::vector<std::wstring> headers;
  std::string body;
};

/** One whole exchange: create, set up, send, read everything, destroy. */
Exchange Perform(ConnectionHandle connection, const std::wstring& method, const std::wstring& url,
                 const std::string& requestBody, AMUint chunkSize) {
  Exchange out;
  auto check = [&out](AMResult result) {
    if (out.failure == 0 && result != 0) out.failure = result;
    return result == 0;
  };
  AMHttpHandle request = 0;
  if (!check(PalvonAuthManager_CreateAMHttpRequest(connection, &request))) return out;
  check(PalvonAuthManager_SetRequestMethod(request, method.c_str()));
  check(PalvonAuthManager_SetRequestUrl(request, url.c_str()));
  check(PalvonAuthManager_AddRequestHeader(request, L"Accept: text/plain"));
  check(PalvonAuthManager_AddRequestHeader(request, L"X-Trace: flow"));
  check(PalvonAuthManager_SetRequestData(request, reinterpret_cast<const AMByte*>(requestBody.data()),
                                         static_cast<AMUint>(requestBody.size())));
  check(PalvonAuthManager_SendRequestAndReceiveResponse(request));
  check(PalvonAuthManager_GetResponseStatusCode(request, &out.status));

  AMChar* phrase = nullptr;
  if (check(PalvonAuthManager_GetResponseReasonPhrase(request, &phrase)) && phrase != nullptr) out.phrase = phrase;
  PalvonAuthManager_FreeString(phrase);

  AMChar** headers = nullptr;
  if (check(PalvonAuthManager_GetResponseHeaders(request, &headers))) {
    for (AMChar** entry = headers; *entry != nullptr; ++entry) out.headers.emplace_back(*entry);
  }
  PalvonAuthManager_FreeResponseHeaders(headers);

  std::vector<AMByte> buffer(chunkSize);
  for (;;) {
    AMUint read = 0;
    if (!check(PalvonAuthManager_ReadResponseBodyStream(request, buffer.data(), chunkSize, &read)) || read == 0) break;
    out.body.append(reinterpret_cast<const char*>(buffer.data()), read);
  }
  check(PalvonAuthManager_DestroyAMHttpRequest(request));
  return out;
}

class Level2Flow : public Level2Test {
 protected:
  void SetUp() override {
    service.SetHandler(server.Handler());
    Level2Test::SetUp();
    if (HasFatalFailure()) return;
    ASSERT_EQ(PalvonAuthManager_CreateConnection(L"flow", nullptr, nullptr, &connection), 0u);
    ASSERT_EQ(connection, MiniWebServer::kConnection);
  }

  void TearDown() override {
    EXPECT_EQ(PalvonAuthManager_DestroyConnection(connection), 0u);
    Level2Test::TearDown();
    service.Stop();  // the handler refers to `server`, which goes first
  }

  MiniWebServer server;
  ConnectionHandle connection = 0;
};

TEST_F(Level2Flow, GetReadsStatusPhraseHeadersAndBody) {
  const Exchange exchange = Perform(connection, L"GET", L"https://web.example/hello", "", 5);
  ASSERT_EQ(exchange.failure, 0u);
  EXPECT_EQ(exchange.status, 200u);
  EXPECT_EQ(exchange.phrase, L"OK");
  EXPECT_EQ(exchange.headers, (std::vector<std::wstring>{L"Content-Type: text/plain", L"Content-Length: 23",
                                                         L"X-Seen-Method: GET", L"X-Seen-Headers: 2"}));
  EXPECT_EQ(exchange.body, "Hello from the service\n");
  EXPECT_EQ(server.LiveHandles(), 0u);
  // Five-byte chunks: 23 bytes take five reads, then the empty one.
  EXPECT_EQ(service.RequestsOfType(msg::kReadResponseBodyStream).size(), 6u);
  EXPECT_EQ(CountTrace(Level::kMessage, "GetResponseStatusCode completed for handle 100 with result 200"), 1u);
  EXPECT_EQ(CountTrace(Level::kMessage, "Created http request handle 100 for connection handle 7."), 1u);
}

TEST_F(Level2Flow, LargeBodiesArriveWholeAndMissingPagesAnswer404) {
  const Exchange big = Perform(connection, L"GET", L"https://web.example/big", "", 128 * 1024);
  EXPECT_EQ(big.failure, 0u);
  EXPECT_EQ(big.body, MiniWebServer::BigBody());
  std::string payload(150 * 1024, '\0');
  for (size_t i = 0; i < payload.size(); ++i) payload[i] = static_cast<char>(i * 17 + i / 300);
  const Exchange echo = Perform(connection, L"POST", L"https://web.example/echo", payload, 32 * 1024);
  EXPECT_EQ(echo.failure, 0u);
  ASSERT_EQ(echo.headers.size(), 4u);
  EXPECT_EQ(echo.headers[2], L"X-Seen-Method: POST");
  EXPECT_EQ(echo.body, payload);
  const Exchange missing = Perform(connection, L"GET", L"https://web.example/nowhere", "", 1024);
  EXPECT_EQ(missing.failure, 0u);
  EXPECT_EQ(missing.status, 404u);
  EXPECT_EQ(missing.phrase, L"Not Found");
  EXPECT_EQ(missing.body, "no such page\n");
}

TEST_F(Level2Flow, DestroyedHandleIsUnknownToTheService) {
  AMHttpHandle request = 0;
  ASSERT_EQ(PalvonAuthManager_CreateAMHttpRequest(connection, &request), 0u);
  ASSERT_EQ(PalvonAuthManager_DestroyAMHttpRequest(request), 0u);
  AMUint status = 5;
  EXPECT_EQ(PalvonAuthManager_GetResponseStatusCode(request, &status), rc::kInvalidHandle);
  EXPECT_EQ(status, 0u);
  EXPECT_EQ(PalvonAuthManager_DestroyAMHttpRequest(request), rc::kInvalidHandle);
  EXPECT_EQ(CountTrace(Level::kError, "Http request handle " + std::to_string(request) + " is not valid."), 2u);
  // A request on an unknown connection gets no handle.
  AMHttpHandle other = 9;
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(connection + 1, &other), rc::kInvalidHandle);
  EXPECT_EQ(other, 0u);
}

TEST_F(Level2Flow, ConcurrentExchangesKeepTheirOwnResponses) {
  // Every call of every thread shares the one channel; each exchange must
  // still see only its own handle's answers.
  constexpr int kThreads = 3;
  constexpr int kRounds = 4;
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int round = 0; round < kRounds; ++round) {
        const std::string payload = "thread " + std::to_string(t) + " round " + std::to_string(round);
        const Exchange exchange = Perform(connection, L"PUT", L"https://web.example/echo", payload, 4);
        if (exchange.failure != 0 || exchange.status != 200 || exchange.body != payload) ++wrong;
      }
    });
  }
  for (auto& thread : threads) thread.join();
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(server.LiveHandles(), 0u);
  EXPECT_EQ(service.RequestsOfType(msg::kCreateAMHttpRequest).size(), static_cast<size_t>(kThreads * kRounds));
}

}  // namespace
