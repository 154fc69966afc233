#ifndef PALVONAUTH_TOOLS_DEADLINE_H
#define PALVONAUTH_TOOLS_DEADLINE_H

// A time limit on calls into the library, which offers no way to interrupt
// a call that waits for the service. When the limit passes while the main
// thread is inside such a call, a watching thread reports and ends the
// process; it never runs while the main thread is outside one, so the two
// never write at the same time.

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace palvonauth {

class Deadline {
 public:
  /**
   * Starts the clock. `expire` runs on the watching thread once the limit
   * has passed and the main thread is inside Blocking(); it reports and
   * returns the exit code, and the process ends with it. A limit of 0 or
   * less never passes.
   */
  Deadline(double seconds, std::function<int()> expire);
  ~Deadline();
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  /** Runs a call that may block; the process may end while it runs. */
  template <typename Call>
  auto Blocking(Call&& call) {
    const Released released(*this);
    return call();
  }

 private:
  struct Released {
    explicit Released(Deadline& owner) : owner_(owner) { owner_.held_.unlock(); }
    ~Released() { owner_.held_.lock(); }
    Deadline& owner_;
  };

  void Watch(std::chrono::steady_clock::time_point limit);

  std::mutex mutex_;
  /** Held by the main thread except inside Blocking(). */
  std::unique_lock<std::mutex> held_;
  std::condition_variable changed_;
  bool stopped_ = false;
  std::function<int()> expire_;
  std::thread watcher_;
};

}  // namespace palvonauth

#endif
