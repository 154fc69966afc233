#ifndef PALVONAUTHD_BODYSTREAM_H
#define PALVONAUTHD_BODYSTREAM_H

// The body of a response on its way from the web server to the client,
// through a buffer of fixed size: the transfer's thread puts bytes in and
// waits while the buffer is full (which pauses the download), the client's
// session takes them out as the client reads.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <vector>

namespace palvonauthd {

class BodyStream {
 public:
  /** `capacity` bytes at most are held; `cancel` turning true ends every wait. */
  BodyStream(size_t capacity, const std::atomic<bool>& cancel);

  // The transfer's side.
  /**
   * Puts all bytes in, waiting for room while the buffer is full. False when
   * the reader abandoned the stream or the session is ending.
   */
  bool Put(const uint8_t* data, size_t length);
  /** No more bytes will come: `code` 0 for a complete body, else the failure. */
  void Finish(uint32_t code);
  /** True once the reader abandoned the stream or the session is ending. */
  bool Abandoned() const;
  /** When bytes last came in (or the stream was made). */
  std::chrono::steady_clock::time_point LastInput() const;

  // The reader's side.
  /**
   * Waits until at least one byte is there, the body ended or failed, or the
   * session is ending, then copies up to `max` bytes to `out`. Returns the
   * count; 0 with `code` 0 is the end of the body, `code` otherwise says why
   * the body broke off (code::kHttpCancelled when the session is ending).
   */
  size_t Take(uint8_t* out, size_t max, uint32_t& code);
  /** Ends the stream from the reader's side: the transfer stops at its next step. */
  void Abandon();
  /** Bytes held now (for tests and the log). */
  size_t Held() const;

 private:
  bool Cancelled() const { return cancel_.load() || abandoned_; }

  mutable std::mutex lock_;
  std::condition_variable changed_;
  // Left uninitialised: only the part a body fills is ever touched, so a
  // small response does not pay for clearing the whole buffer.
  std::unique_ptr<uint8_t[]> ring_;
  size_t size_;
  size_t start_ = 0;
  size_t held_ = 0;
  bool finished_ = false;
  bool abandoned_ = false;
  uint32_t code_ = 0;
  std::chrono::steady_clock::time_point lastInput_;
  const std::atomic<bool>& cancel_;
};

}  // namespace palvonauthd

#endif
