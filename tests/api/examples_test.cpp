// The level-1 examples, run as child processes (same HOME) against a test
// service on a thread of this process.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "message/MessageTypes.h"
#include "support/TempHome.h"
#include "support/TestService.h"

extern char** environ;

namespace {

using PalvonAuthManagerSDK::msg::kCreateConnection;
using PalvonAuthManagerSDK::msg::kDestroyConnection;
using PalvonAuthManagerSDK::msg::kDetermineServerType;
using PalvonAuthManagerSDK::msg::kGenerateTrampolineUrl;
using PalvonAuthManagerSDK::msg::kGetLogonStatus;
using PalvonAuthManagerSDK::msg::kGetServerSDKVersion;
using PalvonAuthManagerSDK::msg::kGetVersion;
using PalvonAuthManagerSDK::msg::kInitialize;
using PalvonAuthManagerSDK::msg::kUninitialize;
using pam_test::Reply;
using pam_test::Request;

struct Outcome {
  pid_t pid = -1;
  int exitCode = -1;  // -1: did not exit normally
  std::string output;
  std::string errors;
};

// Runs `program` with standard output and error sent to files, waiting at
// most 30 seconds.
Outcome RunProgram(const std::string& program) {
  Outcome outcome;
  const std::string home = std::getenv("HOME");
  const std::string outPath = home + "/example.out";
  const std::string errPath = home + "/example.err";
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<char> path(program.begin(), program.end());
  path.push_back('\0');
  char* argv[] = {path.data(), nullptr};
  const int spawned = posix_spawn(&outcome.pid, program.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) {
    outcome.errors = "cannot start " + program;
    return outcome;
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  int status = 0;
  for (;;) {
    const pid_t done = waitpid(outcome.pid, &status, WNOHANG);
    if (done == outcome.pid) break;
    if (std::chrono::steady_clock::now() > deadline) {
      kill(outcome.pid, SIGKILL);
      waitpid(outcome.pid, &status, 0);
      outcome.errors = "timed out; ";
      break;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  if (WIFEXITED(status)) outcome.exitCode = WEXITSTATUS(status);
  outcome.output = pam_test::ReadFile(outPath);
  outcome.errors += pam_test::ReadFile(errPath);
  return outcome;
}

// Plausible answers for everything the examples ask.
Reply Answer(const Request& request) {
  switch (request.type) {
    case kGetServerSDKVersion:
      return Reply::Return(0).UInt(L"version", 2);
    case kCreateConnection:
      return Reply::Return(0).UInt(L"AuthManagerHandle", 42);
    case kGetVersion:
      return Reply::Return(0).Wide(L"version", L"7.3.0");
    case kDetermineServerType:
      return Reply::Return(0)
          .UInt(L"serverType", 2)
          .Wide(L"friendlyName", L"Example Gateway")
          .Wide(L"logonPointUrl", L"https://gw.example.com/logon")
          .UInt(L"amGatewayEdition", 1)
          .UInt(L"amGatewayAuthType", 3);
    case kGenerateTrampolineUrl:
      return Reply::Return(0)
          .Wide(L"trampolineUrl", L"https://gw.example.com/trampoline?id=1")
          .UInt(L"amAuthenticationResult", 5);
    case kGetLogonStatus:
      return Reply::Return(0).UInt(L"logonStatus", 1);
    default:
      return Reply::Return(0);
  }
}

std::vector<Request> RequestsOf(const pam_test::TestService& service, pid_t pid) {
  std::vector<Request> out;
  for (const Request& request : service.Requests()) {
    if (request.processId == static_cast<uint32_t>(pid)) out.push_back(request);
  }
  return out;
}

class ExamplesTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ExamplesTest, WalksThroughLevelOneAndExitsCleanly) {
  pam_test::TestService service;
  service.SetHandler(&Answer);
  const Outcome outcome = RunProgram(GetParam());
  EXPECT_EQ(outcome.exitCode, 0) << outcome.errors;
  EXPECT_EQ(outcome.errors, "");
  for (const char* line :
       {"API level: 2\n", "connection: 42\n", "service version: 7.3.0\n", "server type: 2\n",
        "gateway: Example Gateway at https://gw.example.com/logon (edition 1, authentication type 3)\n",
        "trampoline URL: https://gw.example.com/trampoline?id=1 (authentication result 5)\n", "logon status: 1\n"}) {
    EXPECT_NE(outcome.output.find(line), std::string::npos) << "missing: " << line << "in:\n" << outcome.output;
  }

  const auto requests = RequestsOf(service, outcome.pid);
  const std::vector<uint32_t> expectedTypes = {kGetServerSDKVersion, kInitialize,          kCreateConnection,
                                               kGetVersion,          kDetermineServerType, kGenerateTrampolineUrl,
                                               kGetLogonStatus,      kDestroyConnection,   kUninitialize};
  std::vector<uint32_t> types;
  for (const Request& request : requests) types.push_back(request.type);
  EXPECT_EQ(types, expectedTypes);
  // The calls use the connection the service handed out.
  for (const Request& request : requests) {
    if (request.type == kGetVersion || request.type == kDestroyConnection) {
      unsigned int handle = 0;
      EXPECT_TRUE(request.message.GetUInt(L"AuthManagerHandle", &handle));
      EXPECT_EQ(handle, 42u);
    }
  }
}

TEST_P(ExamplesTest, ReportsAFailedCallAndExitsWithOne) {
  pam_test::TestService service;
  service.SetHandler(&Answer);
  service.Script(kGetLogonStatus, {Reply::Return(0xFFFAu)});
  const Outcome outcome = RunProgram(GetParam());
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.errors.find("GetLogonStatus failed with result 65530 (0xFFFA)"), std::string::npos)
      << outcome.errors;
  // The connection is still closed and the library shut down.
  const auto requests = RequestsOf(service, outcome.pid);
  ASSERT_GE(requests.size(), 2u);
  EXPECT_EQ(requests[requests.size() - 2].type, kDestroyConnection);
  EXPECT_EQ(requests.back().type, kUninitialize);
}

INSTANTIATE_TEST_SUITE_P(Level1, ExamplesTest, ::testing::Values(PAM_LEVEL1_EXAMPLE_C, PAM_LEVEL1_EXAMPLE_CPP),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return std::string(info.index == 0 ? "C" : "Cpp");
                         });

}  // namespace
