#include "support/TestService.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <cstring>
#include <memory>

#include "common/ServerPipes.h"
#include "common/Utf8.h"
#include "ipc/CLinuxIPC.h"
#include "message/MessageTypes.h"

namespace pam_test {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;
namespace msg = PalvonAuthManagerSDK::msg;

Reply Reply::Return(uint32_t code) {
  Reply reply;
  reply.values.SetUInt(L"return", code);
  return reply;
}

Reply Reply::Empty() { return Reply(); }

Reply Reply::Busy() { return Return(PalvonAuthManagerSDK::rc::kBusy); }

Reply Reply::Raw(std::vector<uint8_t> bytes) {
  Reply reply;
  reply.raw = std::move(bytes);
  return reply;
}

Reply& Reply::UInt(const wchar_t* key, uint32_t value) {
  values.SetUInt(key, value);
  return *this;
}

Reply& Reply::Int(const wchar_t* key, int32_t value) {
  values.SetInt(key, value);
  return *this;
}

Reply& Reply::Wide(const wchar_t* key, const std::wstring& value) {
  values.SetWideString(key, value);
  return *this;
}

Reply& Reply::Narrow(const wchar_t* key, const std::string& value) {
  values.SetNarrowString(key, value);
  return *this;
}

Reply& Reply::Buffer(const wchar_t* key, const std::vector<uint8_t>& bytes) {
  values.SetBuffer(key, bytes.data(), static_cast<unsigned int>(bytes.size()));
  return *this;
}

Reply& Reply::After(std::chrono::milliseconds pause) {
  delay = pause;
  return *this;
}

Reply& Reply::InPieces(size_t size) {
  pieceSize = size;
  return *this;
}

struct TestService::Client {
  explicit Client(const std::string& directory, uint32_t pid) : pipes(directory, pid) {}
  pam_service::ClientPipes pipes;
};

TestService::TestService() : directory_(PalvonAuthManagerSDK::CLinuxIPC::getUserTmpDir()) {
  pam_service::IgnoreSigpipe();
  int wake[2];
  if (pipe2(wake, O_CLOEXEC | O_NONBLOCK) != 0) throw std::runtime_error("pipe2 failed");
  wakeRead_ = wake[0];
  wakeWrite_ = wake[1];
  thread_ = std::thread([this] { Run(); });
}

TestService::~TestService() {
  Stop();
  close(wakeRead_);
  close(wakeWrite_);
}

void TestService::Stop() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    stop_ = true;
  }
  changed_.notify_all();
  const char byte = 1;
  (void)write(wakeWrite_, &byte, 1);
  if (thread_.joinable()) thread_.join();
}

void TestService::Script(uint32_t type, std::vector<Reply> replies) {
  std::lock_guard<std::mutex> lock(mutex_);
  auto& queue = scripts_[type];
  for (auto& reply : replies) queue.push_back(std::move(reply));
}

void TestService::SetHandler(Handler handler) {
  std::lock_guard<std::mutex> lock(mutex_);
  handler_ = std::move(handler);
}

void TestService::SetVersion(uint32_t version) {
  std::lock_guard<std::mutex> lock(mutex_);
  version_ = version;
}

std::vector<Request> TestService::Requests() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_;
}

std::vector<Request> TestService::RequestsOfType(uint32_t type) const {
  std::lock_guard<std::mutex> lock(mutex_);
  std::vector<Request> out;
  for (const auto& request : requests_) {
    if (request.type == type) out.push_back(request);
  }
  return out;
}

size_t TestService::RequestCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_.size();
}

bool TestService::WaitForRequests(size_t n, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return requests_.size() >= n; });
}

std::vector<uint32_t> TestService::Registrations() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return registrations_;
}

bool TestService::WaitForRegistrations(size_t n, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return registrations_.size() >= n; });
}

std::vector<std::vector<uint8_t>> TestService::RegistrationBytes() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return registrationBytes_;
}

Reply TestService::NextReply(const Request& request) {
  Handler handler;
  uint32_t version = 0;
  {
    std::lock_guard<std::mutex> lock(mutex_);
    auto it = scripts_.find(request.type);
    if (it != scripts_.end() && !it->second.empty()) {
      Reply reply = std::move(it->second.front());
      it->second.pop_front();
      return reply;
    }
    handler = handler_;
    version = version_;
  }
  if (handler) return handler(request);
  Reply reply = Reply::Return(0);
  if (request.type == msg::kGetServerSDKVersion) reply.UInt(L"version", version);
  return reply;
}

void TestService::Answer(Client& client, const Request& request, const Reply& reply) {
  if (reply.delay.count() > 0) {
    std::unique_lock<std::mutex> lock(mutex_);
    if (changed_.wait_for(lock, reply.delay, [&] { return stop_; })) return;
  }
  if (reply.silent) return;
  std::vector<uint8_t> bytes;
  if (reply.raw) {
    bytes = *reply.raw;
  } else {
    LinuxDictionary message(reply.values);
    message.Header() = MessageCommon(request.type, request.processId);
    const uint8_t* frame = message.Serialize(false);
    bytes.assign(frame, frame + message.EncodedLength());
  }
  const size_t piece = reply.pieceSize > 0 ? reply.pieceSize : bytes.size();
  for (size_t offset = 0; offset < bytes.size(); offset += piece) {
    const size_t length = std::min(piece, bytes.size() - offset);
    if (!client.pipes.WriteAll(bytes.data() + offset, length, 30000)) return;
    if (reply.pieceSize > 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

void TestService::ServeClient(Client& client) {
  for (;;) {
    Request request;
    const pam_service::ReadStatus status = client.pipes.ReadFrame(request.raw, request.message);
    if (status != pam_service::ReadStatus::kFrame) return;
    request.type = request.message.Header().messageType;
    request.processId = request.message.Header().processId;
    request.receivedAt = std::chrono::steady_clock::now();
    {
      std::lock_guard<std::mutex> lock(mutex_);
      requests_.push_back(request);
    }
    changed_.notify_all();
    Answer(client, request, NextReply(request));
  }
}

void TestService::Run() {
  pam_service::RegistrationPipe registration(directory_);
  if (!registration.Open()) return;
  std::map<uint32_t, std::unique_ptr<Client>> clients;
  for (;;) {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      if (stop_) return;
    }
    std::vector<struct pollfd> fds;
    fds.push_back({wakeRead_, POLLIN, 0});
    fds.push_back({registration.Fd(), POLLIN, 0});
    std::vector<uint32_t> order;
    for (auto& [pid, client] : clients) {
      fds.push_back({client->pipes.RequestFd(), POLLIN, 0});
      order.push_back(pid);
    }
    if (poll(fds.data(), fds.size(), 100) < 0) continue;
    if (fds[1].revents & POLLIN) {
      for (const auto& record : registration.ReadRecords()) {
        std::vector<uint8_t> bytes(12);
        std::memcpy(bytes.data(), &record.messageType, 4);
        std::memcpy(bytes.data() + 4, &record.processId, 4);
        std::memcpy(bytes.data() + 8, &record.bodyLength, 4);
        {
          std::lock_guard<std::mutex> lock(mutex_);
          registrations_.push_back(record.processId);
          registrationBytes_.push_back(bytes);
        }
        changed_.notify_all();
        if (!record.WellFormed()) continue;
        auto client = std::make_unique<Client>(directory_, record.processId);
        if (client->pipes.Open()) clients[record.processId] = std::move(client);
      }
    }
    for (size_t i = 0; i < order.size(); ++i) {
      const short events = fds[i + 2].revents;
      if (events == 0) continue;
      auto it = clients.find(order[i]);
      if (it == clients.end()) continue;
      ServeClient(*it->second);
      if (events & (POLLHUP | POLLERR)) {
        // Whatever was buffered has been served; the client is gone.
        std::vector<uint8_t> raw;
        LinuxDictionary ignored;
        if (it->second->pipes.ReadFrame(raw, ignored) == pam_service::ReadStatus::kClosed) clients.erase(it);
      }
    }
  }
}

std::string Utf8(const std::wstring& text) { return pam_service::ToUtf8(text); }

}  // namespace pam_test
