#include "daemon/ClientSession.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <limits>
#include <new>
#include <system_error>

#include "daemon/Log.h"
#include "daemon/MessageValues.h"
#include "daemon/OperationNames.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

namespace {

int ClampToInt(long long milliseconds) {
  return static_cast<int>(std::min<long long>(std::max<long long>(milliseconds, 0), std::numeric_limits<int>::max()));
}

}  // namespace

ClientSession::ClientSession(ServiceContext& context, std::unique_ptr<pam_service::ClientPipes> pipes)
    : context_(context),
      pipes_(std::move(pipes)),
      processId_(pipes_->ProcessId()),
      dispatcher_(context, processId_, stopping_) {
  wakeFd_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

ClientSession::~ClientSession() {
  Stop("service stopping");
  Join();
  if (wakeFd_ >= 0) close(wakeFd_);
}

bool ClientSession::Start(std::string& why) {
  if (wakeFd_ < 0) {
    why = std::string("no descriptor for the session (") + std::strerror(errno) + ")";
    return false;
  }
  try {
    thread_ = std::thread([this] { Run(); });
  } catch (const std::system_error& error) {
    why = std::string("no thread for the session (") + error.what() + ")";
    return false;
  } catch (const std::bad_alloc&) {
    why = "no memory for the session's thread";
    return false;
  }
  return true;
}

void ClientSession::Stop(const std::string& reason) {
  {
    std::lock_guard<std::mutex> lock(reasonLock_);
    if (stopReason_.empty()) stopReason_ = reason;
  }
  stopping_ = true;
  const uint64_t one = 1;
  if (wakeFd_ >= 0) (void)!write(wakeFd_, &one, sizeof one);
}

void ClientSession::Join() {
  if (thread_.joinable()) thread_.join();
}

std::string ClientSession::StopReason() {
  std::lock_guard<std::mutex> lock(reasonLock_);
  return stopReason_;
}

void ClientSession::Run() {
  std::string reason;
  try {
    LogInfo("client ", processId_, " registered");
    reason = Serve();
  } catch (const std::bad_alloc&) {
    reason = "ran out of memory";
  } catch (const std::exception& error) {
    reason = std::string("failed: ") + error.what();
  } catch (...) {
    reason = "failed";
  }
  try {
    const std::string released = dispatcher_.ReleaseAll();
    LogInfo("client ", processId_, " ", reason, "; session ended", released.empty() ? "" : ", released " + released);
  } catch (...) {
    // Whatever is left is freed with the session.
  }
  finished_ = true;
}

std::string ClientSession::Serve() {
  const pam_service::FrameReader& reader = pipes_->Reader();
  for (;;) {
    if (stopping_) return StopReason();
    int timeoutMs = -1;
    if (reader.InFrame()) {
      const auto frameTimeout = std::chrono::milliseconds(context_.Current()->config.frameTimeoutMs);
      // A client that stops in the middle of a frame holds a buffer and a
      // thread for nothing: it gets a limited time to go on.
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(reader.LastProgress() + frameTimeout -
                                                                     std::chrono::steady_clock::now());
      if (left.count() <= 0) {
        return "sent part of a request, then nothing for " + std::to_string(frameTimeout.count()) + " ms";
      }
      timeoutMs = ClampToInt(left.count());
    }
    struct pollfd fds[2] = {{pipes_->RequestFd(), POLLIN, 0}, {wakeFd_, POLLIN, 0}};
    const int ready = poll(fds, 2, timeoutMs);
    if (ready < 0) {
      if (errno == EINTR) continue;
      return std::string("poll failed: ") + std::strerror(errno);
    }
    if (ready == 0 || fds[0].revents == 0) continue;
    for (;;) {
      std::vector<uint8_t> raw;
      LinuxDictionary request;
      const pam_service::ReadStatus status = pipes_->ReadFrame(raw, request);
      if (status == pam_service::ReadStatus::kFrame) {
        raw = std::vector<uint8_t>();
        if (!Answer(request)) return stopping_ ? StopReason() : "stopped reading its replies";
        continue;
      }
      if (status == pam_service::ReadStatus::kNeedMore) break;
      if (status == pam_service::ReadStatus::kClosed) return "closed its request pipe";
      if (reader.RefusedLength() > 0) {
        return "announced a request of " + std::to_string(reader.RefusedLength()) + " bytes (at most " +
               std::to_string(pam_service::kMaxRequestBodyLength) + " are accepted)";
      }
      return std::string("sent a malformed frame or its pipe failed");
    }
  }
}

bool ClientSession::Pause(uint32_t milliseconds) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    if (stopping_) return false;
    const auto now = std::chrono::steady_clock::now();
    if (now >= deadline) return true;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now);
    struct pollfd wake {
      wakeFd_, POLLIN, 0
    };
    (void)poll(&wake, 1, ClampToInt(left.count()));
  }
}

bool ClientSession::Answer(const LinuxDictionary& request) {
  const uint32_t type = request.Header().messageType;
  const std::string name = OperationName(type);
  LogDebug("client ", processId_, " <- ", name, " (", type, ") ", DescribeValues(request));
  if (request.Header().processId != processId_) {
    LogWarning("client ", processId_, " sent ", name, " carrying process id ", request.Header().processId);
  }
  LinuxDictionary reply = dispatcher_.Answer(request);
  const Config& config = dispatcher_.settings().config;
  if (config.delayMs > 0 && config.FaultApplies(type) && !Pause(config.delayMs)) return false;
  unsigned int result = 0;
  (void)reply.GetUInt(key::kReturn, &result);
  LogDebug("client ", processId_, " -> ", name, " return=", result, " ", DescribeValues(reply));
  const int timeoutMs = ClampToInt(config.replyTimeoutMs);
  if (!pipes_->SendReply(reply, timeoutMs, wakeFd_)) {
    if (!stopping_) LogWarning("client ", processId_, ": the reply to ", name, " could not be delivered");
    return false;
  }
  return true;
}

}  // namespace palvonauthd
