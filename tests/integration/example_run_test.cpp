// The lifecycle example program, linked against the shared library, run as
// a child process against the test service of this process (same HOME).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "message/MessageTypes.h"
#include "support/TestService.h"

extern char** environ;

using namespace PalvonAuthManagerSDK;
using pam_test::Reply;
using pam_test::TestService;

namespace {

struct ExampleOutcome {
  pid_t pid = -1;
  int exitCode = -1;  // -1: did not exit normally within the time limit
  std::string output;
};

// Starts the example with this process's environment, collects its standard
// output and waits at most 30 seconds for it to finish.
ExampleOutcome RunExample() {
  ExampleOutcome run;
  int out[2];
  if (pipe2(out, O_CLOEXEC) != 0) return run;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, out[1], 1);
  char program[] = PAM_LIFECYCLE_EXAMPLE;
  char* argv[] = {program, nullptr};
  const int spawned = posix_spawn(&run.pid, program, &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(out[1]);
  if (spawned != 0) {
    close(out[0]);
    run.pid = -1;
    return run;
  }
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  for (;;) {
    struct pollfd wait {
      out[0], POLLIN, 0
    };
    int status = 0;
    const bool exited = waitpid(run.pid, &status, WNOHANG) == run.pid;
    char chunk[256];
    ssize_t got;
    // After the exit, everything left; before it, what is there now.
    while ((exited || poll(&wait, 1, 100) > 0) && (got = read(out[0], chunk, sizeof chunk)) > 0) {
      run.output.append(chunk, static_cast<size_t>(got));
      if (!exited) break;
    }
    if (exited) {
      run.exitCode = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
      break;
    }
    if (std::chrono::steady_clock::now() > deadline) {
      kill(run.pid, SIGKILL);
      waitpid(run.pid, &status, 0);
      break;
    }
  }
  close(out[0]);
  return run;
}

std::vector<uint32_t> TypesFrom(const TestService& service, pid_t pid) {
  std::vector<uint32_t> types;
  for (const auto& request : service.Requests()) {
    if (request.processId == static_cast<uint32_t>(pid)) types.push_back(request.type);
  }
  return types;
}

}  // namespace

TEST(ExampleRun, PrintsTheApiLevelOrExitsWithOneWhenRefused) {
  TestService service;
  const ExampleOutcome run = RunExample();
  ASSERT_GT(run.pid, 0) << "could not start " << PAM_LIFECYCLE_EXAMPLE;
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_EQ(run.output, "API level: 2\n");
  EXPECT_EQ(service.Registrations(), std::vector<uint32_t>{static_cast<uint32_t>(run.pid)});
  EXPECT_EQ(TypesFrom(service, run.pid),
            (std::vector<uint32_t>{msg::kGetServerSDKVersion, msg::kInitialize, msg::kUninitialize}));

  service.SetVersion(1);
  const ExampleOutcome levelOne = RunExample();
  EXPECT_EQ(levelOne.exitCode, 0);
  EXPECT_EQ(levelOne.output, "API level: 1\n");

  service.Script(msg::kInitialize, {Reply::Return(9)});
  const ExampleOutcome refused = RunExample();
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_EQ(refused.output, "");
}
