// palvonauth http against the scriptable test service: request settings,
// the streamed body (to a file, to stdout, as base64 in JSON), -i, --fail,
// the progress display, and failures.
#include <gtest/gtest.h>

#include <memory>
#include <mutex>

#include "ToolTestSupport.h"
#include "message/MessageTypes.h"

using namespace pam_test;
namespace msg = PalvonAuthManagerSDK::msg;

namespace {

std::string Pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
  return bytes;
}

// A service that answers an HTTP exchange: handle 21 on connection 7, a
// status, a reason, headers, and a body handed out in chunks no larger than
// each read asks for.
struct HttpService {
  // The body is read on the service thread and replaced by the test.
  struct Body {
    std::mutex mutex;
    std::string bytes;
    size_t offset = 0;
  };
  TestService service;
  Answers answers{service};
  std::shared_ptr<Body> body = std::make_shared<Body>();

  HttpService(uint32_t status, const std::wstring& reason, const std::vector<std::wstring>& headers,
              const std::string& content) {
    SetBody(content);
    answers.Always(msg::kCreateConnection, Reply::Return(0).UInt(L"AuthManagerHandle", 7));
    answers.Always(msg::kCreateAMHttpRequest, Reply::Return(0).UInt(L"httpHandle", 21));
    answers.Always(msg::kGetResponseStatusCode, Reply::Return(0).UInt(L"httpStatus", status));
    answers.Always(msg::kGetResponseReasonPhrase, Reply::Return(0).Wide(L"httpResponse", reason));
    Reply headerReply = Reply::Return(0).UInt(L"numHeaders", static_cast<uint32_t>(headers.size()));
    for (size_t i = 0; i < headers.size(); ++i) {
      headerReply.Wide((L"Attrib" + std::to_wstring(i)).c_str(), headers[i]);
    }
    answers.Always(msg::kGetResponseHeaders, headerReply);
    std::shared_ptr<Body> source = body;
    answers.On(msg::kReadResponseBodyStream, [source](const Request& request) {
      unsigned int max = 0;
      (void)request.message.GetUInt(L"maxNumberOfBytesToRead", &max);
      std::lock_guard<std::mutex> lock(source->mutex);
      const size_t take = std::min<size_t>(max, source->bytes.size() - source->offset);
      const auto begin = source->bytes.begin() + static_cast<std::ptrdiff_t>(source->offset);
      const std::vector<uint8_t> chunk(begin, begin + static_cast<std::ptrdiff_t>(take));
      source->offset += take;
      Reply reply = Reply::Return(0);
      if (take > 0) reply.Buffer(L"amByteData", chunk);
      return reply;
    });
  }

  /** Serves `content` from its start to the next request. */
  void SetBody(const std::string& content) {
    std::lock_guard<std::mutex> lock(body->mutex);
    body->bytes = content;
    body->offset = 0;
  }
};

}  // namespace

TEST(ToolHttp, LargeBodyIsStreamedInChunksToAFile) {
  const std::string content = Pattern(300 * 1024 + 17);
  HttpService s(200, L"OK", {L"Content-Type: application/octet-stream"}, content);
  const std::string file = Home() + "/body.bin";
  ChildResult result = RunTool({"http", "https://h/big", "-o", file});
  EXPECT_RUN(result, 0, "");
  EXPECT_TRUE(result.err.empty()) << "no progress without a terminal: " << result.err;
  EXPECT_EQ(ReadWholeFile(file), content);
  // 64 KiB per read: four full chunks, the rest, and the empty read that ends the body.
  const auto reads = s.service.RequestsOfType(msg::kReadResponseBodyStream);
  ASSERT_EQ(reads.size(), 6u);
  for (const auto& read : reads) {
    EXPECT_EQ(UIntOf(read, L"maxNumberOfBytesToRead"), 65536u);
    EXPECT_EQ(UIntOf(read, L"httpHandle"), 21u);
  }
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyAMHttpRequest).size(), 1u);
}

TEST(ToolHttp, IncludePrintsStatusLineAndHeadersBeforeTheBody) {
  HttpService s(404, L"Not Found", {L"Content-Type: text/plain", L"X-Name: \u00E9t\u00E9"}, "missing\n");
  EXPECT_RUN(RunTool({"http", "-i", "https://h/x"}), 0,
             "HTTP 404 Not Found\nContent-Type: text/plain\nX-Name: \xC3\xA9t\xC3\xA9\n\nmissing\n");
  EXPECT_RUN(RunTool({"http", "https://h/x"}), 0, "");  // the body was read by the first run
}

TEST(ToolHttp, EveryRequestSettingReachesTheService) {
  HttpService s(201, L"Created", {}, "done");
  const std::string file = Home() + "/upload.bin";
  const std::string upload("\x00\x01\xFF\r\nend", 7);
  WriteWholeFile(file, upload);
  // clang-format off
  EXPECT_RUN(RunTool({"http", "https://h/put", "-X", "PUT", "-H", "A: 1", "-H", "B: zw\xC3\xB6lf",
                      "--data-binary", "@" + file, "--timeout", "7", "--user-agent-suffix", "tool/1",
                      "--ref", "https://ref/", "--flags", "3", "--route", "https://gw/", "--route-name", "GW",
                      "--route-edition", "2", "--route-auth-type", "4"}),
             0, "done");
  // clang-format on
  EXPECT_EQ(UIntOf(OnlyRequest(s.service, msg::kCreateAMHttpRequest), L"AuthManagerHandle"), 7u);
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kSetRequestMethod), L"httpMethod"), L"PUT");
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kSetRequestUrl), L"httpUrl"), L"https://h/put");
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kSetRequestReferenceUrl), L"httpUrl"), L"https://ref/");
  EXPECT_EQ(UIntOf(OnlyRequest(s.service, msg::kSetRequestAuthenticationFlags), L"authFlags"), 3u);
  EXPECT_EQ(UIntOf(OnlyRequest(s.service, msg::kSetRequestTimeoutSeconds), L"timeout"), 7u);
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kSetRequestUserAgentSuffix), L"userAgentSuffix"), L"tool/1");
  const Request route = OnlyRequest(s.service, msg::kSetRequestRoute);
  EXPECT_EQ(WideOf(route, L"logonPointUrl"), L"https://gw/");
  EXPECT_EQ(WideOf(route, L"friendlyName"), L"GW");
  EXPECT_EQ(UIntOf(route, L"amGatewayEdition"), 2u);
  EXPECT_EQ(UIntOf(route, L"amGatewayAuthType"), 4u);
  const auto headers = s.service.RequestsOfType(msg::kAddRequestHeader);
  ASSERT_EQ(headers.size(), 2u);
  EXPECT_EQ(WideOf(headers[0], L"httpheader"), L"A: 1");
  EXPECT_EQ(WideOf(headers[1], L"httpheader"), L"B: zw\u00F6lf");
  const Request data = OnlyRequest(s.service, msg::kSetRequestData);
  const std::vector<uint8_t> sent = BufferOf(data, L"amByteData");
  EXPECT_EQ(std::string(sent.begin(), sent.end()), upload);
  EXPECT_EQ(UIntOf(data, L"numBytes"), 7u);
  for (const auto& request : s.service.Requests()) {
    if (request.type >= msg::kAddRequestHeader && request.type <= msg::kGetResponseTrustFailureFlags) {
      EXPECT_EQ(UIntOf(request, L"httpHandle"), 21u) << request.type;
    }
  }
}

TEST(ToolHttp, DataDefaultsToPostAndPlainGetSendsNoBody) {
  HttpService s(200, L"OK", {}, "");
  EXPECT_EQ(RunTool({"http", "https://h/form", "-d", "a=b&c=\xC3\xA4"}).exitCode, 0);
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kSetRequestMethod), L"httpMethod"), L"POST");
  const std::vector<uint8_t> sent = BufferOf(OnlyRequest(s.service, msg::kSetRequestData), L"amByteData");
  EXPECT_EQ(std::string(sent.begin(), sent.end()), "a=b&c=\xC3\xA4");

  ChildOptions withInput;
  withInput.input = "from stdin\n";
  EXPECT_EQ(RunTool({"http", "https://h/in", "--data-binary", "@-"}, withInput).exitCode, 0);
  const auto data = s.service.RequestsOfType(msg::kSetRequestData);
  ASSERT_EQ(data.size(), 2u);
  const std::vector<uint8_t> piped = BufferOf(data[1], L"amByteData");
  EXPECT_EQ(std::string(piped.begin(), piped.end()), "from stdin\n");

  EXPECT_EQ(RunTool({"http", "https://h/get"}).exitCode, 0);
  EXPECT_EQ(WideOf(s.service.RequestsOfType(msg::kSetRequestMethod).back(), L"httpMethod"), L"GET");
  EXPECT_EQ(s.service.RequestsOfType(msg::kSetRequestData).size(), 2u);
  // Options not given are not sent at all.
  EXPECT_TRUE(s.service.RequestsOfType(msg::kSetRequestTimeoutSeconds).empty());
  EXPECT_TRUE(s.service.RequestsOfType(msg::kSetRequestRoute).empty());
}

TEST(ToolHttp, JsonCarriesTheBodyAsBase64AcrossChunkBoundaries) {
  // 22 bytes in reads of 7: the reads end at every position of a three-byte base64 group.
  HttpService s(200, L"OK", {L"A: b"}, std::string("\x00\xFF\"\\", 4) + "abcdefghijklmnopqr");
  EXPECT_RUN(RunTool({"--json", "http", "https://h/j", "--chunk-size", "7"}), 0,
             "{\"connection\":7,\"request\":21,\"status\":200,\"reason\":\"OK\",\"headers\":[\"A: b\"],"
             "\"trustFailureFlags\":0,\"bodyBase64\":\"AP8iXGFiY2RlZmdoaWprbG1ub3Bxcg==\",\"bodyBytes\":22}\n");
  // Three full reads, the rest, and the empty read that ends the body.
  EXPECT_EQ(s.service.RequestsOfType(msg::kReadResponseBodyStream).size(), 5u);
}

TEST(ToolHttp, JsonWithOutputFileNamesTheFile) {
  HttpService s(200, L"OK", {}, "file body");
  const std::string file = Home() + "/out.txt";
  EXPECT_RUN(RunTool({"--json", "http", "https://h/f", "-o", file}), 0,
             "{\"connection\":7,\"request\":21,\"status\":200,\"reason\":\"OK\",\"headers\":[],"
             "\"trustFailureFlags\":0,\"output\":\"" +
                 file + "\",\"bodyBytes\":9}\n");
  EXPECT_EQ(ReadWholeFile(file), "file body");
}

TEST(ToolHttp, FailOptionSkipsTheBodyOfAnErrorStatus) {
  HttpService s(500, L"Server Error", {}, "trace");
  ChildResult result = RunTool({"http", "--fail", "https://h/e"});
  EXPECT_RUN(result, 5, "");
  EXPECT_TRUE(Contains(result.err, "HTTP status 500 Server Error")) << result.err;
  EXPECT_TRUE(s.service.RequestsOfType(msg::kReadResponseBodyStream).empty());
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyAMHttpRequest).size(), 1u);
}

TEST(ToolHttp, ProgressIsShownWhenStderrIsATerminal) {
  const std::string content = Pattern(256 * 1024);
  HttpService s(200, L"OK", {L"content-length: " + std::to_wstring(content.size())}, content);
  ChildOptions terminal;
  terminal.stderrTerminal = true;
  ChildResult result = RunTool({"http", "https://h/p"}, terminal);
  EXPECT_RUN(result, 0, content);
  EXPECT_TRUE(Contains(result.err, "\rpalvonauth: received ")) << result.err;
  EXPECT_TRUE(Contains(result.err, "256.0 KiB of 256.0 KiB (100%)")) << result.err;

  // --no-progress silences it; a body of one chunk never shows it.
  s.SetBody(content);
  ChildResult silent = RunTool({"http", "--no-progress", "https://h/p"}, terminal);
  EXPECT_FALSE(Contains(silent.err, "received")) << silent.err;
  s.SetBody("short");
  ChildResult small = RunTool({"http", "https://h/p"}, terminal);
  EXPECT_EQ(small.out, "short");
  EXPECT_FALSE(Contains(small.err, "received")) << small.err;
}

TEST(ToolHttp, ProgressCanBeForcedWithoutATerminal) {
  HttpService s(200, L"OK", {}, Pattern(200 * 1024));
  ChildResult result = RunTool({"http", "--progress", "-o", Home() + "/p.bin", "https://h/p"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(Contains(result.err, "\rpalvonauth: received 200.0 KiB")) << result.err;
  EXPECT_EQ(result.err.back(), '\n');
}

TEST(ToolHttp, ApiLevelOneReportsNotAvailable) {
  TestService service;
  Answers answers(service, 1);
  ChildResult result = RunTool({"--json", "http", "https://h/"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Contains(result.err,
                       "PalvonAuthManager_CreateAMHttpRequest failed with result 65525 (0xFFF5, "
                       "AM_RESULT_NOT_IMPLEMENTED: not implemented / not available at this API level)"))
      << result.err;
  EXPECT_TRUE(Contains(result.out, "\"name\":\"AM_RESULT_NOT_IMPLEMENTED\"")) << result.out;
  EXPECT_TRUE(service.RequestsOfType(msg::kCreateAMHttpRequest).empty());
}

TEST(ToolHttp, FailedBodyReadStillDestroysTheRequest) {
  HttpService s(200, L"OK", {}, Pattern(100));
  s.answers.Always(msg::kReadResponseBodyStream, Reply::Return(65530));
  EXPECT_FAILS(RunTool({"http", "https://h/"}), 1, "PalvonAuthManager_ReadResponseBodyStream failed with result 65530");
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyAMHttpRequest).size(), 1u);
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyConnection).size(), 1u);
}

TEST(ToolHttp, LocalFileProblemsStopBeforeTheServiceIsAsked) {
  TestService service;
  EXPECT_FAILS(RunTool({"http", "https://h/", "--data-binary", "@" + Home() + "/missing"}), 4,
               "cannot read " + Home() + "/missing");
  ChildResult unwritable = RunTool({"--json", "http", "https://h/", "-o", Home() + "/no/such/dir/file"});
  EXPECT_EQ(unwritable.exitCode, 4);
  EXPECT_TRUE(Contains(unwritable.out, ",\"exitCode\":4}}\n")) << unwritable.out;
  EXPECT_TRUE(service.Registrations().empty());
}
