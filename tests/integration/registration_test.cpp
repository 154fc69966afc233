// Registration of a client process with the service: the 12-byte record,
// the registration pipe in its various states, the blocking open, and
// several client processes sharing one pipe.
#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <future>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "PalvonAuthManager.h"
#include "PalvonAuthManagerTracer.h"
#include "client/CClientCommLib.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/PipeDirectory.h"
#include "ipc/Registration.h"
#include "message/MessageTypes.h"
#include "support/TempHome.h"
#include "support/TestService.h"

using namespace PalvonAuthManagerSDK;
using namespace std::chrono_literals;
using pam_test::TestService;

namespace {

std::string RegistrationPath() { return CLinuxIPC::getUserTmpDir() + "/" + kRegistrationPipeName; }

std::vector<uint8_t> ExpectedRecord(uint32_t pid) {
  std::vector<uint8_t> bytes = {0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0, 0, 12, 0, 0, 0};
  std::memcpy(bytes.data() + 4, &pid, 4);
  return bytes;
}

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return static_cast<mode_t>(-1);
  return status.st_mode & 07777;
}

bool IsFifo(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
}

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

std::vector<uint8_t> ReadExactly(int fd, size_t length) {
  std::vector<uint8_t> bytes(length);
  size_t done = 0;
  while (done < length) {
    const ssize_t got = read(fd, bytes.data() + done, length - done);
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  bytes.resize(done);
  return bytes;
}

class Umask {
 public:
  explicit Umask(mode_t mask) : previous_(umask(mask)) {}
  ~Umask() { umask(previous_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t previous_;
};

// Waits for a child process for at most `limit`; kills it when it is late.
// Returns the exit code, or -1 when it did not exit normally in time.
int WaitForChild(pid_t child, std::chrono::seconds limit) {
  const auto deadline = std::chrono::steady_clock::now() + limit;
  for (;;) {
    int status = 0;
    const pid_t done = waitpid(child, &status, WNOHANG);
    if (done == child) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    if (std::chrono::steady_clock::now() > deadline) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
      return -1;
    }
    std::this_thread::sleep_for(10ms);
  }
}

// Everything written to the trace files of this home folder.
std::string TraceText() {
  const std::string logs = std::string(getenv("HOME")) + "/.RZPClient/logs";
  std::string text;
  if (DIR* dir = opendir(logs.c_str())) {
    while (const dirent* entry = readdir(dir)) {
      if (std::string(entry->d_name).rfind("AuthManagerSDK", 0) == 0) {
        text += pam_test::ReadFile(logs + "/" + entry->d_name);
      }
    }
    closedir(dir);
  }
  return text;
}

// Turns the trace on for one test.
class Tracing {
 public:
  Tracing() { CTracer::s_tracingEnabled = true; }
  ~Tracing() { CTracer::s_tracingEnabled = false; }
  Tracing(const Tracing&) = delete;
  Tracing& operator=(const Tracing&) = delete;
};

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

}  // namespace

// --- the record ---------------------------------------------------------------

TEST(Registration, RecordIsTypeAllOnesOwnProcessIdAndTwelveWhateverTheArgument) {
  Tracing tracing;
  TestService service;  // makes the pipe first
  EXPECT_TRUE(ClientIPCRegistration(12345));
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_TRUE(service.WaitForRegistrations(2));
  const auto records = service.RegistrationBytes();
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0], ExpectedRecord(CurrentProcessId()));
  EXPECT_EQ(records[1], ExpectedRecord(CurrentProcessId()));
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  // An existing pipe is still traced as created and changed.
  const std::string trace = TraceText();
  const std::string path = RegistrationPath();
  EXPECT_TRUE(Contains(trace, "Successfully created Registration pipe: " + path + " \n")) << trace;
  EXPECT_TRUE(Contains(trace, "Successfully changed permission of Registration pipe: " + path + " \n")) << trace;
  EXPECT_TRUE(Contains(trace, "Client: Opened fifo : " + path + " \n")) << trace;
}

// --- the registration pipe ----------------------------------------------------

TEST(Registration, PipeIsMadeOrResetToMode0666AndTheRecordWaitsUntilRead) {
  const std::string path = RegistrationPath();
  const auto readRecord = [&] {
    // Blocks until the client has the pipe open for writing.
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    std::vector<uint8_t> bytes = ReadExactly(fd, 12);
    close(fd);
    return bytes;
  };
  {
    Umask mask(077);
    auto reader = std::async(std::launch::async, [&] {
      while (!IsFifo(path)) std::this_thread::sleep_for(2ms);
      return readRecord();
    });
    EXPECT_TRUE(ClientIPCRegistration(0));
    EXPECT_EQ(reader.get(), ExpectedRecord(CurrentProcessId()));
    EXPECT_EQ(ModeOf(path), 0666u);
  }
  // An existing FIFO, narrower or wider, is used and its mode reset.
  Umask mask(022);
  for (const mode_t mode : {0600, 0777}) {
    SCOPED_TRACE(mode);
    ASSERT_EQ(chmod(path.c_str(), mode), 0);
    auto reader = std::async(std::launch::async, readRecord);
    EXPECT_TRUE(ClientIPCRegistration(0));
    EXPECT_EQ(reader.get(), ExpectedRecord(CurrentProcessId()));
    EXPECT_TRUE(IsFifo(path));
    EXPECT_EQ(ModeOf(path), 0666u);
  }
}

TEST(Registration, AnythingButOwnFifoAtThePipePathFailsWithoutTouchingIt) {
  // A link planted on the pipe name must not lead the client to change or
  // write the file it points at, nor may a file or another user's FIFO.
  const std::string path = RegistrationPath();
  const std::string victim = std::string(getenv("HOME")) + "/victim";
  const std::string before = "0123456789abcdefghij";
  const struct {
    const char* what;
    bool needsRoot;
    std::function<void()> plant;
  } cases[] = {
      {"link to a file", false, [&] { ASSERT_EQ(symlink(victim.c_str(), path.c_str()), 0); }},
      {"dangling link", false, [&] { ASSERT_EQ(symlink((victim + "-none").c_str(), path.c_str()), 0); }},
      {"regular file", false, [&] { ASSERT_EQ(rename(victim.c_str(), path.c_str()), 0); }},
      {"FIFO of another user", true,
       [&] {
         ASSERT_EQ(mkfifo(path.c_str(), 0666), 0);
         ASSERT_EQ(chown(path.c_str(), 4242, 4242), 0);
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    if (c.needsRoot && geteuid() != 0) continue;
    const int fd = open(victim.c_str(), O_CREAT | O_TRUNC | O_WRONLY | O_CLOEXEC, 0600);
    ASSERT_EQ(write(fd, before.data(), before.size()), static_cast<ssize_t>(before.size()));
    close(fd);
    c.plant();
    auto registration = std::async(std::launch::async, [] { return ClientIPCRegistration(0); });
    ASSERT_EQ(registration.wait_for(10s), std::future_status::ready);
    EXPECT_FALSE(registration.get());
    // The file (moved to the pipe name, or where a link points) is as it was.
    const std::string file = Exists(victim) ? victim : path;
    EXPECT_EQ(pam_test::ReadFile(file), before);
    EXPECT_EQ(ModeOf(file), 0600u);
    unlink(path.c_str());
    unlink(victim.c_str());
  }

  Tracing tracing;
  ASSERT_EQ(symlink(victim.c_str(), path.c_str()), 0);
  EXPECT_EQ(PalvonAuthManager_Initialize(), 0xFFFFu);
  EXPECT_FALSE(IsInitialised());
  // The call channel made before the registration stays until uninitialised.
  const std::string base = CLinuxIPC::getUserTmpDir() + "/" + ClientChannelName(CurrentProcessId());
  EXPECT_TRUE(IsFifo(base + "Read"));
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_FALSE(Exists(base + "Read"));
  EXPECT_FALSE(Exists(base + "Write"));
  EXPECT_TRUE(Contains(TraceText(), "Failed to create the Registration pipe : " + path + " with error File exists"));
}

TEST(Registration, PipeThatCannotBeMadeFailsWithoutBlocking) {
  // A home folder so deep that the pipe directory can still be made but a
  // pipe name inside it exceeds the longest path (ENAMETOOLONG).
  std::string home = getenv("HOME");
  const size_t wanted = 4070;
  while (home.size() < wanted) {
    const size_t part = std::min<size_t>(200, wanted - home.size() - 1);
    home += "/" + std::string(std::max<size_t>(part, 1), 'd');
    ASSERT_EQ(mkdir(home.c_str(), 0700), 0) << home.size();
  }
  setenv("HOME", home.c_str(), 1);
  ASSERT_EQ(CLinuxIPC::getUserTmpDir(), home + "/.RZPClient/.tmp");

  auto registration = std::async(std::launch::async, [] { return ClientIPCRegistration(0); });
  ASSERT_EQ(registration.wait_for(10s), std::future_status::ready);
  EXPECT_FALSE(registration.get());
  EXPECT_EQ(PalvonAuthManager_Initialize(), 0xFFFFu);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

// --- waiting for the service ----------------------------------------------------

TEST(Registration, InitialiseWaitsUntilAServiceOpensThePipe) {
  auto initialise = std::async(std::launch::async, [] { return PalvonAuthManager_Initialize(); });
  EXPECT_EQ(initialise.wait_for(400ms), std::future_status::timeout);
  EXPECT_TRUE(IsFifo(RegistrationPath()));
  TestService service;
  ASSERT_EQ(initialise.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(initialise.get(), 0u);
  EXPECT_EQ(service.Registrations(), std::vector<uint32_t>{CurrentProcessId()});
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Registration, AReaderThatComesAndGoesNeitherKillsNorLosesTheRegistration) {
  // A process that opens and closes the registration pipe while a client
  // registers: the client's write must not raise SIGPIPE, and the record
  // must still reach the service that starts afterwards.
  const std::string path = RegistrationPath();
  ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(PalvonAuthManager_Initialize() == 0 && PalvonAuthManager_Uninitialize() == 0 ? 0 : 1);
  const auto until = std::chrono::steady_clock::now() + 300ms;
  while (std::chrono::steady_clock::now() < until) {
    const int fd = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    if (fd >= 0) close(fd);
  }
  TestService service;
  EXPECT_EQ(WaitForChild(child, 30s), 0);
  EXPECT_EQ(service.Registrations(), std::vector<uint32_t>{static_cast<uint32_t>(child)});
}

// --- several clients --------------------------------------------------------------

TEST(Registration, TwoClientProcessesRegisterThroughTheSamePipe) {
  // The children are forked before the service thread exists; each one
  // blocks in its registration until the service below opens the pipe.
  std::vector<pid_t> children;
  for (int i = 0; i < 2; ++i) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
      const AMResult initialised = PalvonAuthManager_Initialize();
      const AMResult uninitialised = PalvonAuthManager_Uninitialize();
      _exit(initialised != 0 ? 1 : uninitialised != 0 ? 2 : 0);
    }
    children.push_back(child);
  }
  TestService service;
  for (const pid_t child : children) EXPECT_EQ(WaitForChild(child, 30s), 0) << "child " << child;

  const auto records = service.RegistrationBytes();
  ASSERT_EQ(records.size(), 2u);
  std::set<std::vector<uint8_t>> expected;
  for (const pid_t child : children) expected.insert(ExpectedRecord(static_cast<uint32_t>(child)));
  EXPECT_EQ(std::set<std::vector<uint8_t>>(records.begin(), records.end()), expected);

  // Each client then talked to the service over its own pipes.
  for (const pid_t child : children) {
    std::vector<uint32_t> types;
    for (const auto& request : service.Requests()) {
      if (request.processId == static_cast<uint32_t>(child)) types.push_back(request.type);
    }
    EXPECT_EQ(types, (std::vector<uint32_t>{msg::kGetServerSDKVersion, msg::kInitialize, msg::kUninitialize}))
        << "child " << child;
  }
}
