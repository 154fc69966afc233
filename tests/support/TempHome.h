#ifndef PAM_TESTS_SUPPORT_TEMPHOME_H
#define PAM_TESTS_SUPPORT_TEMPHOME_H

#include <optional>
#include <string>

namespace pam_test {

/** Creates a fresh folder, points HOME at it, and removes it again on destruction. */
class TempHome {
 public:
  TempHome();
  ~TempHome();
  TempHome(const TempHome&) = delete;
  TempHome& operator=(const TempHome&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
  std::optional<std::string> previous_;  // HOME before, if it was set
};

/** Recursively removes a folder, ignoring errors. */
void RemoveTree(const std::string& path);
/** Reads a whole file; empty when it cannot be read. */
std::string ReadFile(const std::string& path);
/** What is at `path`, without following a link: "fifo 0666", "dir 0700", "file 0600", "link" or "none". */
std::string FileKind(const std::string& path);

}  // namespace pam_test

#endif
