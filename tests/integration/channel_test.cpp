// The FIFO channel on its own, with the service's ends of the two pipes
// played by the test: frames out and in, waiting, closing, descriptor
// handling and the limits on what is accepted.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "ipc/CLinuxIPC.h"
#include "ipc/PipeDirectory.h"
#include "message/LinuxDictionary.h"
#include "message/MessageTypes.h"
#include "message/WireFormat.h"

using namespace PalvonAuthManagerSDK;
using namespace std::chrono_literals;

namespace {

std::string Name() { return ClientChannelName(CurrentProcessId()); }

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

bool IsFifoWithMode(const std::string& path, mode_t mode) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode) && (status.st_mode & 07777) == mode;
}

bool IsOpen(int fd) { return fcntl(fd, F_GETFD) != -1; }

// The unsigned value stored under `key`, or -1 when there is none.
int64_t UIntOf(const LinuxDictionary& message, const wchar_t* key) {
  unsigned int value = 0;
  return message.GetUInt(key, &value) ? static_cast<int64_t>(value) : -1;
}

bool CloseOnExec(int fd) {
  const int flags = fcntl(fd, F_GETFD);
  return flags != -1 && (flags & FD_CLOEXEC) != 0;
}

std::vector<uint8_t> Header(uint32_t type, uint32_t pid, uint32_t bodyLength) {
  std::vector<uint8_t> bytes(12);
  std::memcpy(bytes.data(), &type, 4);
  std::memcpy(bytes.data() + 4, &pid, 4);
  std::memcpy(bytes.data() + 8, &bodyLength, 4);
  return bytes;
}

// The encoded frame of `values` under the envelope {type, this process}.
std::vector<uint8_t> Frame(const LinuxDictionary& values, uint32_t type) {
  LinuxDictionary message(values);
  message.Header() = MessageCommon(type, CurrentProcessId());
  const uint8_t* bytes = message.Serialize(false);
  return std::vector<uint8_t>(bytes, bytes + message.EncodedLength());
}

std::vector<uint8_t> VersionReplyFrame(uint32_t version = 2) {
  LinuxDictionary values;
  values.SetUInt(L"return", 0);
  values.SetUInt(L"version", version);
  return Frame(values, msg::kGetServerSDKVersion);
}

// For writer threads: gives up (false) when the reader stops taking bytes
// for 5 seconds, so that a reader that returned early cannot hang the test.
bool WriteAllOrGiveUp(int fd, const uint8_t* data, size_t length) {
  const int flags = fcntl(fd, F_GETFL);
  fcntl(fd, F_SETFL, flags | O_NONBLOCK);
  size_t done = 0;
  while (done < length) {
    const ssize_t written = write(fd, data + done, length - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
      continue;
    }
    if (written < 0 && errno != EAGAIN && errno != EINTR) break;
    struct pollfd wait {
      fd, POLLOUT, 0
    };
    if (poll(&wait, 1, 5000) <= 0) break;
  }
  fcntl(fd, F_SETFL, flags);
  return done == length;
}

void WriteAll(int fd, const std::vector<uint8_t>& bytes) {
  ASSERT_TRUE(WriteAllOrGiveUp(fd, bytes.data(), bytes.size()));
}

// The service's ends of a connected channel: it reads requests from the
// channel's write pipe and writes replies into its read pipe.
class ServiceEnd {
 public:
  explicit ServiceEnd(const CLinuxIPC& channel)
      : requests_(open(channel.WritePath().c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC)),
        replies_(open(channel.ReadPath().c_str(), O_WRONLY | O_CLOEXEC)) {}
  ~ServiceEnd() {
    if (requests_ >= 0) close(requests_);
    if (replies_ >= 0) close(replies_);
  }
  ServiceEnd(const ServiceEnd&) = delete;
  ServiceEnd& operator=(const ServiceEnd&) = delete;

  bool Ready() const { return requests_ >= 0 && replies_ >= 0; }
  int Replies() const { return replies_; }
  void Reply(const std::vector<uint8_t>& bytes) { WriteAll(replies_, bytes); }

  // Everything the channel has written so far (waits up to 5 s for the first byte).
  std::vector<uint8_t> Requests() {
    std::vector<uint8_t> bytes;
    struct pollfd wait {
      requests_, POLLIN, 0
    };
    if (poll(&wait, 1, 5000) <= 0) return bytes;
    uint8_t chunk[4096];
    ssize_t got;
    while ((got = read(requests_, chunk, sizeof chunk)) > 0) bytes.insert(bytes.end(), chunk, chunk + got);
    return bytes;
  }

 private:
  int requests_;
  int replies_;
};

// A channel with both pipes made and opened.
class ConnectedChannel : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(channel.Open());
    ASSERT_TRUE(channel.Connect(0, false));
    service = std::make_unique<ServiceEnd>(channel);
    ASSERT_TRUE(service->Ready());
  }

  CLinuxIPC channel{Name()};
  std::unique_ptr<ServiceEnd> service;
};

// What `action` throws: "runtime_error: <what>", "char*: <text>", or a marker.
std::string ThrownBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return std::string("runtime_error: ") + error.what();
  } catch (const char* text) {
    return std::string("char*: ") + text;
  } catch (...) {
    return "<other exception>";
  }
  return "<no exception>";
}

}  // namespace

// --- frames ------------------------------------------------------------------

TEST_F(ConnectedChannel, RequestGoesOutAsItsEncodingAndRepliesComeBackDecodedOneAtATime) {
  LinuxDictionary request(MessageCommon(msg::kGetVersion, CurrentProcessId()));
  request.SetUInt(L"AuthManagerHandle", 17);
  request.SetWideString(L"text", L"h\u00e9llo");
  ASSERT_TRUE(channel.Write(request));
  const std::vector<uint8_t> sent = service->Requests();
  EXPECT_EQ(sent, Frame(request, msg::kGetVersion));
  ASSERT_GE(sent.size(), 12u);
  uint32_t bodyLength = 0;
  std::memcpy(&bodyLength, sent.data() + 8, 4);
  EXPECT_EQ(bodyLength, sent.size() - 12);

  // Two frames in the pipe at once come out one per read.
  LinuxDictionary first;
  first.SetUInt(L"return", 0);
  first.SetWideString(L"version", L"9.1");
  first.SetInt(L"signed", -5);
  LinuxDictionary second;
  second.SetUInt(L"return", 2);
  std::vector<uint8_t> both = Frame(first, msg::kGetVersion);
  const std::vector<uint8_t> tail = Frame(second, 7);
  both.insert(both.end(), tail.begin(), tail.end());
  service->Reply(both);

  const LinuxDictionary one = channel.Read();
  EXPECT_EQ(one.Header().messageType, msg::kGetVersion);
  EXPECT_EQ(one.Header().processId, CurrentProcessId());
  EXPECT_EQ(UIntOf(one, L"return"), 0);
  ASSERT_NE(one.GetString(L"version"), nullptr);
  EXPECT_EQ(std::wstring(one.GetString(L"version")), L"9.1");
  int32_t signedValue = 0;
  EXPECT_TRUE(one.GetInt(L"signed", &signedValue));
  EXPECT_EQ(signedValue, -5);
  const LinuxDictionary two = channel.Read();
  EXPECT_EQ(two.Header().messageType, 7u);
  EXPECT_EQ(UIntOf(two, L"return"), 2);
  EXPECT_EQ(two.GetString(L"version"), nullptr);
}

TEST_F(ConnectedChannel, ReplyWithEmptyBodyGivesOnlyTheHeader) {
  std::vector<uint8_t> bytes = Header(msg::kGetServerSDKVersion, 4711, 0);
  const std::vector<uint8_t> next = VersionReplyFrame();
  bytes.insert(bytes.end(), next.begin(), next.end());
  service->Reply(bytes);
  const LinuxDictionary reply = channel.Read();
  EXPECT_EQ(reply.Header().messageType, msg::kGetServerSDKVersion);
  EXPECT_EQ(reply.Header().processId, 4711u);
  EXPECT_TRUE(reply.IntValues().empty() && reply.UIntValues().empty() && reply.ByteValues().empty() &&
              reply.NarrowStringValues().empty() && reply.WideStringValues().empty() && reply.BufferValues().empty());
  // The next frame starts right after the 12 bytes.
  EXPECT_EQ(UIntOf(channel.Read(), L"version"), 2);
}

TEST_F(ConnectedChannel, LargeReplyWrittenInPiecesArrivesWhole) {
  std::vector<uint8_t> blob(200 * 1024);
  for (size_t i = 0; i < blob.size(); ++i) blob[i] = static_cast<uint8_t>(i * 7 + i / 251);
  LinuxDictionary values;
  values.SetUInt(L"return", 0);
  values.SetBuffer(L"blob", blob.data(), static_cast<unsigned int>(blob.size()));
  const std::vector<uint8_t> frame = Frame(values, msg::kReadResponseBodyStream);

  // Pieces of uneven sizes, the first one cutting the header itself.
  const int replies = service->Replies();
  std::thread writer([&] {
    const size_t sizes[] = {5, 4000, 65536, 1, 30000};
    for (size_t i = 0, offset = 0; offset < frame.size(); ++i) {
      const size_t length = std::min(sizes[i % 5], frame.size() - offset);
      if (!WriteAllOrGiveUp(replies, frame.data() + offset, length)) return;
      offset += length;
      std::this_thread::sleep_for(15ms);
    }
  });
  LinuxDictionary reply;
  EXPECT_NO_THROW(reply = channel.Read());
  writer.join();
  const LinuxDictionary::BufferValue* received = reply.FindBuffer(L"blob");
  ASSERT_NE(received, nullptr);
  EXPECT_TRUE(received->first == blob);
}

// --- limits on what is accepted ---------------------------------------------

TEST_F(ConnectedChannel, DeclaredBodyOverTheLimitIsAReadErrorWithoutWaitingForIt) {
  service->Reply(Header(msg::kGetVersion, CurrentProcessId(), kMaxReplyBodyLength + 1));
  EXPECT_EQ(ThrownBy([&] { (void)channel.Read(); }), "runtime_error: read error");
}

TEST_F(ConnectedChannel, DeclaredBodyOfExactlyTheLimitIsAccepted) {
  // A body of end-record bytes: accepted and read in full, decoding stops at once.
  const int replies = service->Replies();
  std::thread writer([&] {
    const std::vector<uint8_t> header = Header(msg::kGetVersion, CurrentProcessId(), kMaxReplyBodyLength);
    if (!WriteAllOrGiveUp(replies, header.data(), header.size())) return;
    const std::vector<uint8_t> chunk(1024 * 1024, wire::kEnd);
    for (uint32_t sent = 0; sent < kMaxReplyBodyLength; sent += static_cast<uint32_t>(chunk.size())) {
      if (!WriteAllOrGiveUp(replies, chunk.data(), chunk.size())) return;
    }
    // A marker frame right behind it shows the whole body was consumed.
    const std::vector<uint8_t> marker = VersionReplyFrame(3);
    (void)WriteAllOrGiveUp(replies, marker.data(), marker.size());
  });
  LinuxDictionary big;
  EXPECT_NO_THROW(big = channel.Read());
  EXPECT_EQ(big.Header().messageType, msg::kGetVersion);
  LinuxDictionary marker;
  EXPECT_NO_THROW(marker = channel.Read());
  writer.join();
  EXPECT_EQ(UIntOf(marker, L"version"), 3);
}

// --- closing ---------------------------------------------------------------

TEST_F(ConnectedChannel, CloseFdFromAnotherThreadEndsAWaitingRead) {
  auto reader = std::async(std::launch::async, [&] { return ThrownBy([&] { (void)channel.Read(); }); });
  EXPECT_EQ(reader.wait_for(200ms), std::future_status::timeout);
  channel.CloseFd();
  EXPECT_EQ(reader.get(), "runtime_error: descriptor error - closed?");
}

TEST_F(ConnectedChannel, NothingIsHandedOutAfterCloseFdWhetherBufferedOrStillInThePipe) {
  // Both small frames leave the pipe with the first read; the second stays
  // buffered, a third is still waiting in the pipe.
  std::vector<uint8_t> both = VersionReplyFrame();
  const std::vector<uint8_t> second = VersionReplyFrame();
  both.insert(both.end(), second.begin(), second.end());
  service->Reply(both);
  EXPECT_NO_THROW((void)channel.Read());
  service->Reply(VersionReplyFrame());
  channel.CloseFd();
  EXPECT_EQ(ThrownBy([&] { (void)channel.Read(); }), "runtime_error: descriptor error - closed?");
}

TEST_F(ConnectedChannel, CloseFdClosesEachDescriptorOnlyOnceAndCloseRemovesThePipes) {
  const int readFd = channel.ReadFd();
  const int writeFd = channel.WriteFd();
  EXPECT_TRUE(CloseOnExec(readFd));
  EXPECT_TRUE(CloseOnExec(writeFd));
  channel.CloseFd();
  EXPECT_FALSE(IsOpen(readFd));
  EXPECT_FALSE(IsOpen(writeFd));
  // The numbers stay stored; once reused elsewhere they must not be closed again.
  EXPECT_EQ(channel.ReadFd(), readFd);
  EXPECT_EQ(channel.WriteFd(), writeFd);
  const int reusedA = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int reusedB = open("/dev/null", O_RDONLY | O_CLOEXEC);
  channel.CloseFd();
  EXPECT_TRUE(Exists(channel.ReadPath()));
  channel.Close();
  EXPECT_FALSE(Exists(channel.ReadPath()));
  EXPECT_FALSE(Exists(channel.WritePath()));
  EXPECT_TRUE(IsOpen(reusedA));
  EXPECT_TRUE(IsOpen(reusedB));
  close(reusedA);
  close(reusedB);
}

TEST(Channel, CloseFdWithoutDescriptorsClosesNothingButMarksTheChannelClosed) {
  CLinuxIPC channel(Name());
  ASSERT_TRUE(channel.Open());
  const int probe = open("/dev/null", O_RDONLY | O_CLOEXEC);
  channel.CloseFd();
  EXPECT_TRUE(IsOpen(probe));
  EXPECT_TRUE(IsOpen(0));
  EXPECT_EQ(channel.ReadFd(), -1);
  EXPECT_EQ(channel.WriteFd(), -1);
  // The read pipe exists, but a closed channel does not open it: the read
  // gives up at once instead of waiting for a reply.
  EXPECT_EQ(ThrownBy([&] { (void)channel.Read(); }), "char*: Can not create read pipe!");
  EXPECT_EQ(channel.ReadFd(), -1);
  close(probe);
}

// --- a missing read pipe -------------------------------------------------------

TEST(Channel, ReadWaitsForADeletedReadPipeToBeMadeAgain) {
  CLinuxIPC channel(Name());
  ASSERT_TRUE(channel.Open());
  ASSERT_EQ(channel.ReadFd(), -1);
  ASSERT_EQ(unlink(channel.ReadPath().c_str()), 0);

  auto reader = std::async(std::launch::async, [&] { return channel.Read(); });
  EXPECT_EQ(reader.wait_for(350ms), std::future_status::timeout);

  ASSERT_EQ(mkfifo(channel.ReadPath().c_str(), 0600), 0);
  const int replies = open(channel.ReadPath().c_str(), O_RDWR | O_CLOEXEC);
  ASSERT_GE(replies, 0);
  WriteAll(replies, VersionReplyFrame());
  ASSERT_EQ(reader.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(UIntOf(reader.get(), L"version"), 2);
  close(replies);
  EXPECT_TRUE(CloseOnExec(channel.ReadFd()));
  // Now open, so a second attempt changes nothing.
  const int fd = channel.ReadFd();
  EXPECT_FALSE(channel.ConnectReadPipeUntilSuccess());
  EXPECT_EQ(channel.ReadFd(), fd);
}

TEST(Channel, ClosingWhileTheReadPipeIsMissingEndsTheRead) {
  CLinuxIPC channel(Name());
  ASSERT_TRUE(channel.Open());
  ASSERT_EQ(unlink(channel.ReadPath().c_str()), 0);
  auto reader = std::async(std::launch::async, [&] { return ThrownBy([&] { (void)channel.Read(); }); });
  EXPECT_EQ(reader.wait_for(250ms), std::future_status::timeout);
  channel.CloseFd();
  ASSERT_EQ(reader.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(reader.get(), "char*: Can not create read pipe!");
}

TEST(Channel, ReadPipeThatCannotBeOpenedIsACharacterStringException) {
  CLinuxIPC channel(Name());
  ASSERT_EQ(mkdir(channel.ReadPath().c_str(), 0700), 0);  // EISDIR, not ENOENT: no retrying
  EXPECT_EQ(ThrownBy([&] { (void)channel.Read(); }), "char*: Can not create read pipe!");
  rmdir(channel.ReadPath().c_str());
}

// --- making and opening the pipes --------------------------------------------

TEST(Channel, OpenAndListenMakeOrWidenBothPipesToMode0666) {
  const mode_t previous = umask(022);
  const auto both0666 = [](const CLinuxIPC& c) {
    return IsFifoWithMode(c.ReadPath(), 0666) && IsFifoWithMode(c.WritePath(), 0666);
  };
  {
    CLinuxIPC listening(Name());
    EXPECT_TRUE(listening.Listen(5));
    EXPECT_TRUE(both0666(listening));
  }
  {
    CLinuxIPC opened(Name());
    EXPECT_TRUE(opened.Open());
    EXPECT_TRUE(both0666(opened));
  }
  // Existing narrower FIFOs are accepted and widened.
  CLinuxIPC channel(Name());
  ASSERT_EQ(mkfifo(channel.ReadPath().c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(channel.WritePath().c_str(), 0600), 0);
  EXPECT_TRUE(channel.Listen(5));
  EXPECT_TRUE(both0666(channel));
  chmod(channel.ReadPath().c_str(), 0600);
  chmod(channel.WritePath().c_str(), 0600);
  EXPECT_TRUE(channel.Open());
  EXPECT_TRUE(both0666(channel));
  umask(previous);
}

TEST(Channel, OpenListenConnectAndWriteFailWithoutPipesAndDestructionRemovesThem) {
  CLinuxIPC unmakeable("no-such-folder/" + Name());
  EXPECT_FALSE(unmakeable.Open());
  EXPECT_FALSE(unmakeable.Listen(5));
  EXPECT_FALSE(Exists(unmakeable.ReadPath()));

  std::string readPath;
  std::string writePath;
  {
    CLinuxIPC channel(Name());
    LinuxDictionary request(MessageCommon(msg::kGetServerSDKVersion, CurrentProcessId()));
    EXPECT_FALSE(channel.Write(request));
    // Connect keeps what it managed to open.
    EXPECT_FALSE(channel.Connect(0, false));
    EXPECT_EQ(channel.ReadFd(), -1);
    EXPECT_EQ(channel.WriteFd(), -1);
    ASSERT_EQ(mkfifo(channel.ReadPath().c_str(), 0600), 0);
    EXPECT_FALSE(channel.Connect(0, false));
    EXPECT_NE(channel.ReadFd(), -1);
    EXPECT_EQ(channel.WriteFd(), -1);
    ASSERT_EQ(mkfifo(channel.WritePath().c_str(), 0600), 0);
    const int readFd = channel.ReadFd();
    EXPECT_TRUE(channel.Connect(0, false));
    EXPECT_EQ(channel.ReadFd(), readFd);
    EXPECT_NE(channel.WriteFd(), -1);
    readPath = channel.ReadPath();
    writePath = channel.WritePath();
  }
  // Destruction removes both pipe files.
  EXPECT_FALSE(Exists(readPath));
  EXPECT_FALSE(Exists(writePath));
}
