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

std::vector<uint8_t> VersionReplyFrame() {
  LinuxDictionary values;
  values.SetUInt(L"return", 0);
  values.SetUInt(L"version", 2);
  return Frame(values, msg::kGetServerSDKVersion);
}

void WriteAll(int fd, const uint8_t* data, size_t length) {
  size_t done = 0;
  while (done < length) {
    const ssize_t written = write(fd, data + done, length - done);
    ASSERT_GT(written, 0) << std::strerror(errno);
    done += static_cast<size_t>(written);
  }
}

void WriteAll(int fd, const std::vector<uint8_t>& bytes) { WriteAll(fd, bytes.data(), bytes.size()); }

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

// The text of the std::runtime_error that `action` throws, or a marker.
std::string RuntimeErrorOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const std::runtime_error& error) {
    return error.what();
  } catch (...) {
    return "<other exception>";
  }
  return "<no exception>";
}

// The character string that `action` throws, or a marker.
std::string CStringThrownBy(const std::function<void()>& action) {
  try {
    action();
  } catch (const char* text) {
    return text;
  } catch (...) {
    return "<other exception>";
  }
  return "<no exception>";
}

}  // namespace

// --- frames ------------------------------------------------------------------

TEST_F(ConnectedChannel, RequestGoesOutAsItsEncodingAndReplyComesBackDecoded) {
  LinuxDictionary request(MessageCommon(msg::kGetVersion, CurrentProcessId()));
  request.SetUInt(L"AuthManagerHandle", 17);
  request.SetWideString(L"text", L"h\u00e9llo");
  const std::vector<uint8_t> expected = Frame(request, msg::kGetVersion);

  ASSERT_TRUE(channel.Write(request));
  const std::vector<uint8_t> sent = service->Requests();
  EXPECT_EQ(sent, expected);
  ASSERT_GE(sent.size(), 12u);
  uint32_t bodyLength = 0;
  std::memcpy(&bodyLength, sent.data() + 8, 4);
  EXPECT_EQ(bodyLength, sent.size() - 12);

  LinuxDictionary values;
  values.SetUInt(L"return", 0);
  values.SetWideString(L"version", L"9.1");
  values.SetInt(L"signed", -5);
  service->Reply(Frame(values, msg::kGetVersion));
  const LinuxDictionary reply = channel.Read();
  EXPECT_EQ(reply.Header().messageType, msg::kGetVersion);
  EXPECT_EQ(reply.Header().processId, CurrentProcessId());
  unsigned int result = 1;
  EXPECT_TRUE(reply.GetUInt(L"return", &result));
  EXPECT_EQ(result, 0u);
  ASSERT_NE(reply.GetString(L"version"), nullptr);
  EXPECT_EQ(std::wstring(reply.GetString(L"version")), L"9.1");
  int32_t signedValue = 0;
  EXPECT_TRUE(reply.GetInt(L"signed", &signedValue));
  EXPECT_EQ(signedValue, -5);
}

TEST_F(ConnectedChannel, TwoFramesInThePipeAreReadOneAtATime) {
  LinuxDictionary first;
  first.SetUInt(L"n", 1);
  LinuxDictionary second;
  second.SetUInt(L"n", 2);
  second.SetWideString(L"extra", L"more bytes than the first frame");
  std::vector<uint8_t> both = Frame(first, 5);
  const std::vector<uint8_t> tail = Frame(second, 7);
  both.insert(both.end(), tail.begin(), tail.end());
  service->Reply(both);

  unsigned int n = 0;
  const LinuxDictionary one = channel.Read();
  EXPECT_EQ(one.Header().messageType, 5u);
  EXPECT_TRUE(one.GetUInt(L"n", &n));
  EXPECT_EQ(n, 1u);
  EXPECT_EQ(one.GetString(L"extra"), nullptr);
  const LinuxDictionary two = channel.Read();
  EXPECT_EQ(two.Header().messageType, 7u);
  EXPECT_TRUE(two.GetUInt(L"n", &n));
  EXPECT_EQ(n, 2u);
  EXPECT_NE(two.GetString(L"extra"), nullptr);
}

TEST_F(ConnectedChannel, ReplyWithEmptyBodyGivesOnlyTheHeader) {
  service->Reply(Header(msg::kGetServerSDKVersion, 4711, 0));
  const LinuxDictionary reply = channel.Read();
  EXPECT_EQ(reply.Header().messageType, msg::kGetServerSDKVersion);
  EXPECT_EQ(reply.Header().processId, 4711u);
  EXPECT_TRUE(reply.IntValues().empty());
  EXPECT_TRUE(reply.UIntValues().empty());
  EXPECT_TRUE(reply.ByteValues().empty());
  EXPECT_TRUE(reply.NarrowStringValues().empty());
  EXPECT_TRUE(reply.WideStringValues().empty());
  EXPECT_TRUE(reply.BufferValues().empty());

  // The next frame starts right after the 12 bytes.
  service->Reply(VersionReplyFrame());
  unsigned int version = 0;
  EXPECT_TRUE(channel.Read().GetUInt(L"version", &version));
  EXPECT_EQ(version, 2u);
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
    size_t offset = 0;
    for (size_t i = 0; offset < frame.size(); ++i) {
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
  EXPECT_EQ(received->first.size(), blob.size());
  EXPECT_TRUE(received->first == blob);
}

// --- limits on what is accepted ---------------------------------------------

TEST_F(ConnectedChannel, DeclaredBodyOverTheLimitIsAReadErrorWithoutWaitingForIt) {
  service->Reply(Header(msg::kGetVersion, CurrentProcessId(), kMaxReplyBodyLength + 1));
  EXPECT_EQ(RuntimeErrorOf([&] { (void)channel.Read(); }), "read error");
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
    const std::vector<uint8_t> marker = VersionReplyFrame();
    (void)WriteAllOrGiveUp(replies, marker.data(), marker.size());
  });
  LinuxDictionary big;
  EXPECT_NO_THROW(big = channel.Read());
  EXPECT_EQ(big.Header().messageType, msg::kGetVersion);
  LinuxDictionary marker;
  EXPECT_NO_THROW(marker = channel.Read());
  writer.join();
  unsigned int version = 0;
  EXPECT_TRUE(marker.GetUInt(L"version", &version));
  EXPECT_EQ(version, 2u);
}

// --- closing ---------------------------------------------------------------

TEST_F(ConnectedChannel, CloseFdFromAnotherThreadEndsAWaitingRead) {
  auto reader = std::async(std::launch::async, [&] {
    return RuntimeErrorOf([&] { (void)channel.Read(); });
  });
  EXPECT_EQ(reader.wait_for(200ms), std::future_status::timeout);
  channel.CloseFd();
  EXPECT_EQ(reader.get(), "descriptor error - closed?");
}

TEST_F(ConnectedChannel, ReadAfterCloseFdFailsEvenWithDataWaiting) {
  service->Reply(VersionReplyFrame());
  channel.CloseFd();
  EXPECT_EQ(RuntimeErrorOf([&] { (void)channel.Read(); }), "descriptor error - closed?");
}

TEST_F(ConnectedChannel, FrameAlreadyTakenFromThePipeIsNotHandedOutAfterCloseFd) {
  // Both small frames leave the pipe with the first read; the second must
  // still not come out of a closed channel.
  std::vector<uint8_t> both = VersionReplyFrame();
  const std::vector<uint8_t> second = VersionReplyFrame();
  both.insert(both.end(), second.begin(), second.end());
  service->Reply(both);
  EXPECT_NO_THROW((void)channel.Read());
  channel.CloseFd();
  EXPECT_EQ(RuntimeErrorOf([&] { (void)channel.Read(); }), "descriptor error - closed?");
}

TEST_F(ConnectedChannel, CloseFdClosesEachDescriptorOnlyOnce) {
  const int readFd = channel.ReadFd();
  const int writeFd = channel.WriteFd();
  channel.CloseFd();
  EXPECT_FALSE(IsOpen(readFd));
  EXPECT_FALSE(IsOpen(writeFd));
  // The numbers stay stored; once reused elsewhere they must not be closed again.
  EXPECT_EQ(channel.ReadFd(), readFd);
  EXPECT_EQ(channel.WriteFd(), writeFd);
  const int reusedA = open("/dev/null", O_RDONLY | O_CLOEXEC);
  const int reusedB = open("/dev/null", O_RDONLY | O_CLOEXEC);
  channel.CloseFd();
  channel.Close();
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
  EXPECT_EQ(CStringThrownBy([&] { (void)channel.Read(); }), "Can not create read pipe!");
  EXPECT_EQ(channel.ReadFd(), -1);
  close(probe);
}

TEST_F(ConnectedChannel, CloseRemovesBothPipeFiles) {
  const std::string readPath = channel.ReadPath();
  const std::string writePath = channel.WritePath();
  EXPECT_TRUE(Exists(readPath));
  channel.Close();
  EXPECT_FALSE(Exists(readPath));
  EXPECT_FALSE(Exists(writePath));
}

TEST(Channel, DestructionRemovesBothPipeFiles) {
  std::string readPath;
  std::string writePath;
  {
    CLinuxIPC channel(Name());
    ASSERT_TRUE(channel.Open());
    ASSERT_TRUE(channel.Connect(0, false));
    readPath = channel.ReadPath();
    writePath = channel.WritePath();
    ASSERT_TRUE(Exists(readPath));
  }
  EXPECT_FALSE(Exists(readPath));
  EXPECT_FALSE(Exists(writePath));
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
  const LinuxDictionary reply = reader.get();
  close(replies);
  unsigned int version = 0;
  EXPECT_TRUE(reply.GetUInt(L"version", &version));
  EXPECT_EQ(version, 2u);
  EXPECT_NE(channel.ReadFd(), -1);
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
  auto reader = std::async(std::launch::async, [&] {
    return CStringThrownBy([&] { (void)channel.Read(); });
  });
  EXPECT_EQ(reader.wait_for(250ms), std::future_status::timeout);
  channel.CloseFd();
  ASSERT_EQ(reader.wait_for(10s), std::future_status::ready);
  EXPECT_EQ(reader.get(), "Can not create read pipe!");
}

TEST(Channel, ReadPipeThatCannotBeOpenedIsACharacterStringException) {
  CLinuxIPC channel(Name());
  ASSERT_EQ(mkdir(channel.ReadPath().c_str(), 0700), 0);  // EISDIR, not ENOENT: no retrying
  EXPECT_EQ(CStringThrownBy([&] { (void)channel.Read(); }), "Can not create read pipe!");
  rmdir(channel.ReadPath().c_str());
}

// --- making and opening the pipes --------------------------------------------

TEST(Channel, ListenMakesThePipesExactlyAsOpenDoes) {
  const mode_t previous = umask(022);
  {
    CLinuxIPC listening(Name());
    EXPECT_TRUE(listening.Listen(5));
    EXPECT_TRUE(IsFifoWithMode(listening.ReadPath(), 0666));
    EXPECT_TRUE(IsFifoWithMode(listening.WritePath(), 0666));
  }
  {
    CLinuxIPC opened(Name());
    EXPECT_TRUE(opened.Open());
    EXPECT_TRUE(IsFifoWithMode(opened.ReadPath(), 0666));
    EXPECT_TRUE(IsFifoWithMode(opened.WritePath(), 0666));
  }
  umask(previous);
}

TEST(Channel, OpenAndListenAcceptExistingFifosAndWidenThem) {
  const mode_t previous = umask(022);
  CLinuxIPC channel(Name());
  ASSERT_EQ(mkfifo(channel.ReadPath().c_str(), 0600), 0);
  ASSERT_EQ(mkfifo(channel.WritePath().c_str(), 0600), 0);
  EXPECT_TRUE(channel.Listen(5));
  EXPECT_TRUE(IsFifoWithMode(channel.ReadPath(), 0666));
  EXPECT_TRUE(IsFifoWithMode(channel.WritePath(), 0666));
  chmod(channel.ReadPath().c_str(), 0600);
  chmod(channel.WritePath().c_str(), 0600);
  EXPECT_TRUE(channel.Open());
  EXPECT_TRUE(IsFifoWithMode(channel.ReadPath(), 0666));
  EXPECT_TRUE(IsFifoWithMode(channel.WritePath(), 0666));
  umask(previous);
}

TEST(Channel, OpenAndListenFailWhenThePipesCannotBeMade) {
  CLinuxIPC channel("no-such-folder/" + Name());
  EXPECT_FALSE(channel.Open());
  EXPECT_FALSE(channel.Listen(5));
  EXPECT_FALSE(Exists(channel.ReadPath()));
}

TEST(Channel, ConnectFailsForMissingPipesAndKeepsWhatItOpened) {
  CLinuxIPC channel(Name());
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
}

TEST_F(ConnectedChannel, EveryDescriptorIsCloseOnExec) {
  EXPECT_TRUE(CloseOnExec(channel.ReadFd()));
  EXPECT_TRUE(CloseOnExec(channel.WriteFd()));
}

TEST(Channel, WriteWithoutADescriptorFails) {
  CLinuxIPC channel(Name());
  LinuxDictionary request(MessageCommon(msg::kGetServerSDKVersion, CurrentProcessId()));
  EXPECT_FALSE(channel.Write(request));
}
