#include "Deadline.h"

#include <cstdio>
#include <cstdlib>
#include <utility>

namespace palvonauth {

Deadline::Deadline(double seconds, std::function<int()> expire) : held_(mutex_), expire_(std::move(expire)) {
  if (seconds <= 0) return;
  const auto limit = std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                                                            std::chrono::duration<double>(seconds));
  watcher_ = std::thread([this, limit] { Watch(limit); });
}

Deadline::~Deadline() {
  stopped_ = true;
  held_.unlock();
  changed_.notify_all();
  if (watcher_.joinable()) watcher_.join();
}

void Deadline::Watch(std::chrono::steady_clock::time_point limit) {
  std::unique_lock<std::mutex> lock(mutex_);
  if (changed_.wait_until(lock, limit, [this] { return stopped_; })) return;
  // The lock stays held: the main thread cannot leave its call and carry
  // on, also not when the call completes after all.
  const int exitCode = expire_();
  std::fflush(nullptr);
  std::_Exit(exitCode);
}

}  // namespace palvonauth
