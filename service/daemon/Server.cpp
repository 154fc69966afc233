#include "daemon/Server.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>
#include <exception>
#include <utility>

#include "daemon/Log.h"

namespace palvonauthd {

namespace {

/** How often vanished clients and finished launchers are looked for. */
constexpr int kSweepIntervalMs = 250;
/** Most ended clients whose pipes are kept in mind for removal. */
constexpr size_t kMaxLeftovers = 1024;

std::string Owner(uid_t uid) { return std::to_string(uid); }

}  // namespace

bool ProcessAlive(uint32_t processId) {
  if (processId == 0 || processId > static_cast<uint32_t>(INT_MAX)) return false;
  // EPERM: it exists but belongs to someone else; still alive.
  return kill(static_cast<pid_t>(processId), 0) == 0 || errno != ESRCH;
}

std::optional<uid_t> ProcessOwner(uint32_t processId, int& error) {
  struct stat status {};
  if (processId == 0 || processId > static_cast<uint32_t>(INT_MAX)) {
    error = ENOENT;
    return std::nullopt;
  }
  if (stat(("/proc/" + std::to_string(processId)).c_str(), &status) != 0) {
    error = errno;
    return std::nullopt;
  }
  error = 0;
  return status.st_uid;
}

Server::Server(Config config, std::string pipeDirectory, ServerOwner& owner)
    : owner_(owner),
      directory_(std::move(pipeDirectory)),
      actions_(launcher_),
      context_(std::move(config), actions_),
      registration_(directory_) {
  SetVerbose(context_.Current()->config.verbose);
}

Server::~Server() { StopAll("service stopping"); }

void Server::Apply(Config config) {
  SetVerbose(config.verbose);
  context_.Replace(std::move(config));
}

void Server::Reload() {
  struct timespec now {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const long long micros = static_cast<long long>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
  owner_.Notify("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(micros) + "\nSTATUS=reloading the configuration");
  if (auto config = owner_.Reload()) Apply(std::move(*config));
  ReportClients("READY=1\n");
}

void Server::ReportClients(const std::string& state) {
  if (state.empty() && reported_ == sessions_.size()) return;
  reported_ = sessions_.size();
  owner_.Notify(state + "STATUS=serving " + std::to_string(sessions_.size()) + " client(s)");
}

int Server::Run(int signalFd) {
  if (!registration_.Open()) {
    LogError("cannot use the registration pipe ", registration_.Path(), ": ", pam_service::PipeProblem(errno));
    return 1;
  }
  LogInfo("ready: listening on ", registration_.Path(), " (SDK version ", context_.Current()->config.sdkVersion, ")");
  ReportClients("READY=1\n");
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
        if (info.ssi_signo == SIGHUP) {
          Reload();
        } else {
          LogInfo("stopping on ", strsignal(static_cast<int>(info.ssi_signo)));
          break;
        }
      }
    }
    // Clients wait until the registration pipe is drained, so it is read
    // at once whenever it has something.
    if (ready > 0 && (fds[1].revents & POLLIN) != 0) ReadRegistrations();
    Sweep();
    ReportClients();
  }
  owner_.Notify("STOPPING=1\nSTATUS=stopping");
  StopAll("service stopping");
  LogInfo("stopped");
  return 0;
}

void Server::ReadRegistrations() {
  size_t discarded = 0;
  const auto records = registration_.ReadValidRecords(discarded);
  if (discarded > 0) LogWarning("ignored ", discarded, " byte(s) of malformed registration data");
  for (const auto& record : records) {
    // One client that cannot be taken on never affects the others.
    try {
      Accept(record.processId);
    } catch (const std::exception& error) {
      LogWarning("registration of process ", record.processId, " refused: ", error.what());
    }
  }
}

void Server::Accept(uint32_t processId) {
  auto existing = sessions_.find(processId);
  if (existing != sessions_.end() && existing->second->Finished()) {
    Collect(*existing->second);
    sessions_.erase(existing);
    existing = sessions_.end();
  }
  if (existing != sessions_.end() && existing->second->Files().SameOnDisk()) {
    // Only the client itself re-creates its pipes (after uninitialising); a
    // record naming a client that is served on the very same pipes is not
    // taken as a reason to end its session.
    LogWarning("registration of process ", processId, " refused: it is served already, on the same pipes");
    return;
  }
  int error = 0;
  const auto owner = ProcessOwner(processId, error);
  if (!owner && error == ENOENT) {
    LogWarning("registration of process ", processId, " ignored: no such process");
    return;
  }
  if (!owner) {
    LogWarning("registration of process ", processId, " refused: its owner cannot be checked (", std::strerror(error),
               ")");
    return;
  }
  if (*owner != getuid()) {
    LogWarning("registration of process ", processId, " ignored: it belongs to user ", Owner(*owner),
               ", this service serves user ", Owner(getuid()));
    return;
  }
  const size_t served = sessions_.size() - (existing != sessions_.end() ? 1 : 0);
  if (served >= context_.Current()->config.maxClients) {
    LogWarning("registration of process ", processId, " refused: ", served,
               " clients are served already (service.max_clients)");
    return;
  }
  auto pipes = std::make_unique<pam_service::ClientPipes>(directory_, processId);
  if (!pipes->Open()) {
    LogWarning("registration of process ", processId, " refused: ", pipes->Problem());
    return;
  }
  auto session = std::make_unique<ClientSession>(context_, std::move(pipes));
  std::string why;
  if (!session->Start(why)) {
    LogWarning("registration of process ", processId, " refused: ", why);
    return;
  }
  if (existing != sessions_.end()) {
    // The same process registered again with new pipes (after
    // uninitialising): its old pipes are gone, so the old session ends.
    existing->second->Stop("registered again");
    retired_.push_back(std::move(existing->second));
    sessions_.erase(existing);
  }
  leftovers_.erase(processId);
  sessions_[processId] = std::move(session);
}

void Server::Collect(ClientSession& session) {
  session.Join();
  if (session.Files().AnyOnDisk()) {
    if (leftovers_.size() >= kMaxLeftovers && leftovers_.count(session.ProcessId()) == 0) {
      leftovers_.erase(leftovers_.begin());
    }
    leftovers_[session.ProcessId()] = session.Files();
  }
}

void Server::Sweep() {
  for (auto it = sessions_.begin(); it != sessions_.end();) {
    ClientSession& session = *it->second;
    if (session.Finished()) {
      Collect(session);
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
  // A client that dies leaves its pipes behind; they are removed once its
  // process is gone, and only while they are the very FIFOs that were
  // opened. A client that removed or re-created them itself is forgotten.
  for (auto it = leftovers_.begin(); it != leftovers_.end();) {
    if (!it->second.AnyOnDisk()) {
      it = leftovers_.erase(it);
    } else if (!ProcessAlive(it->first)) {
      const int removed = it->second.RemoveIfSame();
      if (removed > 0) LogInfo("removed ", removed, " pipe(s) of client ", it->first, ", whose process is gone");
      it = leftovers_.erase(it);
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
