// The 20-second wait budget of one channel read. Each case waits about
// 20 seconds, so this program carries the `slow` label.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <future>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ipc/CLinuxIPC.h"
#include "ipc/PipeDirectory.h"
#include "message/LinuxDictionary.h"
#include "message/MessageTypes.h"

using namespace PalvonAuthManagerSDK;
using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

namespace {

std::vector<uint8_t> VersionReplyFrame() {
  LinuxDictionary message;
  message.SetUInt(L"return", 0);
  message.SetUInt(L"version", 2);
  message.Header() = MessageCommon(msg::kGetServerSDKVersion, CurrentProcessId());
  const uint8_t* bytes = message.Serialize(false);
  return std::vector<uint8_t>(bytes, bytes + message.EncodedLength());
}

bool WriteAll(int fd, const uint8_t* data, size_t length) {
  size_t done = 0;
  while (done < length) {
    const ssize_t written = write(fd, data + done, length - done);
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

enum class Outcome { kFrame, kTimeOut, kRuntimeError, kOther };

struct ReadResult {
  Outcome outcome = Outcome::kOther;
  std::string text;
  Clock::duration elapsed{};
  LinuxDictionary message;
};

ReadResult TimedRead(CLinuxIPC& channel) {
  ReadResult result;
  const auto start = Clock::now();
  try {
    result.message = channel.Read();
    result.outcome = Outcome::kFrame;
  } catch (const std::runtime_error& error) {
    result.outcome = Outcome::kRuntimeError;
    result.text = error.what();
  } catch (const std::exception&) {
    result.outcome = Outcome::kTimeOut;
  } catch (...) {
    result.outcome = Outcome::kOther;
  }
  result.elapsed = Clock::now() - start;
  return result;
}

class SlowChannel : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(channel.Open());
    ASSERT_TRUE(channel.Connect(0, false));
    replies = open(channel.ReadPath().c_str(), O_WRONLY | O_CLOEXEC);
    ASSERT_GE(replies, 0);
  }
  void TearDown() override {
    if (replies >= 0) close(replies);
  }

  // Starts a read now and writes `bytes` into the reply pipe after `delay`.
  ReadResult ReadWithReplyAfter(std::chrono::milliseconds delay, const std::vector<uint8_t>& bytes) {
    auto reader = std::async(std::launch::async, [&] { return TimedRead(channel); });
    std::this_thread::sleep_for(delay);
    EXPECT_TRUE(WriteAll(replies, bytes.data(), bytes.size()));
    return reader.get();
  }

  CLinuxIPC channel{ClientChannelName(CurrentProcessId())};
  int replies = -1;
};

}  // namespace

TEST_F(SlowChannel, ReplyAfterNineteenSecondsIsRead) {
  const ReadResult result = ReadWithReplyAfter(19s, VersionReplyFrame());
  ASSERT_EQ(result.outcome, Outcome::kFrame) << result.text;
  // It really waited (the reader starts a moment after the writer's clock).
  EXPECT_GE(result.elapsed, 18s);
  unsigned int version = 0;
  EXPECT_TRUE(result.message.GetUInt(L"version", &version));
  EXPECT_EQ(version, 2u);
}

TEST_F(SlowChannel, ReplyAfterTwentyOneSecondsIsNotReadByTheWaitingRead) {
  const std::vector<uint8_t> frame = VersionReplyFrame();
  const ReadResult result = ReadWithReplyAfter(21s, frame);
  // A plain std::exception, not a runtime error: the caller may start over.
  EXPECT_EQ(result.outcome, Outcome::kTimeOut) << result.text;
  EXPECT_GE(result.elapsed, 20s);
  // The late frame is still in the pipe for the next read.
  const ReadResult next = TimedRead(channel);
  ASSERT_EQ(next.outcome, Outcome::kFrame) << next.text;
  unsigned int version = 0;
  EXPECT_TRUE(next.message.GetUInt(L"version", &version));
}

TEST_F(SlowChannel, FrameThatStopsHalfWayIsAReadErrorAfterTheBudget) {
  // Header and part of the body, then nothing: the rest of the frame is lost
  // for good, which is a runtime error rather than a time-out to retry.
  const std::vector<uint8_t> frame = VersionReplyFrame();
  ASSERT_TRUE(WriteAll(replies, frame.data(), 40));
  const ReadResult result = TimedRead(channel);
  EXPECT_EQ(result.outcome, Outcome::kRuntimeError);
  EXPECT_EQ(result.text, "read error");
  EXPECT_GE(result.elapsed, 20s);
}
