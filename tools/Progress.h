#ifndef PALVONAUTH_TOOLS_PROGRESS_H
#define PALVONAUTH_TOOLS_PROGRESS_H

// A one-line progress display for long response bodies, redrawn in place
// with a carriage return at most a few times a second.

#include <chrono>
#include <cstdint>
#include <cstdio>

namespace palvonauth {

class Progress {
 public:
  /**
   * @param total expected size, 0 when unknown.
   * @param threshold nothing is drawn until this many bytes arrived, so
   *        short bodies leave no trace.
   */
  Progress(std::FILE* stream, bool enabled, uint64_t total, uint64_t threshold);
  void Update(uint64_t received);
  /** Draws the final state (if anything was drawn) and ends the line. */
  void Finish(uint64_t received);

 private:
  void Draw(uint64_t received);

  std::FILE* stream_;
  bool enabled_;
  uint64_t total_;
  uint64_t threshold_;
  bool drawn_ = false;
  size_t lastLength_ = 0;
  std::chrono::steady_clock::time_point start_;
  std::chrono::steady_clock::time_point lastDraw_;
};

}  // namespace palvonauth

#endif
