// Many application threads sharing the process's one call channel: every
// exchange is complete before the next request goes out, and every thread
// gets the answer to its own request.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "PalvonAuthManager.h"
#include "client/CClientCommLib.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/PipeDirectory.h"
#include "message/MessageTypes.h"
#include "support/TestService.h"

using namespace PalvonAuthManagerSDK;
using pam_test::Reply;
using pam_test::Request;
using pam_test::TestService;

namespace {

// Watches the client's reply pipe from the service side. When a new request
// arrives, the reply to the previous one must already have been read by the
// client; bytes still in the pipe mean two exchanges overlapped.
class OverlapWatch {
 public:
  OverlapWatch() {
    const std::string path =
        CLinuxIPC::getUserTmpDir() + "/" + ClientChannelName(CurrentProcessId()) + kReplyPipeSuffix;
    fd_ = open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  }
  ~OverlapWatch() {
    if (fd_ >= 0) close(fd_);
  }
  OverlapWatch(const OverlapWatch&) = delete;
  OverlapWatch& operator=(const OverlapWatch&) = delete;

  bool Valid() const { return fd_ >= 0; }
  // Called by the service for each request, before it answers.
  void Check() {
    int pending = 0;
    if (ioctl(fd_, FIONREAD, &pending) == 0 && pending != 0) overlaps_.fetch_add(1);
  }
  int Overlaps() const { return overlaps_.load(); }

 private:
  int fd_ = -1;
  std::atomic<int> overlaps_{0};
};

// Runs body(t) on `count` threads at once and waits for all of them.
void InThreads(int count, const std::function<void(int)>& body) {
  std::vector<std::thread> threads;
  for (int t = 0; t < count; ++t) threads.emplace_back(body, t);
  for (auto& thread : threads) thread.join();
}

}  // namespace

TEST(Concurrency, EightThreadsOfFiveHundredCallsGetTheirOwnAnswersInTurn) {
  constexpr int kThreads = 8;
  constexpr int kCalls = 500;
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  OverlapWatch watch;
  ASSERT_TRUE(watch.Valid());
  // Every answer carries the request's own "tag".
  service.SetHandler([&](const Request& request) {
    watch.Check();
    Reply reply = Reply::Return(0);
    unsigned int tag = 0;
    if (request.message.GetUInt(L"tag", &tag)) reply.UInt(L"tag", tag);
    return reply;
  });
  const size_t before = service.RequestCount();

  std::atomic<int> mismatches{0};
  std::atomic<int> failures{0};
  InThreads(kThreads, [&](int t) {
    const boost::shared_ptr<CClientCommLib> channel = CurrentChannel();
    for (int i = 0; i < kCalls; ++i) {
      const uint32_t tag = static_cast<uint32_t>(t) * 100000u + static_cast<uint32_t>(i);
      try {
        LinuxDictionary request(MessageCommon(msg::kGetServerSDKVersion, CurrentProcessId()));
        request.SetUInt(L"tag", tag);
        const LinuxDictionary reply = channel->MakeCall(request);
        unsigned int result = 1;
        unsigned int echoed = 0;
        if (!reply.GetUInt(L"return", &result) || result != 0) failures.fetch_add(1);
        if (!reply.GetUInt(L"tag", &echoed) || echoed != tag) mismatches.fetch_add(1);
      } catch (...) {
        failures.fetch_add(1);
      }
    }
  });

  EXPECT_EQ(failures.load(), 0);
  EXPECT_EQ(mismatches.load(), 0);
  EXPECT_EQ(watch.Overlaps(), 0);
  ASSERT_EQ(service.RequestCount(), before + kThreads * kCalls);
  // Every request arrived whole and exactly once.
  std::vector<int> seen(kThreads * kCalls, 0);
  const auto requests = service.Requests();
  for (size_t k = before; k < requests.size(); ++k) {
    unsigned int tag = 0;
    ASSERT_TRUE(requests[k].message.GetUInt(L"tag", &tag));
    const unsigned int t = tag / 100000u;
    const unsigned int i = tag % 100000u;
    ASSERT_LT(t, static_cast<unsigned int>(kThreads));
    ASSERT_LT(i, static_cast<unsigned int>(kCalls));
    ++seen[t * kCalls + i];
  }
  for (int count : seen) ASSERT_EQ(count, 1);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Concurrency, ExportedOperationsFromSeveralThreadsEachGetTheirOwnText) {
  constexpr int kThreads = 4;
  constexpr int kCalls = 100;
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  OverlapWatch watch;
  ASSERT_TRUE(watch.Valid());
  // The version text names the connection handle it was asked for.
  service.SetHandler([&](const Request& request) {
    watch.Check();
    Reply reply = Reply::Return(0);
    unsigned int handle = 0;
    if (request.message.GetUInt(L"AuthManagerHandle", &handle)) {
      reply.Wide(L"version", L"v" + std::to_wstring(handle));
    }
    return reply;
  });

  std::atomic<int> wrong{0};
  InThreads(kThreads, [&](int t) {
    for (int i = 0; i < kCalls; ++i) {
      const ConnectionHandle handle = static_cast<ConnectionHandle>(t * 1000 + i + 1);
      AMChar* text = nullptr;
      const AMResult result = PalvonAuthManager_GetVersion(handle, &text);
      if (result != 0 || text == nullptr || std::wstring(text) != L"v" + std::to_wstring(handle)) {
        wrong.fetch_add(1);
      }
      (void)PalvonAuthManager_FreeString(text);
    }
  });
  EXPECT_EQ(wrong.load(), 0);
  EXPECT_EQ(watch.Overlaps(), 0);
  EXPECT_EQ(service.RequestsOfType(msg::kGetVersion).size(), static_cast<size_t>(kThreads * kCalls));
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Concurrency, UninitialiseWhileSixteenThreadsCallEndsEveryCallCleanly) {
  // Calls racing the last Uninitialize either complete or find the library
  // uninitialised; none reaches a released channel or object.
  constexpr int kThreads = 16;
  TestService service;
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
    std::atomic<int> started{0};
    std::atomic<int> unexpected{0};
    std::thread closer([&] {
      while (started.load() < kThreads) std::this_thread::yield();
      EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
    });
    InThreads(kThreads, [&](int) {
      started.fetch_add(1);
      for (int i = 0; i < 50; ++i) {
        const AMResult result = PalvonAuthManager_DestroyConnection(1);
        if (result != 0 && result != 0xFFFDu && result != 0xFFF8u) unexpected.fetch_add(1);
      }
    });
    closer.join();
    EXPECT_EQ(unexpected.load(), 0);
    EXPECT_FALSE(IsInitialised());
  }
}
