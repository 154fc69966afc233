#include "ipc/CLinuxIPC.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

#include "ipc/ForkGeneration.h"
#include "ipc/OwnedFiles.h"
#include "PalvonAuthManagerTracer.h"
#include "ipc/PipeFolder.h"
#include "message/MessageCommon.h"
#include "protocol/FrameCodec.h"
#include "util/CSDKUtils.h"

namespace PalvonAuthManagerSDK {

namespace {

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

void CloseIfOpen(int& fd) {
  if (fd >= 0) close(fd);
  fd = -1;
}

}  // namespace

CLinuxIPC::CLinuxIPC(const std::string& name) : IIPC(name), generation_(ForkGeneration()) {
  // Without a private pipe folder the paths stay empty and nothing opens.
  const std::string directory = getUserTmpDir();
  if (directory.empty()) return;
  const std::string base = directory + "/" + name;
  readPath_ = base + kReplyPipeSuffix;
  writePath_ = base + kRequestPipeSuffix;
}

CLinuxIPC::~CLinuxIPC() { CLinuxIPC::Close(); }

std::string CLinuxIPC::getUserTmpDir() {
  return FindPipeFolder([](PipeFolderNote note, const std::string& line) {
    // Falling back is the library's own business: it goes to the trace, not
    // to the host application's standard error. A refused folder is told there too.
    if (note == PipeFolderNote::kFallback) {
      CTracer::Msg(L"%ls", CSDKUtils::WidenBytes(line).c_str());
      return;
    }
    std::fprintf(stderr, "%s\n", line.c_str());
    std::fflush(stderr);
    CTracer::Err(L"%ls", CSDKUtils::WidenBytes(line).c_str());
  });
}

int CLinuxIPC::OpenPipe(const std::string& path, bool create, dev_t& device, ino_t& inode) {
  if (path.empty()) return -1;
  if (create && !MakeOwnedFifo(path)) {
    // Something else holds this process's pipe name in the private folder (a
    // link, a file, a stale entry): it is ours to replace.
    if (errno != EEXIST || unlink(path.c_str()) != 0 || !MakeOwnedFifo(path)) return -1;
  }
  const int fd = OpenOwnedFifo(path, O_RDWR);
  if (fd < 0) return -1;
  struct stat status {};
  if (fstat(fd, &status) != 0) {
    close(fd);
    return -1;
  }
  device = status.st_dev;
  inode = status.st_ino;
  return fd;
}

bool CLinuxIPC::Open() {
  // The mode is widened through a descriptor of the FIFO, never through the
  // path; Connect opens the pipes for use.
  struct Pipe {
    const std::string& path;
    dev_t& device;
    ino_t& inode;
  };
  for (const Pipe& pipe : {Pipe{readPath_, readDevice_, readInode_}, Pipe{writePath_, writeDevice_, writeInode_}}) {
    const int fd = OpenPipe(pipe.path, true, pipe.device, pipe.inode);
    if (fd == -1) return false;
    (void)WidenPermission(fd);
    close(fd);
  }
  return true;
}

bool CLinuxIPC::Listen(unsigned int /*backlog*/) { return Open(); }

bool CLinuxIPC::Connect(unsigned int /*timeout*/, bool /*retry*/) {
  if (readFd_ == -1) {
    const int fd = OpenPipe(readPath_, false, readDevice_, readInode_);
    if (fd == -1) return false;
    readFd_ = fd;
  }
  if (writeFd_ == -1) {
    const int fd = OpenPipe(writePath_, false, writeDevice_, writeInode_);
    if (fd == -1) return false;
    // Requests are written piecewise while the service reads, so that a
    // large request never blocks for good when the service is gone.
    (void)fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    writeFd_ = fd;
  }
  closed_ = false;
  return true;
}

bool CLinuxIPC::ConnectReadPipeUntilSuccess() {
  if (readFd_ != -1) return false;
  for (;;) {
    if (closed_) return false;
    const int fd = OpenPipe(readPath_, false, readDevice_, readInode_);
    if (fd != -1) {
      readFd_ = fd;
      closed_ = false;
      return true;
    }
    if (errno != ENOENT) return false;
    usleep(100000);
  }
}

bool CLinuxIPC::WatchService(int registrationFd) {
  if (released_) {
    if (registrationFd >= 0) close(registrationFd);
    return false;
  }
  CloseIfOpen(epollFd_);
  CloseIfOpen(watchFd_);
  watchFd_ = registrationFd;
  if (watchFd_ < 0) return false;
  epollFd_ = epoll_create1(EPOLL_CLOEXEC);
  if (epollFd_ < 0) return false;
  struct epoll_event event {};
  event.events = EPOLLOUT | EPOLLET;
  if (epoll_ctl(epollFd_, EPOLL_CTL_ADD, watchFd_, &event) != 0) {
    CloseIfOpen(epollFd_);
    return false;
  }
  // The first report is the pipe's state now (writable), not a change.
  (void)epoll_wait(epollFd_, &event, 1, 0);
  serviceLost_ = false;
  return true;
}

bool CLinuxIPC::ServiceLost() {
  if (serviceLost_) return true;
  if (epollFd_ < 0 || released_) return false;
  // Any wake-up of the registration pipe's writers after registering means
  // its reader went away (it may be back by now: a new service that does not
  // know this process); the set stays readable, and poll only looks.
  struct pollfd event {epollFd_, POLLIN, 0};
  if (poll(&event, 1, 0) > 0) serviceLost_ = true;
  return serviceLost_;
}

bool CLinuxIPC::Inherited() const { return generation_ != ForkGeneration(); }

bool CLinuxIPC::Write(const unsigned char* buffer, unsigned int length) {
  // Closed descriptors keep their numbers; writing through a number the
  // process may have reused for another file must never happen. A child of
  // fork() never writes into its parent's channel.
  if (released_ || Inherited() || serviceLost_) return false;
  size_t done = 0;
  while (done < length) {
    const ssize_t written = write(writeFd_, buffer + done, length - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
    } else if (written < 0 && errno == EINTR) {
      continue;
    } else if (written == 0 || errno != EAGAIN || !WaitWritable()) {
      return false;
    }
  }
  return true;
}

bool CLinuxIPC::WaitWritable() {
  for (;;) {
    struct pollfd wait {
      writeFd_, POLLOUT, 0
    };
    const int ready = poll(&wait, 1, kReadStepMs);
    if (closed_) return false;
    if (ready < 0 && errno != EINTR) return false;
    if ((wait.revents & POLLOUT) != 0) return true;
    if ((wait.revents & (POLLERR | POLLNVAL)) != 0 || (ready == 0 && ServiceLost())) return false;
  }
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
      // The service is looked after only in steps that brought nothing, so
      // a prompt reply costs no more than before; a lost one is seen within
      // one step.
      if (ServiceLost()) throw std::runtime_error("service gone");
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
  const uint32_t bodyLength = wire::ReadEnvelope(header).bodyLength;
  if (bodyLength > kMaxReplyBodyLength) throw std::runtime_error("read error");

  // The buffer grows with the bytes that really arrive: a declared length
  // alone never costs more than the first step.
  constexpr size_t kFirstStep = 1024 * 1024;
  MallocBuffer frame;
  size_t capacity = std::min<size_t>(bodyLength, kFirstStep);
  frame.data = static_cast<uint8_t*>(std::malloc(kMessagePrefixSize + capacity));
  if (frame.data == nullptr) throw std::runtime_error("read error");
  std::memcpy(frame.data, header, sizeof header);
  size_t done = 0;
  for (;;) {
    ReadFully(frame.data + kMessagePrefixSize + done, capacity - done, true);
    done = capacity;
    if (done == bodyLength) break;
    capacity = std::min<size_t>(bodyLength, capacity * 2);
    auto* grown = static_cast<uint8_t*>(std::realloc(frame.data, kMessagePrefixSize + capacity));
    if (grown == nullptr) throw std::runtime_error("read error");
    frame.data = grown;
  }

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
  if (!released_.exchange(true)) {
    if (readFd_ > 0) close(readFd_);
    if (writeFd_ > 0) close(writeFd_);
    if (epollFd_ >= 0) close(epollFd_);
    if (watchFd_ >= 0) close(watchFd_);
  }
}

void CLinuxIPC::Close() {
  CloseFd();
  // A child of fork() leaves its parent's pipes alone; and only the very
  // FIFOs this channel opened are removed, never what now has their names.
  if (Inherited()) return;
  if (readInode_ != 0) (void)RemoveFifoIfSame(readPath_, readDevice_, readInode_);
  if (writeInode_ != 0) (void)RemoveFifoIfSame(writePath_, writeDevice_, writeInode_);
}

void CLinuxIPC::Free(unsigned char* /*buffer*/) {}

}  // namespace PalvonAuthManagerSDK
