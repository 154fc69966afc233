#ifndef PAM_TESTS_SUPPORT_CAPTURESTDOUT_H
#define PAM_TESTS_SUPPORT_CAPTURESTDOUT_H

#include <functional>
#include <string>

namespace pam_test {

/** Runs `body` with standard output redirected to a temporary file and returns what it printed. */
std::string CaptureStdout(const std::function<void()>& body);

}  // namespace pam_test

#endif
