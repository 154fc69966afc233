// The call channel: the FIFO channel on its own (the service's ends of its
// pipes played by the test), then the process's one channel shared by
// threads, closed under a waiting call, losing its service, and inherited by
// a forked child. Built twice: with PAM_SLOW_CHANNEL only the cases that wait
// out the 20-second read budget (the `slow` program), without it the others.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <climits>
#include <cstdio>
#include <filesystem>
#include <functional>
#include <future>
#include <mutex>
#include <stdexcept>
#include <thread>

#include "PalvonAuthManager.h"
#include "client/CClientCommLib.h"
#include "util/Utf8.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/PipeFolder.h"
#include "message/LinuxDictionary.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"
#include "protocol/WireFormat.h"
#include "support/ChildProcess.h"
#include "support/TempHome.h"
#include "support/TestService.h"

using namespace PalvonAuthManagerSDK;
using namespace std::chrono_literals;
using pam_test::FileKind;
using pam_test::Reply;
using pam_test::Request;
using pam_test::TestService;

// Not in an anonymous namespace: each build of this file uses only some helpers.
std::string Name() { return ClientChannelName(CurrentProcessId()); }
bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }
bool CloseOnExec(int fd) { return (fcntl(fd, F_GETFD) & FD_CLOEXEC) != 0; }

std::vector<uint8_t> Header(uint32_t type, uint32_t pid, uint32_t bodyLength) {
  const uint32_t words[3] = {type, pid, bodyLength};
  return std::vector<uint8_t>(reinterpret_cast<const uint8_t*>(words), reinterpret_cast<const uint8_t*>(words) + 12);
}

// The encoded frame {type, this process}: return=<code> and, when given, version=<version>.
std::vector<uint8_t> Frame(uint32_t type, uint32_t code, int64_t version = -1) {
  LinuxDictionary message;
  message.SetUInt(L"return", code);
  if (version >= 0) message.SetUInt(L"version", static_cast<uint32_t>(version));
  message.Header() = MessageCommon(type, CurrentProcessId());
  const uint8_t* bytes = message.Serialize(false);
  return std::vector<uint8_t>(bytes, bytes + message.EncodedLength());
}

std::vector<uint8_t> operator+(std::vector<uint8_t> a, const std::vector<uint8_t>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// Gives up when the reader takes nothing for 5 seconds, so that a reader that
// returned early cannot hang the test.
bool WriteAll(int fd, const std::vector<uint8_t>& bytes) {
  struct pollfd wait {
    fd, POLLOUT, 0
  };
  size_t done = 0;
  while (done < bytes.size() && poll(&wait, 1, 5000) == 1) {
    const ssize_t written = write(fd, bytes.data() + done, std::min<size_t>(PIPE_BUF, bytes.size() - done));
    done += written > 0 ? static_cast<size_t>(written) : 0;
  }
  return done == bytes.size();
}

// What one Read gives: the frame's envelope and unsigned values, or what it threw.
std::string ReadOutcome(CLinuxIPC& channel) {
  try {
    const LinuxDictionary m = channel.Read();
    std::string out = "type=" + std::to_string(m.Header().messageType) + " pid=" +
                      (m.Header().processId == CurrentProcessId() ? "self" : std::to_string(m.Header().processId));
    for (const auto& [key, value] : m.UIntValues()) out += " " + PalvonAuthManagerSDK::ToUtf8(key) + "=" + std::to_string(value);
    return out;
  } catch (const std::runtime_error& error) {
    return std::string("runtime_error: ") + error.what();
  } catch (const std::exception&) {
    return "time-out";
  } catch (const char* text) {
    return std::string("char*: ") + text;
  }
}

// A channel with both pipes made and opened, and the service's ends of them.
struct Connected {
  explicit Connected(const std::string& name = Name()) : channel(name) {
    EXPECT_TRUE(channel.Open() && channel.Connect(0, false));
    requests = open(channel.WritePath().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
    replies = open(channel.ReadPath().c_str(), O_WRONLY | O_CLOEXEC);
  }
  ~Connected() {
    close(requests);
    close(replies);
  }
  // Starts a read now and writes `bytes` into the reply pipe after `delay`.
  std::string ReadWithReplyAfter(std::chrono::milliseconds delay, const std::vector<uint8_t>& bytes) {
    auto reader = std::async(std::launch::async, [this] { return ReadOutcome(channel); });
    std::this_thread::sleep_for(delay);
    EXPECT_TRUE(WriteAll(replies, bytes));
    return reader.get();
  }
  CLinuxIPC channel;
  int requests = -1;
  int replies = -1;
};

#ifdef PAM_SLOW_CHANNEL

// A reply within the budget is read; one after it is left for the next read
// (a plain std::exception: the caller may start over); a frame that stops half
// way is lost for good, a runtime error rather than a time-out to retry. The
// three cases wait side by side, each on a channel of its own.
TEST(SlowChannel, WaitsOutTheBudget) {
  const std::tuple<int, bool, const char*, const char*> cases[] = {
      {18, false, "type=83 pid=self return=0 version=2", ""},
      {22, false, "time-out", "type=83 pid=self return=0 version=2"},
      {0, true, "runtime_error: read error", ""}};
  std::vector<std::future<void>> running;
  for (const auto& [seconds, half, outcome, next] : cases) {
    running.push_back(
        std::async(std::launch::async, [&, seconds = seconds, half = half, outcome = outcome, next = next] {
          Connected c(Name() + std::to_string(seconds));
          const auto start = std::chrono::steady_clock::now();
          const std::vector<uint8_t> frame = Frame(83, 0, 2);
          const std::vector<uint8_t> sent(frame.begin(), half ? frame.begin() + 40 : frame.end());
          EXPECT_EQ(c.ReadWithReplyAfter(std::chrono::seconds(seconds), sent), outcome) << seconds;
          EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(seconds == 18 ? 18 : 20));
          EXPECT_EQ(next[0] == '\0' ? "" : ReadOutcome(c.channel), next) << seconds;
        }));
  }
  for (auto& done : running) done.get();
}

#else

TEST(Channel, FramesInThePipeTogetherComeOutOnePerRead) {
  // A frame may have no body at all; the next one starts right behind its 12 bytes.
  Connected c;
  ASSERT_TRUE(WriteAll(c.replies, Frame(59, 0, 9) + Frame(7, 2) + Header(83, 4711, 0) + Frame(83, 0, 2)));
  for (const char* expected : {"type=59 pid=self return=0 version=9", "type=7 pid=self return=2", "type=83 pid=4711",
                               "type=83 pid=self return=0 version=2"}) {
    EXPECT_EQ(ReadOutcome(c.channel), expected);
  }
}

TEST(Channel, BodyOfTheLimitIsReadWholeAndOneByteMoreIsAReadErrorAtOnce) {
  // A body of end-record bytes: read in full, decoding stops at once; the
  // frame behind it shows the whole body was consumed.
  Connected c;
  std::thread writer([&] {
    bool ok = WriteAll(c.replies, Header(59, CurrentProcessId(), kMaxReplyBodyLength));
    for (uint32_t sent = 0; ok && sent < kMaxReplyBodyLength; sent += 1024 * 1024) {
      ok = WriteAll(c.replies, std::vector<uint8_t>(1024 * 1024, wire::kEnd));
    }
  });
  EXPECT_EQ(ReadOutcome(c.channel), "type=59 pid=self");
  writer.join();
  ASSERT_TRUE(WriteAll(c.replies, Frame(83, 0, 3) + Header(59, CurrentProcessId(), kMaxReplyBodyLength + 1)));
  EXPECT_EQ(ReadOutcome(c.channel), "type=83 pid=self return=0 version=3");
  EXPECT_EQ(ReadOutcome(c.channel), "runtime_error: read error");
}

TEST(Channel, CloseFdEndsAWaitingReadAndNothingIsHandedOutAfterIt) {
  {
    Connected c;
    auto reader = std::async(std::launch::async, [&] { return ReadOutcome(c.channel); });
    EXPECT_EQ(reader.wait_for(200ms), std::future_status::timeout);
    c.channel.CloseFd();
    EXPECT_EQ(reader.get(), "runtime_error: descriptor error - closed?");
  }
  // The first read takes both small frames from the pipe and keeps the
  // second; a third waits in the pipe. Neither is handed out once closed.
  Connected c;
  ASSERT_TRUE(WriteAll(c.replies, Frame(83, 0, 2) + Frame(83, 0, 3)));
  EXPECT_EQ(ReadOutcome(c.channel), "type=83 pid=self return=0 version=2");
  ASSERT_TRUE(WriteAll(c.replies, Frame(83, 0, 4)));
  c.channel.CloseFd();
  EXPECT_EQ(ReadOutcome(c.channel), "runtime_error: descriptor error - closed?");
}

TEST(Channel, CloseFdClosesEachDescriptorOnceAndCloseRemovesThePipes) {
  Connected c;
  const int readFd = c.channel.ReadFd(), writeFd = c.channel.WriteFd();
  EXPECT_TRUE(CloseOnExec(readFd) && CloseOnExec(writeFd));
  c.channel.CloseFd();
  EXPECT_FALSE(IsOpen(readFd) || IsOpen(writeFd));
  // The numbers stay stored; once reused elsewhere they must not be closed again.
  EXPECT_TRUE(c.channel.ReadFd() == readFd && c.channel.WriteFd() == writeFd);
  const int reusedA = open("/dev/null", O_RDONLY | O_CLOEXEC), reusedB = open("/dev/null", O_RDONLY | O_CLOEXEC);
  c.channel.CloseFd();
  EXPECT_EQ(FileKind(c.channel.ReadPath()), "fifo 0666");
  c.channel.Close();
  EXPECT_EQ(FileKind(c.channel.ReadPath()) + " " + FileKind(c.channel.WritePath()), "none none");
  EXPECT_TRUE(IsOpen(reusedA) && IsOpen(reusedB));
  close(reusedA);
  close(reusedB);
}

TEST(Channel, AReadPipeThatCannotBeOpenedIsACharacterStringException) {
  const std::string refused = "char*: Can not create read pipe!";
  {
    // Closed without descriptors: nothing else is closed, and the read gives
    // up at once although the read pipe exists.
    CLinuxIPC channel(Name());
    ASSERT_TRUE(channel.Open());
    const int probe = open("/dev/null", O_RDONLY | O_CLOEXEC);
    channel.CloseFd();
    EXPECT_TRUE(IsOpen(probe) && IsOpen(0));
    EXPECT_EQ(ReadOutcome(channel), refused);
    EXPECT_EQ(channel.ReadFd() + channel.WriteFd(), -2);
    close(probe);
  }
  {
    // Missing: the read waits for it to be made again, until the channel is closed.
    CLinuxIPC channel(Name());
    ASSERT_TRUE(channel.Open());
    ASSERT_EQ(unlink(channel.ReadPath().c_str()), 0);
    auto reader = std::async(std::launch::async, [&] { return ReadOutcome(channel); });
    EXPECT_EQ(reader.wait_for(250ms), std::future_status::timeout);
    channel.CloseFd();
    ASSERT_EQ(reader.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(reader.get(), refused);
  }
  // A folder in its place (EISDIR, not ENOENT): no retrying.
  CLinuxIPC channel(Name());
  ASSERT_EQ(mkdir(channel.ReadPath().c_str(), 0700), 0);
  EXPECT_EQ(ReadOutcome(channel), refused);
  rmdir(channel.ReadPath().c_str());
}

TEST(Channel, ReadWaitsForADeletedReadPipeToBeMadeAgain) {
  CLinuxIPC channel(Name());
  ASSERT_TRUE(channel.Open());
  ASSERT_EQ(channel.ReadFd(), -1);
  ASSERT_EQ(unlink(channel.ReadPath().c_str()), 0);
  auto reader = std::async(std::launch::async, [&] { return ReadOutcome(channel); });
  EXPECT_EQ(reader.wait_for(350ms), std::future_status::timeout);
  ASSERT_EQ(mkfifo(channel.ReadPath().c_str(), 0600), 0);
  const int replies = open(channel.ReadPath().c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_TRUE(WriteAll(replies, Frame(83, 0, 2)));
  ASSERT_EQ(reader.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(reader.get(), "type=83 pid=self return=0 version=2");
  close(replies);
  EXPECT_TRUE(CloseOnExec(channel.ReadFd()));
  // Now open, so a second attempt changes nothing.
  const int fd = channel.ReadFd();
  EXPECT_FALSE(channel.ConnectReadPipeUntilSuccess());
  EXPECT_EQ(channel.ReadFd(), fd);
}

TEST(Channel, OpenAndListenMakeOrWidenBothPipesToMode0666AndKeepNothingOpen) {
  const mode_t previous = umask(022);
  const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
  const auto openBefore = openFiles();
  const auto both = [](const CLinuxIPC& c) { return FileKind(c.ReadPath()) + " " + FileKind(c.WritePath()); };
  for (const bool listen : {true, false}) {
    CLinuxIPC made(Name());
    EXPECT_TRUE(listen ? made.Listen(5) : made.Open());
    EXPECT_EQ(both(made), "fifo 0666 fifo 0666");
  }
  // Existing narrower FIFOs are accepted and widened.
  CLinuxIPC channel(Name());
  for (const bool listen : {true, false}) {
    ASSERT_EQ(listen ? mkfifo(channel.ReadPath().c_str(), 0600) : chmod(channel.ReadPath().c_str(), 0600), 0);
    ASSERT_EQ(listen ? mkfifo(channel.WritePath().c_str(), 0600) : chmod(channel.WritePath().c_str(), 0600), 0);
    EXPECT_TRUE(listen ? channel.Listen(5) : channel.Open());
    EXPECT_EQ(both(channel), "fifo 0666 fifo 0666");
  }
  EXPECT_EQ(openFiles(), openBefore);
  umask(previous);
}

TEST(Channel, OpenListenConnectAndWriteFailWithoutPipesAndDestructionRemovesThem) {
  CLinuxIPC unmakeable("no-such-folder/" + Name());
  EXPECT_FALSE(unmakeable.Open() || unmakeable.Listen(5));
  EXPECT_EQ(FileKind(unmakeable.ReadPath()), "none");
  auto channel = std::make_unique<CLinuxIPC>(Name());
  LinuxDictionary request(MessageCommon(msg::kGetServerSDKVersion, CurrentProcessId()));
  EXPECT_FALSE(channel->Write(request));
  // Connect keeps what it managed to open.
  EXPECT_FALSE(channel->Connect(0, false));
  EXPECT_EQ(channel->ReadFd() + channel->WriteFd(), -2);
  ASSERT_EQ(mkfifo(channel->ReadPath().c_str(), 0600), 0);
  EXPECT_FALSE(channel->Connect(0, false));
  const int readFd = channel->ReadFd();
  EXPECT_NE(readFd, -1);
  EXPECT_EQ(channel->WriteFd(), -1);
  ASSERT_EQ(mkfifo(channel->WritePath().c_str(), 0600), 0);
  EXPECT_TRUE(channel->Connect(0, false));
  EXPECT_EQ(channel->ReadFd(), readFd);
  EXPECT_NE(channel->WriteFd(), -1);
  const std::string readPath = channel->ReadPath(), writePath = channel->WritePath();
  channel.reset();
  EXPECT_EQ(FileKind(readPath) + " " + FileKind(writePath), "none none");
}

namespace {

std::string PipeBase() { return CLinuxIPC::getUserTmpDir() + "/" + Name(); }

void InThreads(int count, const std::function<void(int)>& body) {
  std::vector<std::thread> threads;
  for (int t = 0; t < count; ++t) threads.emplace_back(body, t);
  for (auto& thread : threads) thread.join();
}

// A call that hangs fails the test instead of the whole run.
AMResult WithoutHanging(const std::function<AMResult()>& call) {
  auto pending = std::async(std::launch::async, call);
  if (pending.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    ADD_FAILURE() << "the call did not return";
    std::_Exit(1);
  }
  return pending.get();
}

// One exchange with the service (the test service answers it with 0).
AMResult Probe() { return PalvonAuthManager_DestroyConnection(1); }

// A forked child holds copies of the test service's thread state, which the
// leak checker would report at the child's exit.
bool g_inForkedChild = false;

}  // namespace

extern "C" int __lsan_is_turned_off() { return g_inForkedChild ? 1 : 0; }

TEST(Threads, CallsSharingTheChannelEachGetTheirOwnAnswerOneExchangeAtATime) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  // Watches the reply pipe from the service side: a reply still unread when
  // the next request arrives means two exchanges overlapped.
  const int replies = open((PipeBase() + kReplyPipeSuffix).c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(replies, 0);
  std::atomic<int> overlaps{0}, wrong{0};
  std::mutex mutex;
  std::map<unsigned int, std::vector<uint8_t>> bodies;
  unsigned int nextHandle = 100;
  // Each answer carries what identifies its request: a text naming the
  // connection handle, or the body stored under the request handle.
  service.SetHandler([&](const Request& request) {
    int pending = 0;
    if (ioctl(replies, FIONREAD, &pending) == 0 && pending != 0) overlaps.fetch_add(1);
    std::lock_guard<std::mutex> lock(mutex);
    Reply reply = Reply::Return(0);
    unsigned int value = 0;
    if (request.message.GetUInt(L"AuthManagerHandle", &value)) reply.Wide(L"version", L"v" + std::to_wstring(value));
    if (request.type == msg::kCreateAMHttpRequest) reply.UInt(L"httpHandle", nextHandle++);
    (void)request.message.GetUInt(L"httpHandle", &value);
    if (const auto* data = request.message.FindBuffer(L"amByteData")) bodies[value] = data->first;
    if (request.type == msg::kReadResponseBodyStream && !bodies[value].empty()) {
      reply.Buffer(L"amByteData", bodies[value]);
      bodies[value].clear();
    }
    return reply;
  });
  // Eight threads of 250 version texts, three of four whole HTTP exchanges.
  InThreads(11, [&](int t) {
    for (int i = 0; t < 8 && i < 250; ++i) {
      const ConnectionHandle handle = static_cast<ConnectionHandle>(t * 1000 + i + 1);
      AMChar* text = nullptr;
      const AMResult result = PalvonAuthManager_GetVersion(handle, &text);
      if (result != 0 || text == nullptr || std::wstring(text) != L"v" + std::to_wstring(handle)) wrong.fetch_add(1);
      (void)PalvonAuthManager_FreeString(text);
    }
    for (int round = 0; t >= 8 && round < 4; ++round) {
      const std::string payload = "thread " + std::to_string(t) + " round " + std::to_string(round);
      AMHttpHandle http = 0;
      AMByte buffer[64];
      AMUint read = 0;
      const bool ok = PalvonAuthManager_CreateAMHttpRequest(7, &http) == 0 &&
                      PalvonAuthManager_SetRequestData(http, reinterpret_cast<const AMByte*>(payload.data()),
                                                       static_cast<AMUint>(payload.size())) == 0 &&
                      PalvonAuthManager_SendRequestAndReceiveResponse(http) == 0 &&
                      PalvonAuthManager_ReadResponseBodyStream(http, buffer, sizeof buffer, &read) == 0 &&
                      std::string(reinterpret_cast<char*>(buffer), read) == payload &&
                      PalvonAuthManager_DestroyAMHttpRequest(http) == 0;
      if (!ok) wrong.fetch_add(1);
    }
  });
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(overlaps.load(), 0);
  // Every request arrived whole and exactly once.
  std::map<unsigned int, int> seen, types;
  for (const auto& request : service.Requests()) {
    unsigned int handle = 0;
    ++types[request.type];
    if (request.type == msg::kGetVersion && request.message.GetUInt(L"AuthManagerHandle", &handle)) ++seen[handle];
  }
  EXPECT_EQ(seen.size(), 8u * 250u);
  for (const auto& [handle, count] : seen) EXPECT_EQ(count, 1) << handle;
  EXPECT_EQ(types[msg::kCreateAMHttpRequest], 12);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  close(replies);
}

TEST(Threads, UninitializeRacingSixteenCallersEndsEveryCallCleanly) {
  // Racing calls either complete or find the library uninitialised; none
  // reaches a released channel or object.
  TestService service;
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
    std::atomic<int> started{0}, unexpected{0};
    std::thread closer([&] {
      while (started.load() < 16) std::this_thread::yield();
      EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
    });
    InThreads(16, [&](int) {
      started.fetch_add(1);
      for (int i = 0; i < 50; ++i) {
        const AMResult result = Probe();
        if (result != 0 && result != 0xFFFDu && result != 0xFFF8u) unexpected.fetch_add(1);  // 65533, 65528
      }
    });
    closer.join();
    EXPECT_EQ(unexpected.load(), 0);
    EXPECT_FALSE(IsInitialised());
  }
}

TEST(Threads, ChannelClosedUnderAWaitingCallFailsItAndLeavesNothingBehind) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  const size_t before = service.RequestCount();
  service.Script(msg::kCreateConnection, {Reply::Silent()});
  std::thread closer([&] {
    if (!service.WaitForRequests(before + 1)) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));  // the caller is inside its wait by now
    CurrentChannel()->Close();
  });
  ConnectionHandle handle = 77;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"c", nullptr, nullptr, &handle), rc::kCommunicationFailure);
  EXPECT_EQ(handle, 77u);
  closer.join();
  // Nothing more can be sent: the service is not told, everything is released.
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), rc::kCommunicationFailure);
  EXPECT_FALSE(IsInitialised());
  EXPECT_FALSE(CurrentChannel());
}

TEST(Threads, ALostServiceFailsCallsAtOnceAndANewOneIsReachedAfterReinitialising) {
  auto service = std::make_unique<TestService>();
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_EQ(Probe(), 0u);
  // Gone between two calls: a request larger than the pipe holds fails
  // instead of blocking in its write.
  service.reset();
  const std::vector<AMByte> body(200 * 1024, 0x5A);
  EXPECT_EQ(WithoutHanging([&] { return PalvonAuthManager_SetRequestData(1, body.data(), 200 * 1024); }), 0xFFF8u);
  EXPECT_EQ(WithoutHanging(Probe), 0xFFF8u);
  EXPECT_EQ(WithoutHanging(PalvonAuthManager_Uninitialize), 0xFFF8u);

  // Gone during a call and replaced at once by a service that does not know
  // this process: the call in flight and the next one fail.
  service = std::make_unique<TestService>();
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  service->Script(msg::kDestroyConnection, {Reply::Silent()});
  const size_t before = service->RequestCount();
  std::thread restart([&] {
    (void)service->WaitForRequests(before + 1);
    service.reset();
    service = std::make_unique<TestService>();
  });
  EXPECT_EQ(WithoutHanging(Probe), 0xFFF8u);
  restart.join();
  EXPECT_EQ(WithoutHanging(Probe), 0xFFF8u);
  // Uninitialise and initialise again in the same process: served anew.
  EXPECT_EQ(WithoutHanging(PalvonAuthManager_Uninitialize), 0xFFF8u);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_EQ(Probe(), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Threads, AForkedChildNeitherUsesNorRemovesItsParentsChannel) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  std::fflush(nullptr);
  const pid_t child = pam_test::ForkChild([] {
    g_inForkedChild = true;
    // Calls through the inherited channel fail; after initialising its own
    // channel the child is served; exit() runs the library's destructors.
    const bool inheritedFails = Probe() == 0xFFF8u;
    const bool ownWorks = PalvonAuthManager_Initialize() == 0u && Probe() == 0u;
    std::exit(inheritedFails && ownWorks && PalvonAuthManager_Uninitialize() == 0u ? 0 : 1);
    return 1;
  });
  EXPECT_EQ(pam_test::WaitChild(child), 0);
  struct stat info {};
  EXPECT_EQ(stat((PipeBase() + "Read").c_str(), &info), 0);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Probe(), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

#endif
