#include "support/TestService.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <memory>

#include "common/ServerPipes.h"
#include "ipc/CLinuxIPC.h"
#include "protocol/Operations.h"

namespace pam_test {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;
namespace msg = PalvonAuthManagerSDK::msg;

Reply Reply::Return(uint32_t code) { return Reply().UInt(L"return", code); }
// clang-format off
Reply Reply::Silent() { Reply reply; reply.silent = true; return reply; }
Reply& Reply::UInt(const wchar_t* key, uint32_t value) { values.SetUInt(key, value); return *this; }
Reply& Reply::Wide(const wchar_t* key, const std::wstring& value) { values.SetWideString(key, value); return *this; }
Reply& Reply::Buffer(const wchar_t* key, const std::vector<uint8_t>& bytes) {
  values.SetBuffer(key, bytes.data(), static_cast<unsigned int>(bytes.size()));
  return *this;
}
// clang-format on

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
  (void)write(wakeWrite_, "x", 1);
  if (thread_.joinable()) thread_.join();
}

void TestService::Script(uint32_t type, std::vector<Reply> replies) {
  std::lock_guard<std::mutex> lock(mutex_);
  for (auto& reply : replies) scripts_[type].push_back(std::move(reply));
}

// clang-format off
void TestService::SetHandler(Handler h) { std::lock_guard<std::mutex> lock(mutex_); handler_ = std::move(h); }
void TestService::SetVersion(uint32_t v) { std::lock_guard<std::mutex> lock(mutex_); version_ = v; }
// clang-format on

namespace {

template <typename T>
T Locked(std::mutex& mutex, const T& value) {
  std::lock_guard<std::mutex> lock(mutex);
  return value;
}

}  // namespace

std::vector<Request> TestService::Requests() const { return Locked(mutex_, requests_); }
std::vector<std::vector<uint8_t>> TestService::RegistrationBytes() const { return Locked(mutex_, registrationBytes_); }

size_t TestService::RequestCount() const {
  std::lock_guard<std::mutex> lock(mutex_);
  return requests_.size();
}

bool TestService::WaitForRequests(size_t n, std::chrono::milliseconds timeout) const {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return requests_.size() >= n; });
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
  while (!Locked(mutex_, stop_)) {
    std::vector<struct pollfd> fds = {{wakeRead_, POLLIN, 0}, {registration.Fd(), POLLIN, 0}};
    std::vector<uint32_t> order;
    for (auto& [pid, client] : clients) {
      fds.push_back({client->pipes.RequestFd(), POLLIN, 0});
      order.push_back(pid);
    }
    if (poll(fds.data(), fds.size(), 100) < 0) continue;
    if (fds[1].revents & POLLIN) {
      for (const auto& record : registration.ReadRecords()) {
        std::vector<uint8_t> bytes(PalvonAuthManagerSDK::wire::kEnvelopeSize);
        PalvonAuthManagerSDK::wire::WriteEnvelope(bytes.data(), record);
        {
          std::lock_guard<std::mutex> lock(mutex_);
          registrationBytes_.push_back(std::move(bytes));
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

}  // namespace pam_test
