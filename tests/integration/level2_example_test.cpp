// The HTTP example program, run as a child process against a test service
// (same HOME) that answers like a small web server.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "level2_support.h"

extern char** environ;

using namespace PalvonAuthManagerSDK;
using namespace l2test;

namespace {

struct ChildResult {
  int exitCode = -1;  // -1 when the child did not exit normally
  pid_t pid = -1;
  std::string out;
  std::string err;
};

/** Runs the example with `args`, collecting its output; kills it after 60 s. */
ChildResult RunExample(const std::vector<std::string>& args) {
  ChildResult result;
#ifdef PAM_HTTP_EXAMPLE
  int outPipe[2];
  int errPipe[2];
  if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) {
    ADD_FAILURE() << "pipe2 failed";
    return result;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
  posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
  std::vector<std::string> argvText = {PAM_HTTP_EXAMPLE};
  argvText.insert(argvText.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& text : argvText) argv.push_back(text.data());
  argv.push_back(nullptr);
  const int spawned = posix_spawn(&result.pid, PAM_HTTP_EXAMPLE, &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(outPipe[1]);
  close(errPipe[1]);
  if (spawned != 0) {
    ADD_FAILURE() << "posix_spawn failed: " << spawned;
    close(outPipe[0]);
    close(errPipe[0]);
    return result;
  }

  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  bool outOpen = true;
  bool errOpen = true;
  while ((outOpen || errOpen) && std::chrono::steady_clock::now() < deadline) {
    struct pollfd fds[2] = {{outOpen ? outPipe[0] : -1, POLLIN, 0}, {errOpen ? errPipe[0] : -1, POLLIN, 0}};
    if (poll(fds, 2, 200) <= 0) continue;
    char chunk[65536];
    for (int i = 0; i < 2; ++i) {
      if (fds[i].revents == 0) continue;
      const ssize_t got = read(fds[i].fd, chunk, sizeof chunk);
      if (got > 0) {
        (i == 0 ? result.out : result.err).append(chunk, static_cast<size_t>(got));
      } else {
        (i == 0 ? outOpen : errOpen) = false;
      }
    }
  }
  if (outOpen || errOpen) {
    ADD_FAILURE() << "the example did not finish in time";
    kill(result.pid, SIGKILL);
  }
  close(outPipe[0]);
  close(errPipe[0]);
  int status = 0;
  if (waitpid(result.pid, &status, 0) == result.pid && WIFEXITED(status)) result.exitCode = WEXITSTATUS(status);
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
