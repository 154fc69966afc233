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

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string Pattern(size_t size) {
  std::string bytes(size, '\0');
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>((i * 131 + i / 251) & 0xFF);
  return bytes;
}

std::string DecodeBase64(const std::string& text) {
  static const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  uint32_t bits = 0;
  int count = 0;
  for (char c : text) {
    if (c == '=') break;
    const size_t value = alphabet.find(c);
    if (value == std::string::npos) {
      ADD_FAILURE() << "not base64: " << c;
      return out;
    }
    bits = (bits << 6) | static_cast<uint32_t>(value);
    count += 6;
    if (count >= 8) {
      count -= 8;
      out += static_cast<char>((bits >> count) & 0xFF);
    }
  }
  return out;
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
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(result.out.empty());
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
  ChildResult result = RunTool({"http", "-i", "https://h/x"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "HTTP 404 Not Found\nContent-Type: text/plain\nX-Name: \xC3\xA9t\xC3\xA9\n\nmissing\n");
  ChildResult plain = RunTool({"http", "https://h/x"});
  EXPECT_EQ(plain.out, "");  // the body was read by the first run
}

TEST(ToolHttp, EveryRequestSettingReachesTheService) {
  HttpService s(201, L"Created", {}, "done");
  const std::string file = Home() + "/upload.bin";
  const std::string upload("\x00\x01\xFF\r\nend", 7);
  WriteWholeFile(file, upload);
  ChildResult result = RunTool({"http",
                                "https://h/put",
                                "-X",
                                "PUT",
                                "-H",
                                "A: 1",
                                "-H",
                                "B: zw\xC3\xB6lf",
                                "--data-binary",
                                "@" + file,
                                "--timeout",
                                "7",
                                "--user-agent-suffix",
                                "tool/1",
                                "--ref",
                                "https://ref/",
                                "--flags",
                                "3",
                                "--route",
                                "https://gw/",
                                "--route-name",
                                "GW",
                                "--route-edition",
                                "2",
                                "--route-auth-type",
                                "4"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, "done");
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
  ChildResult fromStdin = RunTool({"http", "https://h/in", "--data-binary", "@-"}, withInput);
  EXPECT_EQ(fromStdin.exitCode, 0) << fromStdin.err;
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
  const std::string content = std::string("\x00\xFF\"\\", 4) + Pattern(1000);
  HttpService s(200, L"OK", {L"A: b"}, content);
  ChildResult result = RunTool({"--json", "http", "https://h/j", "--chunk-size", "7"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  const Json document = ParseOutput(result);
  EXPECT_EQ(document["status"].UInt(), 200u);
  EXPECT_EQ(document["reason"].Str(), "OK");
  ASSERT_EQ(document["headers"].items.size(), 1u);
  EXPECT_EQ(document["headers"][0].Str(), "A: b");
  EXPECT_EQ(document["trustFailureFlags"].UInt(), 0u);
  EXPECT_EQ(document["bodyBytes"].UInt(), content.size());
  EXPECT_EQ(DecodeBase64(document["bodyBase64"].Str()), content);
  EXPECT_EQ(s.service.RequestsOfType(msg::kReadResponseBodyStream).size(), content.size() / 7 + 2);
}

TEST(ToolHttp, JsonWithOutputFileNamesTheFile) {
  HttpService s(200, L"OK", {}, "file body");
  const std::string file = Home() + "/out.txt";
  const Json document = ParseOutput(RunTool({"--json", "http", "https://h/f", "-o", file}));
  EXPECT_EQ(document["output"].Str(), file);
  EXPECT_EQ(document["bodyBytes"].UInt(), 9u);
  EXPECT_FALSE(document.Has("bodyBase64"));
  EXPECT_EQ(ReadWholeFile(file), "file body");
}

TEST(ToolHttp, FailOptionSkipsTheBodyOfAnErrorStatus) {
  HttpService s(500, L"Server Error", {}, "trace");
  ChildResult result = RunTool({"http", "--fail", "https://h/e"});
  EXPECT_EQ(result.exitCode, 5);
  EXPECT_TRUE(result.out.empty());
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
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(result.out, content);
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
  EXPECT_EQ(ParseOutput(result)["error"]["name"].Str(), "AM_RESULT_NOT_IMPLEMENTED");
  EXPECT_TRUE(service.RequestsOfType(msg::kCreateAMHttpRequest).empty());
}

TEST(ToolHttp, FailedBodyReadStillDestroysTheRequest) {
  HttpService s(200, L"OK", {}, Pattern(100));
  s.answers.Always(msg::kReadResponseBodyStream, Reply::Return(65530));
  ChildResult result = RunTool({"http", "https://h/"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Contains(result.err, "PalvonAuthManager_ReadResponseBodyStream failed with result 65530")) << result.err;
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyAMHttpRequest).size(), 1u);
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyConnection).size(), 1u);
}

TEST(ToolHttp, LocalFileProblemsStopBeforeTheServiceIsAsked) {
  TestService service;
  ChildResult missing = RunTool({"http", "https://h/", "--data-binary", "@" + Home() + "/missing"});
  EXPECT_EQ(missing.exitCode, 4);
  EXPECT_TRUE(Contains(missing.err, "cannot read " + Home() + "/missing")) << missing.err;
  ChildResult unwritable = RunTool({"--json", "http", "https://h/", "-o", Home() + "/no/such/dir/file"});
  EXPECT_EQ(unwritable.exitCode, 4);
  EXPECT_EQ(ParseOutput(unwritable)["error"]["exitCode"].UInt(), 4u);
  EXPECT_TRUE(service.Registrations().empty());
}
