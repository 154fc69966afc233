#ifndef PAM_TESTS_SUPPORT_SERVICEHARNESS_H
#define PAM_TESTS_SUPPORT_SERVICEHARNESS_H

// For tests that run the real palvonauthd: the service as a child process,
// its log with what varies between runs masked, golden files and a loopback
// HTTP server. Included by one source file of each test program.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/ChildProcess.h"
#include "support/TempHome.h"

#if defined(__SANITIZE_THREAD__)
// The packaged HTTP server library is not built with ThreadSanitizer: only
// the test's loopback server runs it, the service is checked in full.
extern "C" const char* __tsan_default_suppressions() { return "race:libcpp-httplib.so\n"; }
#endif

namespace pam_test {

using namespace std::chrono_literals;

inline std::string DaemonPath() { return PALVONAUTHD_PATH; }
inline std::string Home() { return std::getenv("HOME"); }

inline std::string WriteFile(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
  return path;
}

/** Runs one step of a build or an installation: its words of output; a failure fails the test and shows all of it. */
inline std::vector<std::string> Step(const std::vector<std::string>& argv,
                                     const std::vector<std::string>& environment = {},
                                     std::chrono::seconds timeout = 120s) {
  const ChildResult run = RunChild(argv, {environment, timeout});
  EXPECT_EQ(run.exitCode, 0) << argv[0] << " " << argv[1] << "\n" << run.out << run.err;
  std::istringstream in(run.out);
  return {std::istream_iterator<std::string>(in), std::istream_iterator<std::string>()};
}

/** Replaces every match of each regular expression, rule after rule. */
inline std::string Mask(std::string text, const std::vector<std::pair<std::string, std::string>>& rules) {
  for (const auto& [pattern, replacement] : rules) text = std::regex_replace(text, std::regex(pattern), replacement);
  return text;
}

/** A log without time stamps and process ids; HOME, client ids, durations and VPN tokens masked. */
inline std::string MaskLog(const std::string& log) {
  return Mask(log, {{R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} palvonauthd\[\d+\] )", ""},
                    {Home(), "~"},
                    {R"(client \d+)", "client C"},
                    {R"((in|after) \d+ ms)", "$1 N ms"},
                    {R"(vpn-[0-9a-f]{32})", "vpn-TOKEN"}});
}

/** Compares `actual` with the file tests/<name>; PAM_UPDATE_TRANSCRIPTS=1 rewrites the file instead. */
inline void ExpectGolden(const std::string& name, const std::string& actual) {
  const std::string path = std::string(PAM_TESTS_DIR) + "/" + name;
  if (std::getenv("PAM_UPDATE_TRANSCRIPTS") != nullptr) WriteFile(path, actual);
  EXPECT_EQ(actual, ReadFile(path)) << "differs from " << path;
}

/**
 * A palvonauthd child process logging to a file in HOME (emptied, kept if it exists); a non-empty `config` is
 * passed with --config, `environment` as in StartChild.
 */
class Daemon {
 public:
  explicit Daemon(std::vector<std::string> args = {}, const std::string& config = "",
                  const std::string& binary = DaemonPath(), const std::vector<std::string>& environment = {})
      : logPath_(WriteFile(Home() + "/palvonauthd.log", "")) {
    if (!config.empty()) args.insert(args.begin(), {"--config", WriteFile(Home() + "/palvonauthd.toml", config)});
    args.insert(args.begin(), binary);
    const int log = open(logPath_.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    pid_ = StartChild(args, log, log, environment);
    close(log);
    if (!WaitForLog("ready: listening on", 1, 20s)) {
      Stop();
      throw std::runtime_error("palvonauthd did not start:\n" + Log());
    }
  }
  /** Stops it; a failed stop or a sanitizer report fails the test. */
  ~Daemon() {
    if (pid_ < 0) return;
    EXPECT_EQ(Stop(), 0) << Log();
    EXPECT_EQ(Count("Sanitizer") + Count("runtime error:"), 0u) << Log();
  }
  int Stop() {
    if (pid_ <= 0) return -1;
    kill(pid_, SIGTERM);
    const int code = WaitChild(pid_);
    pid_ = -1;
    return code;
  }
  pid_t Pid() const { return pid_; }
  std::string Log() const { return ReadFile(logPath_); }
  std::string MaskedLog() const { return MaskLog(Log()); }
  size_t Count(const std::string& text) const {
    const std::string log = Log();
    size_t count = 0;
    for (size_t at = log.find(text); at != std::string::npos; at = log.find(text, at + 1)) ++count;
    return count;
  }
  /** Waits until `text` is in the log `count` times; false on time-out. */
  bool WaitForLog(const std::string& text, size_t count = 1, std::chrono::milliseconds timeout = 10s) const {
    for (const auto deadline = std::chrono::steady_clock::now() + timeout; Count(text) < count;) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(5ms);
    }
    return true;
  }

 private:
  pid_t pid_ = -1;
  std::string logPath_;
};

/** A loopback HTTP server on 127.0.0.1, serving on its own thread once started. */
class LoopbackHttp {
 public:
  explicit LoopbackHttp(std::unique_ptr<httplib::Server> server = std::make_unique<httplib::Server>())
      : server_(std::move(server)) {}
  ~LoopbackHttp() {
    server_->stop();
    if (thread_.joinable()) thread_.join();
  }
  httplib::Server& Routes() { return *server_; }
  void Start() {
    port_ = server_->bind_to_any_port("127.0.0.1");
    thread_ = std::thread([this] { server_->listen_after_bind(); });
  }
  int Port() const { return port_; }
  std::wstring Url(const std::string& path) const {
    const std::string url = "http://127.0.0.1:" + std::to_string(port_) + path;
    return std::wstring(url.begin(), url.end());
  }

 private:
  std::unique_ptr<httplib::Server> server_;
  int port_ = 0;
  std::thread thread_;
};

/** A counter threads can wait on. */
struct Gate {
  std::atomic<int> arrived{0};
  void Arrive() { ++arrived; }
  bool WaitFor(int n, std::chrono::milliseconds timeout = 10s) {
    for (const auto deadline = std::chrono::steady_clock::now() + timeout; arrived < n;) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      std::this_thread::sleep_for(5ms);
    }
    return true;
  }
};

}  // namespace pam_test

#endif
