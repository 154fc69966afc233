#include "ipc/OwnedFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace PalvonAuthManagerSDK {

namespace {

bool OwnedFifo(const struct stat& status) { return S_ISFIFO(status.st_mode) && status.st_uid == geteuid(); }

}  // namespace

bool CheckPrivateDirectory(const std::string& path, std::string& why) {
  const int fd = open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) {
    why = errno == ELOOP || errno == ENOTDIR ? "it is not a directory (or is a link)" : "it cannot be opened";
    return false;
  }
  struct stat status {};
  bool ok = false;
  if (fstat(fd, &status) != 0) {
    why = "its status cannot be read";
  } else if (!S_ISDIR(status.st_mode)) {
    why = "it is not a directory";
  } else if (status.st_uid != geteuid()) {
    why = "it belongs to user " + std::to_string(status.st_uid);
  } else if ((status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    why = "group or others may write to it";
  } else if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0 && fchmod(fd, status.st_mode & 07700) != 0) {
    why = "its mode cannot be narrowed to owner only";
  } else {
    ok = true;
  }
  close(fd);
  return ok;
}

int OpenOwnedFifo(const std::string& path, int flags) {
  int fd;
  do {
    fd = open(path.c_str(), flags | O_NOFOLLOW | O_CLOEXEC);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return -1;
  if (!IsOwnedFifo(fd)) {
    close(fd);
    errno = EPERM;
    return -1;
  }
  return fd;
}

bool MakeOwnedFifo(const std::string& path) {
  if (mkfifo(path.c_str(), 0600) == 0) return true;
  if (errno != EEXIST) return false;
  struct stat status {};
  if (lstat(path.c_str(), &status) == 0 && OwnedFifo(status)) return true;
  errno = EEXIST;
  return false;
}

bool WidenPermission(int fd) {
  struct stat status {};
  if (fd < 0 || fstat(fd, &status) != 0) return false;
  return fchmod(fd, (status.st_mode & 07777) | 0666) == 0;
}

bool IsOwnedFifo(int fd) {
  struct stat status {};
  return fd >= 0 && fstat(fd, &status) == 0 && OwnedFifo(status);
}

bool RemoveFifoIfSame(const std::string& path, dev_t device, ino_t inode) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0 || !OwnedFifo(status)) return false;
  if (status.st_dev != device || status.st_ino != inode) return false;
  return unlink(path.c_str()) == 0;
}

}  // namespace PalvonAuthManagerSDK
