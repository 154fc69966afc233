#ifndef PAM_TESTS_SERVICE_SERVICEHARNESS_H
#define PAM_TESTS_SERVICE_SERVICEHARNESS_H

// Helpers for tests that run the real palvonauthd binary: starting and
// stopping it, reading its log, client child processes, and a loopback HTTP
// server.

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
}

namespace pam_test {

/** The palvonauthd binary of this build tree. */
std::string DaemonPath();

/** A palvonauthd child process whose standard error goes to a log file in HOME. */
class Daemon {
 public:
  /**
   * Starts the service with these arguments and waits until it reports that
   * it listens. When `configText` is not empty it is written to a file in
   * HOME and passed with --config. Throws when the service does not start.
   */
  explicit Daemon(std::vector<std::string> args = {}, const std::string& configText = "");
  ~Daemon();
  Daemon(const Daemon&) = delete;
  Daemon& operator=(const Daemon&) = delete;

  /** Sends SIGTERM and waits; returns the exit code (128 + signal when killed by one). */
  int Stop();
  pid_t Pid() const { return pid_; }
  std::string LogText() const;
  const std::string& LogPath() const { return logPath_; }
  /** Waits until the log holds `text`; false on time-out. */
  bool WaitForLog(const std::string& text, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  /** Number of times `text` occurs in the log. */
  size_t CountInLog(const std::string& text) const;

 private:
  pid_t pid_ = -1;
  std::string logPath_;
};

/** Result of running the service to its end. */
struct DaemonRun {
  int exitCode = -1;
  std::string log;
};
/** Runs the service with these arguments until it exits by itself (at most `timeout`). */
DaemonRun RunDaemonToExit(const std::vector<std::string>& args,
                          std::chrono::milliseconds timeout = std::chrono::seconds(10));

/** Writes a file (creating it); returns its path. */
std::string WriteFile(const std::string& path, const std::string& text);

/**
 * Runs `body` in a forked child process and returns the child's pid. The
 * child ends with _exit(body()), so nothing of the test process (its HOME
 * clean-up, gtest) runs there.
 */
pid_t ForkClient(const std::function<int()>& body);
/** Waits for a child; returns its exit code, or 128 + signal. */
int WaitChild(pid_t pid, std::chrono::milliseconds timeout = std::chrono::seconds(20));

/** A loopback HTTP server on 127.0.0.1 with a free port, serving on its own thread. */
class LoopbackHttp {
 public:
  LoopbackHttp();
  /** Serves with this server, for instance an httplib::SSLServer. */
  explicit LoopbackHttp(std::unique_ptr<httplib::Server> server);
  ~LoopbackHttp();
  LoopbackHttp(const LoopbackHttp&) = delete;
  LoopbackHttp& operator=(const LoopbackHttp&) = delete;

  httplib::Server& Routes() { return *server_; }
  /** Starts listening; call after setting up the routes. */
  void Start();
  int Port() const { return port_; }
  /** URL of a path on this server, "http" or another scheme, on 127.0.0.1 or another host name. */
  std::wstring Url(const std::string& path, const std::string& scheme = "http",
                   const std::string& host = "127.0.0.1") const;

 private:
  std::unique_ptr<httplib::Server> server_;
  int port_ = 0;
  std::thread thread_;
};

/** A port on 127.0.0.1 that is bound but never listens, so connections are refused. */
class RefusingPort {
 public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;
  int Port() const { return port_; }

 private:
  int fd_ = -1;
  int port_ = 0;
};

/** A counter that threads can wait on, with a time-out. */
class Gate {
 public:
  void Arrive();
  /** Waits until at least n arrived; false on time-out. */
  bool WaitFor(int n, std::chrono::milliseconds timeout);
  void Open();
  /** Waits until opened; false on time-out. */
  bool WaitOpen(std::chrono::milliseconds timeout);

 private:
  std::mutex mutex_;
  std::condition_variable changed_;
  int arrived_ = 0;
  bool open_ = false;
};

/**
 * A client made by hand, without the library: the test process creates and
 * holds the pipes of a live process of this user (a sleeping child of its
 * own) and speaks raw bytes on them.
 */
class RawClient {
 public:
  RawClient();
  ~RawClient();
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  pid_t Pid() const { return pid_; }
  std::string RequestPath() const;
  std::string ReplyPath() const;
  /** Writes this process's registration record to the registration pipe. */
  void Register() const;
  /** Writes bytes to the request pipe, waiting while it is full; false when that takes longer than `timeout`. */
  bool Send(const std::vector<uint8_t>& bytes, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  /** Sends a version query; true when a reply arrives within the time-out. */
  bool Answered(std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  /** Replaces both pipes by new FIFOs under the same names, keeping the old ones open. */
  void Recreate();
  /** Kills and reaps the sleeping process: the client is gone, its pipes stay. */
  void Die();

 private:
  void Make();
  pid_t pid_ = -1;
  bool alive_ = true;
  int requestFd_ = -1;
  int replyFd_ = -1;
  std::vector<int> stale_;
};

/** A 12-byte frame prefix: message type, process id, body length. */
std::vector<uint8_t> FramePrefix(uint32_t type, uint32_t processId, uint32_t bodyLength);

/** Deterministic pseudo-random bytes. */
std::vector<unsigned char> PatternBytes(size_t size, uint32_t variant);

}  // namespace pam_test

#endif
