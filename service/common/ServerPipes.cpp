#include "common/ServerPipes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>

#include "ipc/PipeDirectory.h"
#include "message/MessageTypes.h"

namespace pam_service {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;

namespace {

constexpr size_t kPrefix = PalvonAuthManagerSDK::kMessagePrefixSize;

uint32_t LoadU32(const uint8_t* at) {
  uint32_t value;
  std::memcpy(&value, at, sizeof value);
  return value;
}

int Remaining(std::chrono::steady_clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

// Appends what the descriptor has to `into`; returns bytes read, 0 at
// end-of-file, -1 when nothing is available now, -2 on error.
ssize_t Drain(int fd, std::vector<uint8_t>& into) {
  ssize_t total = 0;
  uint8_t chunk[65536];
  for (;;) {
    const ssize_t got = read(fd, chunk, sizeof chunk);
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
}

}  // namespace

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
  if (mkfifo(path_.c_str(), 0666) != 0 && errno != EEXIST) return false;
  (void)chmod(path_.c_str(), 0666);
  const int fd = open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return false;
  fd_.Reset(fd);
  return true;
}

std::vector<RegistrationRecord> RegistrationPipe::ReadRecords() {
  (void)Drain(fd_.Get(), pending_);
  std::vector<RegistrationRecord> records;
  size_t offset = 0;
  while (pending_.size() - offset >= kPrefix) {
    RegistrationRecord record;
    record.messageType = LoadU32(pending_.data() + offset);
    record.processId = LoadU32(pending_.data() + offset + 4);
    record.bodyLength = LoadU32(pending_.data() + offset + 8);
    records.push_back(record);
    offset += kPrefix;
  }
  pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(offset));
  return records;
}

namespace {

RegistrationRecord LoadRecord(const uint8_t* at) {
  RegistrationRecord record;
  record.messageType = LoadU32(at);
  record.processId = LoadU32(at + 4);
  record.bodyLength = LoadU32(at + 8);
  return record;
}

// True when the bytes [at, end) could be the beginning of a well-formed record.
bool CouldStartRecord(const uint8_t* at, const uint8_t* end) {
  uint8_t expected[kPrefix];
  const uint32_t type = PalvonAuthManagerSDK::msg::kRegistration;
  const uint32_t length = kPrefix;
  std::memcpy(expected, &type, 4);
  std::memcpy(expected + 8, &length, 4);
  for (size_t i = 0; at + i < end && i < kPrefix; ++i) {
    if ((i < 4 || i >= 8) && at[i] != expected[i]) return false;
  }
  return true;
}

}  // namespace

std::vector<RegistrationRecord> RegistrationPipe::ReadValidRecords(size_t& discarded) {
  discarded = 0;
  (void)Drain(fd_.Get(), pending_);
  std::vector<RegistrationRecord> records;
  const uint8_t* const begin = pending_.data();
  const uint8_t* const end = begin + pending_.size();
  const uint8_t* at = begin;
  while (static_cast<size_t>(end - at) >= kPrefix) {
    const RegistrationRecord record = LoadRecord(at);
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

ClientPipes::ClientPipes(const std::string& directory, uint32_t processId) : processId_(processId) {
  const std::string base = directory + "/" + PalvonAuthManagerSDK::ClientChannelName(processId);
  requestPath_ = base + PalvonAuthManagerSDK::kRequestPipeSuffix;
  replyPath_ = base + PalvonAuthManagerSDK::kReplyPipeSuffix;
}

bool ClientPipes::Open() {
  struct stat status {};
  // Only FIFOs: a regular file under a client's pipe name is not a client.
  if (stat(requestPath_.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) return false;
  if (stat(replyPath_.c_str(), &status) != 0 || !S_ISFIFO(status.st_mode)) return false;
  const int request = open(requestPath_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (request < 0) return false;
  requestFd_.Reset(request);
  // The client holds its reply pipe open, so a non-blocking open for writing
  // succeeds exactly when the client is there.
  const int reply = open(replyPath_.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  if (reply < 0) {
    requestFd_.Reset();
    return false;
  }
  replyFd_.Reset(reply);
  return true;
}

ReadStatus ClientPipes::ReadFrame(std::vector<uint8_t>& raw, LinuxDictionary& decoded) {
  const ssize_t got = Drain(requestFd_.Get(), pending_);
  if (pending_.size() >= kPrefix) {
    const uint32_t bodyLength = LoadU32(pending_.data() + 8);
    if (bodyLength > kMaxRequestBodyLength) return ReadStatus::kError;
    const size_t frameLength = kPrefix + bodyLength;
    if (pending_.size() >= frameLength) {
      raw.assign(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(frameLength));
      pending_.erase(pending_.begin(), pending_.begin() + static_cast<std::ptrdiff_t>(frameLength));
      auto* copy = static_cast<uint8_t*>(std::malloc(frameLength));
      if (copy == nullptr) return ReadStatus::kError;
      std::memcpy(copy, raw.data(), frameLength);
      decoded = LinuxDictionary();
      decoded.AdoptEncoding(copy, static_cast<uint32_t>(frameLength));
      decoded.Deserialize();
      return ReadStatus::kFrame;
    }
  }
  if (got == 0) return ReadStatus::kClosed;
  if (got == -2) return ReadStatus::kError;
  return ReadStatus::kNeedMore;
}

ReadStatus ClientPipes::WaitFrame(std::vector<uint8_t>& raw, LinuxDictionary& decoded, int timeoutMs) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  for (;;) {
    const ReadStatus status = ReadFrame(raw, decoded);
    if (status != ReadStatus::kNeedMore) return status;
    const int left = Remaining(deadline);
    if (left == 0) return ReadStatus::kNeedMore;
    struct pollfd wait {
      requestFd_.Get(), POLLIN, 0
    };
    (void)poll(&wait, 1, left);
  }
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
  reply.SetUInt(L"return", code);
  return reply;
}

void IgnoreSigpipe() { (void)std::signal(SIGPIPE, SIG_IGN); }

}  // namespace pam_service
