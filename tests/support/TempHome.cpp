#include "support/TempHome.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace pam_test {

TempHome::TempHome() {
  std::string name = "/tmp/pam-home-XXXXXX";
  if (mkdtemp(name.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = name;
  if (const char* old = getenv("HOME")) previous_ = old;
  setenv("HOME", path_.c_str(), 1);
}

TempHome::~TempHome() {
  RemoveTree(path_);
  previous_ ? setenv("HOME", previous_->c_str(), 1) : unsetenv("HOME");
}

void RemoveTree(const std::string& path) {
  std::error_code ignored;
  // Make read-only folders removable first.
  for (auto it = std::filesystem::recursive_directory_iterator(path, ignored);
       it != std::filesystem::recursive_directory_iterator(); it.increment(ignored)) {
    if (it->is_directory(ignored)) chmod(it->path().c_str(), 0700);
  }
  chmod(path.c_str(), 0700);
  std::filesystem::remove_all(path, ignored);
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream out;
  out << in.rdbuf();
  return out.str();
}

std::string FileKind(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return "none";
  if (S_ISLNK(status.st_mode)) return "link";
  char kind[32];
  std::snprintf(kind, sizeof kind, "%s %04o",
                S_ISFIFO(status.st_mode)  ? "fifo"
                : S_ISDIR(status.st_mode) ? "dir"
                                          : "file",
                status.st_mode & 07777);
  return kind;
}

}  // namespace pam_test
