// The per-user pipe directory shared by the service and all its clients:
// $HOME/.RZPClient/.tmp, falling back to /tmp/<user> and finally /tmp.
#include "ipc/PipeDirectory.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "ipc/CLinuxIPC.h"

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

}  // namespace

std::string ClientChannelName(uint32_t processId) { return ".AuthManager" + std::to_string(processId); }

std::string CLinuxIPC::getUserTmpDir() {
  const std::string home = HomeDirectory();
  std::string result;
  if (!home.empty()) {
    const std::string rzpHome = home + "/.RZPClient";
    bool created = MakeDirectory(rzpHome);
    if (created) {
      result = rzpHome + "/.tmp";
      created = MakeDirectory(result);
    }
    if (!created) {
      char text[256];
      const char* reason = strerror_r(errno, text, sizeof text);
      std::fprintf(stderr,
                   "Failed to create rzpHome directory inside user home directory. %sFalling to /tmp directory\n",
                   reason);
      std::fflush(stderr);
      const std::string user = UserName();
      if (!user.empty()) {
        result = "/tmp/" + user;
        (void)mkdir(result.c_str(), 0700);
      }
    }
  }
  if (result.empty()) result = "/tmp";
  return result;
}

bool ChangePermission(const char* path) {
  struct stat status {};
  if (path == nullptr || stat(path, &status) != 0) return false;
  return chmod(path, (status.st_mode & 07777) | 0666) == 0;
}

}  // namespace PalvonAuthManagerSDK
