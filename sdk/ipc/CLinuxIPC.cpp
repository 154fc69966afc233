#include "ipc/CLinuxIPC.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "ipc/PipeDirectory.h"
#include "message/MessageCommon.h"

namespace PalvonAuthManagerSDK {

namespace {

bool MakeFifo(const std::string& path) {
  if (mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) return false;
  (void)ChangePermission(path.c_str());
  return true;
}

int OpenReadWrite(const std::string& path) { return open(path.c_str(), O_RDWR | O_CLOEXEC); }

// Owns a malloc'ed buffer until it is handed on.
struct MallocBuffer {
  uint8_t* data = nullptr;
  ~MallocBuffer() { std::free(data); }
  uint8_t* Release() {
    uint8_t* out = data;
    data = nullptr;
    return out;
  }
};

}  // namespace

CLinuxIPC::CLinuxIPC(const std::string& name) : IIPC(name) {
  const std::string base = getUserTmpDir() + "/" + name;
  readPath_ = base + kReplyPipeSuffix;
  writePath_ = base + kRequestPipeSuffix;
}

CLinuxIPC::~CLinuxIPC() { CLinuxIPC::Close(); }

bool CLinuxIPC::Open() { return MakeFifo(readPath_) && MakeFifo(writePath_); }

bool CLinuxIPC::Listen(unsigned int /*backlog*/) { return Open(); }

bool CLinuxIPC::Connect(unsigned int /*timeout*/, bool /*retry*/) {
  if (readFd_ == -1) {
    const int fd = OpenReadWrite(readPath_);
    if (fd == -1) return false;
    readFd_ = fd;
  }
  if (writeFd_ == -1) {
    const int fd = OpenReadWrite(writePath_);
    if (fd == -1) return false;
    writeFd_ = fd;
  }
  closed_ = false;
  return true;
}

bool CLinuxIPC::ConnectReadPipeUntilSuccess() {
  if (readFd_ != -1) return false;
  for (;;) {
    if (closed_) return false;
    const int fd = OpenReadWrite(readPath_);
    if (fd != -1) {
      readFd_ = fd;
      closed_ = false;
      return true;
    }
    if (errno != ENOENT) return false;
    usleep(100000);
  }
}

bool CLinuxIPC::Write(const unsigned char* buffer, unsigned int length) {
  // Closed descriptors keep their numbers; writing through a number the
  // process may have reused for another file must never happen.
  if (released_) return false;
  const ssize_t written = write(writeFd_, buffer, length);
  return written >= 0 && static_cast<size_t>(written) == length;
}

bool CLinuxIPC::Write(LinuxDictionary& message) {
  const uint8_t* frame = message.Serialize(true);
  return Write(frame, message.EncodedLength());
}

void CLinuxIPC::WaitReadable(int& budget, bool midFrame) {
  // The budget is also real time: on a busy machine a 10 ms step can last
  // longer, and the wait must still end when the budget has passed.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(budget);
  for (;;) {
    // poll rather than select: descriptors above FD_SETSIZE must work too.
    struct pollfd wait {
      readFd_, POLLIN, 0
    };
    const int ready = poll(&wait, 1, kReadStepMs);
    const int error = errno;
    if (closed_) throw std::runtime_error("descriptor error - closed?");
    if (ready > 0) return;
    if (ready == 0) {
      budget -= kReadStepMs;
      if (budget > 0 && std::chrono::steady_clock::now() >= deadline) budget = 0;
      if (budget <= 0) {
        // Before a frame starts, a time-out only means "nothing yet" and the
        // caller may start over; inside a frame the rest is lost for good.
        if (midFrame) throw std::runtime_error("read error");
        throw std::exception();
      }
      continue;
    }
    if (error == EINTR) continue;
    throw std::runtime_error("select error");
  }
}

void CLinuxIPC::ReadFully(uint8_t* into, size_t length, bool midFrame) {
  // Reads smaller than this go through the buffer, so that a whole small
  // frame costs one read; larger remainders are read straight into place.
  constexpr size_t kBufferSize = 16 * 1024;
  size_t done = 0;
  while (done < length) {
    if (bufferedStart_ < bufferedEnd_) {
      const size_t take = std::min(length - done, bufferedEnd_ - bufferedStart_);
      std::memcpy(into + done, buffer_.get() + bufferedStart_, take);
      bufferedStart_ += take;
      done += take;
      continue;
    }
    int budget = kReadBudgetMs;
    WaitReadable(budget, midFrame || done > 0);
    const size_t wanted = length - done;
    const bool direct = wanted >= kBufferSize;
    if (!direct && buffer_ == nullptr) buffer_.reset(new uint8_t[kBufferSize]);
    const ssize_t got = direct ? read(readFd_, into + done, wanted) : read(readFd_, buffer_.get(), kBufferSize);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) throw std::runtime_error("read error");
    if (direct) {
      done += static_cast<size_t>(got);
    } else {
      bufferedStart_ = 0;
      bufferedEnd_ = static_cast<size_t>(got);
    }
  }
}

LinuxDictionary CLinuxIPC::Read() {
  if (readFd_ == -1 && !ConnectReadPipeUntilSuccess()) {
    throw "Can not create read pipe!";  // NOLINT(hicpp-exception-baseclass): callers tell it apart on purpose
  }
  // A closed channel hands out nothing, not even bytes already buffered.
  if (closed_) throw std::runtime_error("descriptor error - closed?");
  uint8_t header[kMessagePrefixSize];
  ReadFully(header, sizeof header, false);
  uint32_t bodyLength = 0;
  std::memcpy(&bodyLength, header + 8, sizeof bodyLength);
  if (bodyLength > kMaxReplyBodyLength) throw std::runtime_error("read error");

  MallocBuffer frame;
  frame.data = static_cast<uint8_t*>(std::malloc(kMessagePrefixSize + bodyLength));
  if (frame.data == nullptr) throw std::runtime_error("read error");
  std::memcpy(frame.data, header, sizeof header);
  ReadFully(frame.data + kMessagePrefixSize, bodyLength, true);

  // The frame brings its own envelope, so the message starts as a copy of
  // an empty one instead of a fresh default (which would ask the system for
  // the process id on every read).
  static const LinuxDictionary kEmpty;
  LinuxDictionary message(kEmpty);
  message.AdoptEncoding(frame.Release(), kMessagePrefixSize + bodyLength);
  message.Deserialize();
  return message;
}

void CLinuxIPC::CloseFd() {
  // The flag goes first, so that a waiting reader that wakes on the closed
  // descriptor reports the closing, not a failed read.
  closed_ = true;
  // The descriptor numbers stay stored, so the channel is never reopened;
  // they are closed only once, since the numbers may be reused afterwards.
  if ((readFd_ > 0 || writeFd_ > 0) && !released_.exchange(true)) {
    if (readFd_ > 0) close(readFd_);
    if (writeFd_ > 0) close(writeFd_);
  }
}

void CLinuxIPC::Close() {
  CloseFd();
  (void)unlink(readPath_.c_str());
  (void)unlink(writePath_.c_str());
}

void CLinuxIPC::Free(unsigned char* /*buffer*/) {}

}  // namespace PalvonAuthManagerSDK
