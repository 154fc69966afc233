// The HTTP example program, run as a child process against a test service
// (same HOME) that answers like a small web server.
#include <sys/wait.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "level2_support.h"

using namespace PalvonAuthManagerSDK;
using namespace l2test;

namespace {

struct ChildResult {
  int exitCode = -1;  // -1 when the child did not exit normally
  pid_t pid = -1;
  std::string out;
  std::string err;
};

/** Runs the example with `args` through a shell that first prints its own (the child's) process id. */
ChildResult RunExample(const std::vector<std::string>& args) {
  ChildResult result;
#ifdef PAM_HTTP_EXAMPLE
  const std::string errPath = std::string(std::getenv("HOME")) + "/example-stderr";
  std::string command = "echo $$; exec '" PAM_HTTP_EXAMPLE "'";
  for (const auto& arg : args) command += " '" + arg + "'";
  FILE* child = popen((command + " 2>'" + errPath + "'").c_str(), "r");
  if (child == nullptr) {
    ADD_FAILURE() << "popen failed";
    return result;
  }
  char chunk[65536];
  size_t got = 0;
  while ((got = std::fread(chunk, 1, sizeof chunk, child)) > 0) result.out.append(chunk, got);
  const int status = pclose(child);
  if (WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
  const size_t newline = result.out.find('\n');
  result.pid = static_cast<pid_t>(std::stol(result.out.substr(0, newline)));
  result.out.erase(0, newline + 1);
  result.err = pam_test::ReadFile(errPath);
#else
  (void)args;
  ADD_FAILURE() << "built without the example program";
#endif
  return result;
}

/** Requests of `type` that came from process `pid`. */
std::vector<Request> From(const TestService& service, pid_t pid, uint32_t type) {
  std::vector<Request> out;
  for (const auto& request : service.RequestsOfType(type)) {
    if (request.processId == static_cast<uint32_t>(pid)) out.push_back(request);
  }
  return out;
}

class HttpExample : public ::testing::Test {
 protected:
  void SetUp() override { service.SetHandler(server.Handler()); }

  MiniWebServer server;
  TestService service;
};

TEST_F(HttpExample, GetPrintsStatusHeadersAndBody) {
  const ChildResult child = RunExample({"https://web.example/hello"});
  ASSERT_EQ(child.exitCode, 0) << child.err;
  EXPECT_EQ(child.out,
            "Status: 200 OK\n"
            "Content-Type: text/plain\n"
            "Content-Length: 23\n"
            "X-Seen-Method: GET\n"
            "X-Seen-Headers: 1\n"
            "\n"
            "Hello from the service\n");
  EXPECT_EQ(child.err, "");

  const auto method = From(service, child.pid, msg::kSetRequestMethod);
  ASSERT_EQ(method.size(), 1u);
  EXPECT_EQ(Describe(method[0].message).at("httpMethod"), "wide:GET");
  const auto header = From(service, child.pid, msg::kAddRequestHeader);
  ASSERT_EQ(header.size(), 1u);
  EXPECT_EQ(Describe(header[0].message).at("httpheader"), "wide:Accept: */*");
  // Everything it made is released again, and it said goodbye.
  EXPECT_EQ(server.LiveHandles(), 0u);
  EXPECT_EQ(From(service, child.pid, msg::kDestroyAMHttpRequest).size(), 1u);
  EXPECT_EQ(From(service, child.pid, msg::kDestroyConnection).size(), 1u);
  EXPECT_EQ(From(service, child.pid, msg::kUninitialize).size(), 1u);
}

TEST_F(HttpExample, MethodArgumentAndLargeBody) {
  const ChildResult child = RunExample({"https://web.example/big", "POST"});
  ASSERT_EQ(child.exitCode, 0) << child.err;
  const std::string body = MiniWebServer::BigBody();
  ASSERT_GE(child.out.size(), body.size());
  EXPECT_EQ(child.out.substr(child.out.size() - body.size()), body);
  EXPECT_NE(child.out.find("X-Seen-Method: POST\n"), std::string::npos);
  // 300,000 bytes in chunks of at most 16 KiB, then the empty read.
  EXPECT_EQ(From(service, child.pid, msg::kReadResponseBodyStream).size(), 20u);
}

TEST_F(HttpExample, NonAsciiUrlTravelsAsWideTextAndA404IsStillAResponse) {
  const ChildResult child = RunExample({"https://web.example/caf\xc3\xa9/\xe2\x9c\x93"});
  ASSERT_EQ(child.exitCode, 0) << child.err;
  EXPECT_EQ(child.out.rfind("Status: 404 Not Found\n", 0), 0u) << child.out;
  EXPECT_NE(child.out.find("\n\nno such page\n"), std::string::npos);
  const auto url = From(service, child.pid, msg::kSetRequestUrl);
  ASSERT_EQ(url.size(), 1u);
  ASSERT_NE(url[0].message.GetString(L"httpUrl"), nullptr);
  EXPECT_EQ(std::wstring(url[0].message.GetString(L"httpUrl")), L"https://web.example/caf\u00e9/\u2713");
}

TEST_F(HttpExample, RejectedRequestFailsButCleansUp) {
  service.Script(msg::kCreateAMHttpRequest, {Reply::Return(rc::kInvalidHandle)});
  const ChildResult child = RunExample({"https://web.example/hello"});
  EXPECT_EQ(child.exitCode, 1);
  EXPECT_NE(child.err.find("CreateAMHttpRequest failed with result 65530"), std::string::npos) << child.err;
  EXPECT_EQ(From(service, child.pid, msg::kSendRequestAndReceiveResponse).size(), 0u);
  EXPECT_EQ(From(service, child.pid, msg::kDestroyConnection).size(), 1u);
  EXPECT_EQ(From(service, child.pid, msg::kUninitialize).size(), 1u);
}

TEST(HttpExampleLevelOne, ServiceWithoutLevelTwoIsReported) {
  TestService service;
  service.SetVersion(1);
  const ChildResult child = RunExample({"https://web.example/hello"});
  EXPECT_EQ(child.exitCode, 1);
  EXPECT_NE(child.err.find("API level 1"), std::string::npos) << child.err;
  EXPECT_EQ(From(service, child.pid, msg::kCreateConnection).size(), 0u);
  EXPECT_EQ(From(service, child.pid, msg::kUninitialize).size(), 1u);
}

TEST(HttpExampleUsage, MissingUrlPrintsUsageWithoutTouchingTheService) {
  TestService service;
  const ChildResult child = RunExample({});
  EXPECT_EQ(child.exitCode, 2);
  EXPECT_NE(child.err.find("usage:"), std::string::npos) << child.err;
  EXPECT_TRUE(service.Registrations().empty());
}

}  // namespace
