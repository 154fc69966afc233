#include "daemon/Server.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fstream>

#include "daemon/Log.h"

namespace palvonauthd {

namespace {

/** How often vanished clients and finished launchers are looked for. */
constexpr int kSweepIntervalMs = 250;

std::string Owner(uid_t uid) { return std::to_string(uid); }

}  // namespace

bool ProcessAlive(uint32_t processId) {
  std::ifstream stat("/proc/" + std::to_string(processId) + "/stat");
  std::string text;
  if (!std::getline(stat, text)) return false;
  // The state follows the command name, which is in parentheses and may
  // itself hold spaces and parentheses.
  const size_t close = text.rfind(')');
  if (close == std::string::npos || close + 2 >= text.size()) return false;
  const char state = text[close + 2];
  return state != 'Z' && state != 'X';
}

std::optional<uid_t> ProcessOwner(uint32_t processId) {
  struct stat status {};
  if (stat(("/proc/" + std::to_string(processId)).c_str(), &status) != 0) return std::nullopt;
  return status.st_uid;
}

Server::Server(const Config& config, std::string pipeDirectory)
    : config_(config),
      directory_(std::move(pipeDirectory)),
      launcher_(config.launchCommand, ExpandHome(config.launchLog)),
      context_(config, launcher_),
      registration_(directory_) {}

Server::~Server() { StopAll("service stopping"); }

int Server::Run(int signalFd) {
  if (!registration_.Open()) {
    LogError("cannot open the registration pipe ", registration_.Path(), ": ", std::strerror(errno));
    return 1;
  }
  LogInfo("ready: listening on ", registration_.Path(), " (SDK version ", config_.sdkVersion, ")");
  for (;;) {
    struct pollfd fds[2] = {{signalFd, POLLIN, 0}, {registration_.Fd(), POLLIN, 0}};
    const int ready = poll(fds, 2, kSweepIntervalMs);
    if (ready < 0 && errno != EINTR) {
      LogError("poll failed: ", std::strerror(errno));
      break;
    }
    if (ready > 0 && (fds[0].revents & POLLIN) != 0) {
      struct signalfd_siginfo info {};
      if (read(signalFd, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
        LogInfo("stopping on ", strsignal(static_cast<int>(info.ssi_signo)));
        break;
      }
    }
    if (ready > 0 && (fds[1].revents & POLLIN) != 0) ReadRegistrations();
    Sweep();
  }
  StopAll("service stopping");
  LogInfo("stopped");
  return 0;
}

void Server::ReadRegistrations() {
  size_t discarded = 0;
  const auto records = registration_.ReadValidRecords(discarded);
  if (discarded > 0) LogWarning("ignored ", discarded, " byte(s) of malformed registration data");
  for (const auto& record : records) Accept(record.processId);
}

void Server::Accept(uint32_t processId) {
  const auto owner = ProcessOwner(processId);
  if (!owner) {
    LogWarning("registration of process ", processId, " ignored: no such process");
    return;
  }
  if (*owner != getuid()) {
    LogWarning("registration of process ", processId, " ignored: it belongs to user ", Owner(*owner),
               ", this service serves user ", Owner(getuid()));
    return;
  }
  auto pipes = std::make_unique<pam_service::ClientPipes>(directory_, processId);
  for (const std::string& path : {pipes->RequestPath(), pipes->ReplyPath()}) {
    struct stat status {};
    if (stat(path.c_str(), &status) == 0 && status.st_uid != getuid()) {
      LogWarning("registration of process ", processId, " ignored: ", path, " belongs to user ", Owner(status.st_uid));
      return;
    }
  }
  if (!pipes->Open()) {
    LogWarning("registration of process ", processId, " ignored: its pipes cannot be opened (", std::strerror(errno),
               ")");
    return;
  }
  const auto existing = sessions_.find(processId);
  if (existing != sessions_.end()) {
    // The same process registered again (after uninitialising): its old
    // pipes are gone, so the old session ends on its own.
    existing->second->Stop("registered again");
    retired_.push_back(std::move(existing->second));
    sessions_.erase(existing);
  }
  auto session = std::make_unique<Session>(context_, std::move(pipes));
  session->Start();
  sessions_[processId] = std::move(session);
}

void Server::Sweep() {
  for (auto it = sessions_.begin(); it != sessions_.end();) {
    Session& session = *it->second;
    if (session.Finished()) {
      session.Join();
      it = sessions_.erase(it);
      continue;
    }
    if (!ProcessAlive(session.ProcessId())) session.Stop("process is gone");
    ++it;
  }
  for (auto it = retired_.begin(); it != retired_.end();) {
    if ((*it)->Finished()) {
      (*it)->Join();
      it = retired_.erase(it);
    } else {
      ++it;
    }
  }
  launcher_.Reap();
}

void Server::StopAll(const std::string& reason) {
  for (auto& [pid, session] : sessions_) session->Stop(reason);
  for (auto& session : retired_) session->Stop(reason);
  sessions_.clear();
  retired_.clear();
}

}  // namespace palvonauthd
