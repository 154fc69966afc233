#include "ipc/PipeFolder.h"

#include <fcntl.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ipc/OwnedFiles.h"

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

// Creates `path` if needed and keeps it only when it is private to the user.
bool UsableFolder(const std::string& path, std::string& why) {
  if (mkdir(path.c_str(), 0700) != 0 && errno != EEXIST) {
    char text[256];
    why = strerror_r(errno, text, sizeof text);
    return false;
  }
  return CheckPrivateDirectory(path, why);
}

}  // namespace

std::string FindPipeFolder(const PipeFolderReport& report) {
  const std::string home = HomeDirectory();
  for (const std::vector<std::string>& candidate : PipeFolderCandidates(home, UserName())) {
    std::string why;
    bool usable = true;
    for (const std::string& folder : candidate) {
      usable = usable && UsableFolder(folder, why);
    }
    if (usable) return candidate.back();
    if (candidate.front() == ClientDataFolder(home)) {
      // The historical line, kept byte for byte (no separator before "Falling").
      report(PipeFolderNote::kFallback, "Failed to create rzpHome directory inside user home directory. " + why +
                                            "Falling to /tmp directory");
    } else {
      report(PipeFolderNote::kProblem, "Pipe folder " + candidate.back() + " is not used: " + why);
    }
  }
  report(PipeFolderNote::kProblem, "No private pipe folder: set HOME to a home directory of this user");
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
