#ifndef PAM_TESTS_SUPPORT_PROXYPROCESS_H
#define PAM_TESTS_SUPPORT_PROXYPROCESS_H

// `palvonauth proxy` as a child process, for the tests and benchmarks that
// run it beside the real palvonauthd (support/ServiceHarness.h).

#include "support/ServiceHarness.h"

namespace pam_test {

/** `binary proxy args...` on a free loopback port, logging to a file in HOME; stopped with SIGTERM. */
class Proxy {
 public:
  Proxy(const std::string& binary, std::vector<std::string> args) : log_(WriteFile(Home() + "/proxy.log", "")) {
    args.insert(args.begin(), {binary, "proxy", "--listen", "127.0.0.1:0"});
    const int fd = open(log_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    pid_ = StartChild(args, fd, fd);
    close(fd);
    const std::regex ready(R"(listening on http://127\.0\.0\.1:(\d+))");
    std::smatch match;
    for (int i = 0; i < 2000; ++i, std::this_thread::sleep_for(10ms)) {
      const std::string log = Log();
      if (std::regex_search(log, match, ready)) {
        port_ = std::stoi(match[1]);
        return;
      }
    }
    kill(pid_, SIGKILL);
    throw std::runtime_error("the proxy did not start:\n" + Log());
  }
  ~Proxy() {
    kill(pid_, SIGTERM);
    EXPECT_EQ(WaitChild(pid_), 0) << Log();
    EXPECT_EQ(Log().find("Sanitizer"), std::string::npos) << Log();
    EXPECT_EQ(Log().find("runtime error:"), std::string::npos) << Log();
  }
  void Signal(int signal) const { kill(pid_, signal); }
  std::string Url() const { return "http://127.0.0.1:" + std::to_string(port_); }
  int Port() const { return port_; }
  std::string Log() const { return ReadFile(log_); }

 private:
  std::string log_;
  pid_t pid_ = -1;
  int port_ = 0;
};

}  // namespace pam_test

#endif
