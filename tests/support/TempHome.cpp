#include "support/TempHome.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <vector>

namespace pam_test {

TempHome::TempHome() {
  std::vector<char> templ = {'/', 't', 'm', 'p', '/', 'p', 'a', 'm', '-', 'h', 'o', 'm', 'e', '-',
                             'X', 'X', 'X', 'X', 'X', 'X', '\0'};
  if (mkdtemp(templ.data()) == nullptr) throw std::runtime_error("mkdtemp failed");
  path_ = templ.data();
  if (const char* old = getenv("HOME")) {
    previous_ = old;
    hadPrevious_ = true;
  }
  setenv("HOME", path_.c_str(), 1);
}

TempHome::~TempHome() {
  RemoveTree(path_);
  if (hadPrevious_) {
    setenv("HOME", previous_.c_str(), 1);
  } else {
    unsetenv("HOME");
  }
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

}  // namespace pam_test
