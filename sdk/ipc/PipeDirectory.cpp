// The per-user pipe directory shared by the service and all its clients:
// $HOME/.RZPClient/.tmp, falling back to /tmp/<user>. A folder is used only
// when it is private to the user (see OwnedFiles.h); "/tmp" itself never is.
#include "ipc/PipeDirectory.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "PalvonAuthManagerTracer.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/OwnedFiles.h"
#include "util/CSDKUtils.h"

namespace PalvonAuthManagerSDK {

namespace {

// Password-database entry of the real user, or null.
const struct passwd* UserEntry(std::vector<char>& storage, struct passwd& entry) {
  long size = sysconf(_SC_GETPW_R_SIZE_MAX);
  storage.resize(size > 0 ? static_cast<size_t>(size) : 16384);
  struct passwd* result = nullptr;
  if (getpwuid_r(getuid(), &entry, storage.data(), storage.size(), &result) != 0) return nullptr;
  return result;
}

std::string HomeDirectory() {
  if (const char* home = getenv("HOME")) return home;
  std::vector<char> storage;
  struct passwd entry {};
  const struct passwd* user = UserEntry(storage, entry);
  return user != nullptr && user->pw_dir != nullptr ? user->pw_dir : "";
}

std::string UserName() {
  if (const char* user = getenv("USER")) return user;
  std::vector<char> storage;
  struct passwd entry {};
  const struct passwd* user = UserEntry(storage, entry);
  return user != nullptr && user->pw_name != nullptr ? user->pw_name : "";
}

bool MakeDirectory(const std::string& path) { return mkdir(path.c_str(), 0700) == 0 || errno == EEXIST; }

void Report(const std::string& line) {
  std::fprintf(stderr, "%s\n", line.c_str());
  std::fflush(stderr);
  CTracer::Err(L"%ls", CSDKUtils::WidenBytes(line).c_str());
}

// Creates `path` if needed and keeps it only when it is private to the user.
bool UsableFolder(const std::string& path, std::string& why) {
  if (!MakeDirectory(path)) {
    char text[256];
    why = strerror_r(errno, text, sizeof text);
    return false;
  }
  return CheckPrivateDirectory(path, why);
}

}  // namespace

std::string ClientChannelName(uint32_t processId) { return ".AuthManager" + std::to_string(processId); }

std::string CLinuxIPC::getUserTmpDir() {
  // An empty HOME is no home at all (never "/").
  const std::string home = HomeDirectory();
  if (!home.empty()) {
    std::string why;
    const std::string rzpHome = home + "/.RZPClient";
    const std::string result = rzpHome + "/.tmp";
    if (UsableFolder(rzpHome, why) && UsableFolder(result, why)) return result;
    // The historical line, kept byte for byte (no separator before "Falling").
    std::fprintf(stderr,
                 "Failed to create rzpHome directory inside user home directory. %sFalling to /tmp directory\n",
                 why.c_str());
    std::fflush(stderr);
  }
  const std::string user = UserName();
  if (!user.empty() && user.find('/') == std::string::npos && user != "." && user != "..") {
    const std::string fallback = "/tmp/" + user;
    std::string why;
    if (UsableFolder(fallback, why)) return fallback;
    Report("Pipe folder " + fallback + " is not used: " + why);
  }
  // "/tmp" itself is shared with every user and never private: no folder.
  Report("No private pipe folder: set HOME to a home directory of this user");
  return std::string();
}

bool ChangePermission(const char* path) {
  if (path == nullptr) return false;
  // Through a descriptor of the file itself: a link is never followed.
  const int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  const bool changed = WidenPermission(fd);
  close(fd);
  return changed;
}

}  // namespace PalvonAuthManagerSDK
