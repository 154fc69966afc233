#include "service/ServiceHarness.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <httplib.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include "ipc/CLinuxIPC.h"
#include "ipc/PipeDirectory.h"
#include "message/LinuxDictionary.h"
#include "support/TempHome.h"

#if defined(__SANITIZE_THREAD__)
// The packaged HTTP server library is not built with ThreadSanitizer, so the
// synchronisation inside it is invisible and its own threads look racy.
// Only the test's loopback server runs it; the service is checked in full.
extern "C" const char* __tsan_default_suppressions() { return "race:libcpp-httplib.so\n"; }
#endif

namespace pam_test {

namespace {

std::string Home() {
  const char* home = std::getenv("HOME");
  return home != nullptr ? home : "/tmp";
}

// Starts the service with standard output and error appended to `logPath`.
pid_t Spawn(const std::vector<std::string>& args, const std::string& logPath) {
  std::vector<std::string> all = {DaemonPath()};
  all.insert(all.end(), args.begin(), args.end());
  std::vector<char*> argv;
  for (auto& arg : all) argv.push_back(arg.data());
  argv.push_back(nullptr);
  const int log = open(logPath.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
  if (log < 0) throw std::runtime_error("cannot open " + logPath);
  const pid_t pid = fork();
  if (pid == 0) {
    dup2(log, STDOUT_FILENO);
    dup2(log, STDERR_FILENO);
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(log);
  if (pid < 0) throw std::runtime_error("fork failed");
  return pid;
}

int ExitCodeOf(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return -1;
}

}  // namespace

std::string DaemonPath() { return PALVONAUTHD_PATH; }

std::string WriteFile(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  return path;
}

Daemon::Daemon(std::vector<std::string> args, const std::string& configText) {
  logPath_ = WriteFile(Home() + "/palvonauthd.log", "");  // each instance's own log
  if (!configText.empty()) {
    args.insert(args.begin(), {"--config", WriteFile(Home() + "/palvonauthd.toml", configText)});
  }
  pid_ = Spawn(args, logPath_);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  while (std::chrono::steady_clock::now() < deadline) {
    if (LogText().find("ready: listening on") != std::string::npos) return;
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
      pid_ = -1;
      throw std::runtime_error("palvonauthd ended at start-up (exit " + std::to_string(ExitCodeOf(status)) + "):\n" +
                               LogText());
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  Stop();
  throw std::runtime_error("palvonauthd did not become ready:\n" + LogText());
}

Daemon::~Daemon() {
  if (pid_ < 0) return;
  // A service that fails to stop cleanly, or that a sanitizer complained
  // about, fails the test that ran it.
  const int code = Stop();
  const std::string log = LogText();
  EXPECT_EQ(code, 0) << log;
  for (const char* report : {"Sanitizer", "runtime error:"}) {
    EXPECT_EQ(log.find(report), std::string::npos) << log;
  }
}

int Daemon::Stop() {
  if (pid_ < 0) return -1;
  kill(pid_, SIGTERM);
  const int code = WaitChild(pid_, std::chrono::seconds(20));
  pid_ = -1;
  return code;
}

std::string Daemon::LogText() const { return ReadFile(logPath_); }

bool Daemon::WaitForLog(const std::string& text, std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    if (LogText().find(text) != std::string::npos) return true;
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
}

size_t Daemon::CountInLog(const std::string& text) const {
  const std::string log = LogText();
  size_t count = 0;
  for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + text.size())) ++count;
  return count;
}

DaemonRun RunDaemonToExit(const std::vector<std::string>& args, std::chrono::milliseconds timeout) {
  const std::string logPath = Home() + "/palvonauthd-run.log";
  WriteFile(logPath, "");
  const pid_t pid = Spawn(args, logPath);
  DaemonRun run;
  run.exitCode = WaitChild(pid, timeout);
  run.log = ReadFile(logPath);
  return run;
}

pid_t ForkClient(const std::function<int()>& body) {
  const pid_t pid = fork();
  if (pid == 0) {
    int code = 99;
    try {
      code = body();
    } catch (...) {
      code = 98;
    }
    _exit(code);
  }
  if (pid < 0) throw std::runtime_error("fork failed");
  return pid;
}

int WaitChild(pid_t pid, std::chrono::milliseconds timeout) {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  for (;;) {
    int status = 0;
    const pid_t done = waitpid(pid, &status, WNOHANG);
    if (done == pid) return ExitCodeOf(status);
    if (done < 0) return -1;
    if (std::chrono::steady_clock::now() >= deadline) {
      kill(pid, SIGKILL);
      waitpid(pid, &status, 0);
      return -2;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

LoopbackHttp::LoopbackHttp() : server_(std::make_unique<httplib::Server>()) {}

LoopbackHttp::LoopbackHttp(std::unique_ptr<httplib::Server> server) : server_(std::move(server)) {}

LoopbackHttp::~LoopbackHttp() {
  server_->stop();
  if (thread_.joinable()) thread_.join();
}

void LoopbackHttp::Start() {
  port_ = server_->bind_to_any_port("127.0.0.1");
  if (port_ <= 0) throw std::runtime_error("cannot bind a loopback port");
  // The socket already listens, so connections made before the accept loop runs just queue.
  thread_ = std::thread([this] { server_->listen_after_bind(); });
}

std::wstring LoopbackHttp::Url(const std::string& path, const std::string& scheme, const std::string& host) const {
  const std::string url = scheme + "://" + host + ":" + std::to_string(port_) + path;
  return std::wstring(url.begin(), url.end());
}

RefusingPort::RefusingPort() {
  fd_ = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  const int fd = fd_;
  struct sockaddr_in address {};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  socklen_t length = sizeof address;
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0 ||
      getsockname(fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
    throw std::runtime_error("cannot find a free port");
  }
  port_ = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort() {
  if (fd_ >= 0) close(fd_);
}

void Gate::Arrive() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    ++arrived_;
  }
  changed_.notify_all();
}

bool Gate::WaitFor(int n, std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return arrived_ >= n; });
}

void Gate::Open() {
  {
    std::lock_guard<std::mutex> lock(mutex_);
    open_ = true;
  }
  changed_.notify_all();
}

bool Gate::WaitOpen(std::chrono::milliseconds timeout) {
  std::unique_lock<std::mutex> lock(mutex_);
  return changed_.wait_for(lock, timeout, [&] { return open_; });
}

RawClient::RawClient() {
  pid_ = ForkClient([] {
    pause();
    return 0;
  });
  Make();
}

RawClient::~RawClient() {
  Die();
  for (const int fd : stale_) close(fd);
  close(requestFd_);
  close(replyFd_);
}

std::string RawClient::RequestPath() const {
  return PalvonAuthManagerSDK::CLinuxIPC::getUserTmpDir() + "/" +
         PalvonAuthManagerSDK::ClientChannelName(static_cast<uint32_t>(pid_)) +
         PalvonAuthManagerSDK::kRequestPipeSuffix;
}

std::string RawClient::ReplyPath() const {
  return PalvonAuthManagerSDK::CLinuxIPC::getUserTmpDir() + "/" +
         PalvonAuthManagerSDK::ClientChannelName(static_cast<uint32_t>(pid_)) + PalvonAuthManagerSDK::kReplyPipeSuffix;
}

void RawClient::Make() {
  for (const std::string& path : {RequestPath(), ReplyPath()}) {
    if (mkfifo(path.c_str(), 0600) != 0) throw std::runtime_error("cannot make " + path);
  }
  // Read-write, so neither open waits for the service.
  requestFd_ = open(RequestPath().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  replyFd_ = open(ReplyPath().c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  if (requestFd_ < 0 || replyFd_ < 0) throw std::runtime_error("cannot open the pipes of a raw client");
}

void RawClient::Register() const {
  const std::string path =
      PalvonAuthManagerSDK::CLinuxIPC::getUserTmpDir() + "/" + PalvonAuthManagerSDK::kRegistrationPipeName;
  const int fd = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  const auto record = FramePrefix(0xFFFFFFFFu, static_cast<uint32_t>(pid_), 12);
  const bool written = fd >= 0 && write(fd, record.data(), record.size()) == static_cast<ssize_t>(record.size());
  if (fd >= 0) close(fd);
  if (!written) throw std::runtime_error("cannot write to " + path);
}

bool RawClient::Send(const std::vector<uint8_t>& bytes, std::chrono::milliseconds timeout) const {
  const auto deadline = std::chrono::steady_clock::now() + timeout;
  size_t done = 0;
  while (done < bytes.size()) {
    const ssize_t written = write(requestFd_, bytes.data() + done, bytes.size() - done);
    if (written > 0) {
      done += static_cast<size_t>(written);
      continue;
    }
    if (written < 0 && errno != EAGAIN) return false;
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
    struct pollfd wait {
      requestFd_, POLLOUT, 0
    };
    if (left.count() <= 0 || poll(&wait, 1, static_cast<int>(left.count())) != 1) return false;
  }
  return true;
}

bool RawClient::Answered(std::chrono::milliseconds timeout) const {
  PalvonAuthManagerSDK::LinuxDictionary query(PalvonAuthManagerSDK::MessageCommon(83, static_cast<uint32_t>(pid_)));
  const uint8_t* frame = query.Serialize(true);
  if (!Send(std::vector<uint8_t>(frame, frame + query.EncodedLength()))) return false;
  struct pollfd wait {
    replyFd_, POLLIN, 0
  };
  if (poll(&wait, 1, static_cast<int>(timeout.count())) != 1) return false;
  uint8_t reply[4096];
  while (read(replyFd_, reply, sizeof reply) > 0) {
  }
  return true;
}

void RawClient::Recreate() {
  for (const std::string& path : {RequestPath(), ReplyPath()}) unlink(path.c_str());
  stale_.push_back(requestFd_);
  stale_.push_back(replyFd_);
  Make();
}

void RawClient::Die() {
  if (!alive_) return;
  alive_ = false;
  kill(pid_, SIGKILL);
  WaitChild(pid_);
}

std::vector<uint8_t> FramePrefix(uint32_t type, uint32_t processId, uint32_t bodyLength) {
  const uint32_t fields[3] = {type, processId, bodyLength};
  std::vector<uint8_t> bytes(sizeof fields);
  std::memcpy(bytes.data(), fields, sizeof fields);
  return bytes;
}

std::vector<unsigned char> PatternBytes(size_t size, uint32_t variant) {
  std::vector<unsigned char> bytes(size);
  uint32_t state = variant * 2654435761u + 1;
  for (auto& byte : bytes) {
    state ^= state << 13;
    state ^= state >> 17;
    state ^= state << 5;
    byte = static_cast<unsigned char>(state >> 24);
  }
  return bytes;
}

}  // namespace pam_test
