#ifndef PAM_TESTS_SUPPORT_TEMPHOME_H
#define PAM_TESTS_SUPPORT_TEMPHOME_H

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
  std::string previous_;
  bool hadPrevious_ = false;
};

/** Recursively removes a folder, ignoring errors. */
void RemoveTree(const std::string& path);
/** Reads a whole file; empty when it cannot be read. */
std::string ReadFile(const std::string& path);

}  // namespace pam_test

#endif
