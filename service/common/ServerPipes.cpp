#include "common/ServerPipes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "ipc/OwnedFiles.h"
#include "protocol/Keys.h"
#include "protocol/Operations.h"
#include "protocol/PipeNames.h"

namespace pam_service {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;
namespace wire = PalvonAuthManagerSDK::wire;

namespace {

/** Buffer size asked for a client's reply pipe (the usual limit for unprivileged processes). */
constexpr int kReplyPipeBytes = 1024 * 1024;

constexpr size_t kPrefix = wire::kEnvelopeSize;
/** Most bytes taken from the registration pipe per read call. */
constexpr size_t kRegistrationReadLimit = 4096;
/** Most bytes of a request frame read per call, so a session between reads stays responsive. */
constexpr size_t kFrameReadBudget = 1u << 20;

int Remaining(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Appends up to `limit` bytes of what the descriptor has to `into`; returns
// bytes read, 0 at end-of-file, -1 when nothing is available now, -2 on error.
ssize_t Drain(int fd, std::vector<uint8_t>& into, size_t limit) {
  ssize_t total = 0;
  uint8_t chunk[kRegistrationReadLimit];
  while (static_cast<size_t>(total) < limit) {
    const size_t want = std::min(sizeof chunk, limit - static_cast<size_t>(total));
    const ssize_t got = read(fd, chunk, want);
    if (got > 0) {
      into.insert(into.end(), chunk, chunk + got);
      total += got;
      continue;
    }
    if (got == 0) return total > 0 ? total : 0;
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return total > 0 ? total : -1;
    return -2;
  }
  return total;
}

bool SameFile(const std::string& path, const FileId& id) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && status.st_dev == id.device && status.st_ino == id.inode;
}

}  // namespace

FileId IdOf(int fd) {
  struct stat status {};
  FileId id;
  if (fd >= 0 && fstat(fd, &status) == 0) {
    id.device = status.st_dev;
    id.inode = status.st_ino;
  }
  return id;
}

std::string PipeProblem(int error) {
  switch (error) {
    case ELOOP:
      return "it is a symbolic link";
    case EPERM:
      return "it is not a FIFO of this user";
    case EEXIST:
      return "a link, a file of another kind or another user's file is in its place";
    default:
      return std::strerror(error);
  }
}

bool RegistrationRecord::WellFormed() const {
  return messageType == PalvonAuthManagerSDK::msg::kRegistration && bodyLength == kPrefix && processId != 0;
}

Fd::~Fd() { Reset(); }

Fd& Fd::operator=(Fd&& other) noexcept {
  if (this != &other) Reset(other.Release());
  return *this;
}

int Fd::Release() {
  const int fd = fd_;
  fd_ = -1;
  return fd;
}

void Fd::Reset(int fd) {
  if (fd_ >= 0) close(fd_);
  fd_ = fd;
}

RegistrationPipe::RegistrationPipe(std::string directory)
    : path_(std::move(directory) + "/" + PalvonAuthManagerSDK::kRegistrationPipeName) {}

bool RegistrationPipe::Open() {
  if (!PalvonAuthManagerSDK::MakeOwnedFifo(path_)) return false;
  const int fd = PalvonAuthManagerSDK::OpenOwnedFifo(path_, O_RDWR | O_NONBLOCK);
  if (fd < 0) return false;
  // Every user's clients write here; the mode is set on the FIFO that was
  // opened, never through the name.
  if (fchmod(fd, 0666) != 0) {
    const int error = errno;
    close(fd);
    errno = error;
    return false;
  }
  fd_.Reset(fd);
  return true;
}

std::vector<RegistrationRecord> RegistrationPipe::ReadRecords() {
  (void)Drain(fd_.Get(), pending_, kRegistrationReadLimit);
  std::vector<RegistrationRecord> records;
  size_t offset = 0;
  while (pending_.size() - offset >= kPrefix) {
    records.push_back(RegistrationRecord{wire::ReadEnvelope(pending_.data() + offset)});
    offset += kPrefix;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(offset));
  return records;
}

namespace {

// True when the bytes [at, end) could be the beginning of a well-formed record.
bool CouldStartRecord(const uint8_t* at, const uint8_t* end) {
  uint8_t expected[kPrefix];
  wire::WriteEnvelope(expected, {PalvonAuthManagerSDK::msg::kRegistration, 0, kPrefix});
  for (size_t i = 0; at + i < end && i < kPrefix; ++i) {
    if ((i < 4 || i >= 8) && at[i] != expected[i]) return false;
  }
  return true;
}

}  // namespace

std::vector<RegistrationRecord> RegistrationPipe::ReadValidRecords(size_t& discarded) {
  discarded = 0;
  (void)Drain(fd_.Get(), pending_, kRegistrationReadLimit);
  std::vector<RegistrationRecord> records;
  const uint8_t* const begin = pending_.data();
  const uint8_t* const end = begin + pending_.size();
  const uint8_t* at = begin;
  while (static_cast<size_t>(end - at) >= kPrefix) {
    const RegistrationRecord record{wire::ReadEnvelope(at)};
    if (record.WellFormed()) {
      records.push_back(record);
      at += kPrefix;
    } else {
      ++at;
      ++discarded;
    }
  }
  while (at < end && !CouldStartRecord(at, end)) {
    ++at;
    ++discarded;
  }
  pending_.erase(pending_.begin(), pending_.begin() + (at - begin));
  return records;
}

ReadStatus FrameReader::Read(int fd, std::vector<uint8_t>& raw, LinuxDictionary& decoded) {
  if (failed_) return ReadStatus::kError;
  size_t budget = kFrameReadBudget;
  while (budget > 0) {
    if (have_ == frame_.size()) {
      // Full: grow by doubling, at least a page at a time, never beyond the
      // frame's own length. The buffer is thus at most about twice what
      // has arrived, and at most the frame.
      const size_t target = std::min(wanted_, std::max(have_ + 4096, frame_.size() * 2));
      frame_.reserve(target);
      frame_.resize(target);
    }
    const size_t step = std::min(frame_.size() - have_, budget);
    const ssize_t got = read(fd, frame_.data() + have_, step);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return ReadStatus::kNeedMore;
    if (got < 0) {
      failed_ = true;
      return ReadStatus::kError;
    }
    if (got == 0) return ReadStatus::kClosed;
    have_ += static_cast<size_t>(got);
    budget -= static_cast<size_t>(got);
    lastProgress_ = std::chrono::steady_clock::now();
    if (have_ < wanted_) continue;
    if (wanted_ == kPrefix) {
      const uint32_t bodyLength = wire::ReadEnvelope(frame_.data()).bodyLength;
      if (bodyLength > kMaxRequestBodyLength) {
        refusedLength_ = bodyLength;
        failed_ = true;
        return ReadStatus::kError;
      }
      wanted_ = kPrefix + bodyLength;
      if (have_ < wanted_) continue;
    }
    // A whole frame: hand it out and start over.
    auto* copy = static_cast<uint8_t*>(std::malloc(have_));
    if (copy == nullptr) {
      failed_ = true;
      return ReadStatus::kError;
    }
    std::memcpy(copy, frame_.data(), have_);
    decoded = LinuxDictionary();
    decoded.AdoptEncoding(copy, static_cast<uint32_t>(have_));
    decoded.Deserialize();
    frame_.resize(have_);
    raw = std::move(frame_);
    frame_ = std::vector<uint8_t>();
    have_ = 0;
    wanted_ = kPrefix;
    return ReadStatus::kFrame;
  }
  return ReadStatus::kNeedMore;
}

bool PipeFiles::SameOnDisk() const { return SameFile(requestPath, request) && SameFile(replyPath, reply); }

bool PipeFiles::AnyOnDisk() const { return SameFile(requestPath, request) || SameFile(replyPath, reply); }

int PipeFiles::RemoveIfSame() const {
  int removed = 0;
  if (PalvonAuthManagerSDK::RemoveFifoIfSame(requestPath, request.device, request.inode)) ++removed;
  if (PalvonAuthManagerSDK::RemoveFifoIfSame(replyPath, reply.device, reply.inode)) ++removed;
  return removed;
}

ClientPipes::ClientPipes(const std::string& directory, uint32_t processId) : processId_(processId) {
  const std::string base = directory + "/" + PalvonAuthManagerSDK::ClientChannelName(processId);
  files_.requestPath = base + PalvonAuthManagerSDK::kRequestPipeSuffix;
  files_.replyPath = base + PalvonAuthManagerSDK::kReplyPipeSuffix;
}

bool ClientPipes::Open() {
  // Links are not followed and only FIFOs of this user are taken: anything
  // else under a client's pipe name is not a client.
  const int request = PalvonAuthManagerSDK::OpenOwnedFifo(files_.requestPath, O_RDONLY | O_NONBLOCK);
  if (request < 0) {
    const int error = errno;
    problem_ = files_.requestPath + ": " + PipeProblem(error);
    errno = error;
    return false;
  }
  // The client holds its reply pipe open, so a non-blocking open for writing
  // succeeds exactly when the client is there.
  const int reply = PalvonAuthManagerSDK::OpenOwnedFifo(files_.replyPath, O_WRONLY | O_NONBLOCK);
  if (reply < 0) {
    const int error = errno;
    problem_ = files_.replyPath + ": " + (error == ENXIO ? std::string("nobody reads it") : PipeProblem(error));
    close(request);
    errno = error;
    return false;
  }
  // Large replies (body chunks) cross in fewer pieces through a larger pipe;
  // where the system refuses, the default size serves as well.
  (void)fcntl(reply, F_SETPIPE_SZ, kReplyPipeBytes);
  requestFd_.Reset(request);
  replyFd_.Reset(reply);
  files_.request = IdOf(request);
  files_.reply = IdOf(reply);
  return true;
}

ReadStatus ClientPipes::ReadFrame(std::vector<uint8_t>& raw, LinuxDictionary& decoded) {
  return reader_.Read(requestFd_.Get(), raw, decoded);
}

bool ClientPipes::WriteAll(const uint8_t* data, size_t length, int timeoutMs, int cancelFd) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  size_t done = 0;
  while (done < length) {
    const ssize_t written = write(replyFd_.Get(), data + done, length - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
      continue;
    }
    if (written < 0 && errno == EINTR) continue;
    if (written < 0 && errno != EAGAIN && errno != EWOULDBLOCK) return false;
    const int left = Remaining(deadline);
    if (left == 0) return false;
    struct pollfd wait[2] = {{replyFd_.Get(), POLLOUT, 0}, {cancelFd, POLLIN, 0}};
    (void)poll(wait, cancelFd >= 0 ? 2 : 1, left);
    if (cancelFd >= 0 && (wait[1].revents & POLLIN) != 0) return false;
  }
  return true;
}

bool ClientPipes::SendReply(LinuxDictionary& reply, int timeoutMs, int cancelFd) {
  const uint8_t* frame = reply.Serialize(true);
  return WriteAll(frame, reply.EncodedLength(), timeoutMs, cancelFd);
}

LinuxDictionary MakeReply(const LinuxDictionary& request, uint32_t code) {
  LinuxDictionary reply(MessageCommon(request.Header().messageType, request.Header().processId));
  reply.SetUInt(PalvonAuthManagerSDK::key::kReturn, code);
  return reply;
}

void IgnoreSigpipe() { (void)std::signal(SIGPIPE, SIG_IGN); }

}  // namespace pam_service
