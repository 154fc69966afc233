#include "LibrarySession.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "Deadline.h"
#include "Errors.h"
#include "PalvonAuthManagerTracer.h"
#include "protocol/PipeNames.h"
#include "util/Utf8.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

namespace {

std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  return home != nullptr ? home : "";
}

}  // namespace

void RemoveOwnPipes() {
  const char* user = std::getenv("USER");
  std::vector<std::string> folders;
  for (const auto& candidate : PipeFolderCandidates(HomeFolder(), user != nullptr ? user : "")) {
    folders.push_back(candidate.back());
  }
  folders.push_back("/tmp");
  const std::string base = "/" + ClientChannelName(static_cast<uint32_t>(getpid()));
  for (const auto& folder : folders) {
    (void)unlink((folder + base + kReplyPipeSuffix).c_str());
    (void)unlink((folder + base + kRequestPipeSuffix).c_str());
  }
}

LibrarySession::LibrarySession(const GlobalOptions& options, Output& out,
                               const std::function<void()>& beforeGivingUp) {
  AMResult result = AM_RESULT_SUCCESS;
  {
    Deadline deadline(options.waitSeconds, [&options, &out, &beforeGivingUp] {
      char seconds[32];
      std::snprintf(seconds, sizeof seconds, "%g", options.waitSeconds);
      ReportLocalError(out,
                       std::string("no authentication-manager service took the registration within ") + seconds +
                           " s (is palvonauthd running for this user?)",
                       kExitNoService);
      out.Finish();
      if (beforeGivingUp) beforeGivingUp();
      std::fflush(stderr);
      RemoveOwnPipes();
      return kExitNoService;
    });
    result = deadline.Blocking([] { return PalvonAuthManager_Initialize(); });
  }
  // A failed first initialisation still counts once; balance it so that the
  // library releases its pipes.
  if (result != AM_RESULT_SUCCESS) {
    (void)PalvonAuthManager_Uninitialize();
    throw LibraryError("PalvonAuthManager_Initialize", result);
  }
  open_ = true;
}

LibrarySession::~LibrarySession() {
  if (open_) (void)PalvonAuthManager_Uninitialize();
}

AMUint LibrarySession::ApiLevel() const {
  AMUint level = 0;
  Check("PalvonAuthManager_GetApiLevel", PalvonAuthManager_GetApiLevel(&level));
  return level;
}

void LibrarySession::Close() {
  if (!open_) return;
  open_ = false;
  Check("PalvonAuthManager_Uninitialize", PalvonAuthManager_Uninitialize());
}

Connection::Connection(const GlobalOptions& options) {
  const std::wstring name = FromUtf8(options.connectionName);
  Check("PalvonAuthManager_CreateConnection",
        PalvonAuthManager_CreateConnection(name.empty() ? nullptr : name.c_str(), nullptr, nullptr, &handle_));
  open_ = true;
}

Connection::~Connection() {
  if (open_) (void)PalvonAuthManager_DestroyConnection(handle_);
}

void Connection::Close() {
  if (!open_) return;
  open_ = false;
  Check("PalvonAuthManager_DestroyConnection", PalvonAuthManager_DestroyConnection(handle_));
}

void EnableTracing() {
  CTracer::s_tracingEnabled = true;
  // The library creates only the trace folder itself, not its parent, and
  // prints its trace on standard output when the file cannot be opened.
  const std::string home = HomeFolder();
  if (!home.empty()) (void)mkdir(ClientDataFolder(home).c_str(), 0700);
}

std::string FindTraceFile() {
  const std::string home = HomeFolder();
  if (home.empty()) return std::string();
  const std::string folder = TraceFolder(home);
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return std::string();
  // File names are <prefix><time>-<pid>-<address><suffix>.
  const std::string prefix = kTraceFilePrefix;
  const std::string suffix = kTraceFileSuffix;
  const std::string pid = "-" + std::to_string(getpid()) + "-";
  std::string best;
  struct timespec bestTime {};
  while (const struct dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.rfind(prefix, 0) != 0 || name.size() < suffix.size() ||
        name.compare(name.size() - suffix.size(), suffix.size(), suffix) != 0 || name.find(pid) == std::string::npos) {
      continue;
    }
    const std::string path = folder + "/" + name;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) continue;
    const struct timespec& modified = status.st_mtim;
    if (best.empty() || modified.tv_sec > bestTime.tv_sec ||
        (modified.tv_sec == bestTime.tv_sec && modified.tv_nsec > bestTime.tv_nsec)) {
      best = path;
      bestTime = modified;
    }
  }
  closedir(dir);
  return best;
}

}  // namespace palvonauth
