#include "proxy/ClientSocket.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace palvonauth {

namespace {

constexpr size_t kReadStep = 64 * 1024;

bool WaitFor(int fd, short events, std::chrono::milliseconds silence) {
  struct pollfd wait {
    fd, events, 0
  };
  for (;;) {
    const int ready = poll(&wait, 1, static_cast<int>(silence.count()));
    if (ready < 0 && errno == EINTR) continue;
    return ready > 0;
  }
}

}  // namespace

ClientSocket::ClientSocket(int fd, std::string peer) : fd_(fd), peer_(std::move(peer)) {}

ClientSocket::~ClientSocket() {
  // What the client sent and nobody read would make the system reset the
  // connection, perhaps before the client has read the answer: the sending
  // side is closed first and what has arrived is read away.
  (void)shutdown(fd_, SHUT_WR);
  char discard[16 * 1024];
  for (int step = 0; step < 64 && recv(fd_, discard, sizeof discard, MSG_DONTWAIT) > 0; ++step) {
  }
  close(fd_);
}

ReadOutcome ClientSocket::ReadAvailable(size_t limit) {
  ReadOutcome outcome = ReadOutcome::kNothing;
  while (buffer_.size() < limit) {
    const size_t old = buffer_.size();
    const size_t step = std::min(kReadStep, limit - old);
    buffer_.resize(old + step);
    const ssize_t got = recv(fd_, &buffer_[old], step, 0);
    buffer_.resize(old + (got > 0 ? static_cast<size_t>(got) : 0));
    if (got > 0) {
      outcome = ReadOutcome::kData;
      if (static_cast<size_t>(got) < step) break;
      continue;
    }
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) break;
    return outcome == ReadOutcome::kData ? outcome : (got == 0 ? ReadOutcome::kEnd : ReadOutcome::kError);
  }
  return outcome;
}

ReadOutcome ClientSocket::ReadMore(std::chrono::milliseconds silence) {
  if (!WaitFor(fd_, POLLIN, silence)) return ReadOutcome::kTimeout;
  const ReadOutcome outcome = ReadAvailable(buffer_.size() + kReadStep);
  // Readable but nothing there: a spurious wake-up, told apart by the caller's next wait.
  return outcome;
}

bool ClientSocket::Write(std::initializer_list<std::string_view> parts, std::chrono::milliseconds silence) {
  std::vector<struct iovec> pending;
  for (const std::string_view part : parts) {
    if (!part.empty()) pending.push_back({const_cast<char*>(part.data()), part.size()});
  }
  size_t first = 0;
  while (first < pending.size()) {
    struct msghdr message {};
    message.msg_iov = &pending[first];
    message.msg_iovlen = pending.size() - first;
    const ssize_t written = sendmsg(fd_, &message, MSG_NOSIGNAL);
    if (written < 0) {
      if (errno == EINTR) continue;
      if ((errno == EAGAIN || errno == EWOULDBLOCK) && WaitFor(fd_, POLLOUT, silence)) continue;
      return false;
    }
    auto left = static_cast<size_t>(written);
    while (first < pending.size() && left >= pending[first].iov_len) left -= pending[first++].iov_len;
    if (left > 0) {
      pending[first].iov_base = static_cast<char*>(pending[first].iov_base) + left;
      pending[first].iov_len -= left;
    }
  }
  return true;
}

}  // namespace palvonauth
