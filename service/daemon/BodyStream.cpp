#include "daemon/BodyStream.h"

#include <algorithm>
#include <cstring>

#include "daemon/ServiceCodes.h"

namespace palvonauthd {

namespace {
// Waits are cut into steps so that the session's cancel flag, which nobody
// notifies, is seen within one step.
constexpr auto kStep = std::chrono::milliseconds(20);
}  // namespace

BodyStream::BodyStream(size_t capacity, const std::atomic<bool>& cancel)
    : ring_(new uint8_t[std::max<size_t>(capacity, 1)]),
      size_(std::max<size_t>(capacity, 1)),
      lastInput_(std::chrono::steady_clock::now()),
      cancel_(cancel) {}

bool BodyStream::Put(const uint8_t* data, size_t length) {
  std::unique_lock<std::mutex> guard(lock_);
  while (length > 0) {
    while (held_ == size_ && !Cancelled()) changed_.wait_for(guard, kStep);
    if (Cancelled()) return false;
    // Into the free part of the ring: up to its end, then from its start.
    const size_t end = (start_ + held_) % size_;
    const size_t room = std::min(size_ - held_, size_ - end);
    const size_t piece = std::min(room, length);
    std::memcpy(ring_.get() + end, data, piece);
    held_ += piece;
    data += piece;
    length -= piece;
    lastInput_ = std::chrono::steady_clock::now();
    changed_.notify_all();
  }
  return true;
}

void BodyStream::Finish(uint32_t code) {
  std::lock_guard<std::mutex> guard(lock_);
  finished_ = true;
  code_ = code;
  changed_.notify_all();
}

bool BodyStream::Abandoned() const {
  std::lock_guard<std::mutex> guard(lock_);
  return Cancelled();
}

std::chrono::steady_clock::time_point BodyStream::LastInput() const {
  std::lock_guard<std::mutex> guard(lock_);
  return lastInput_;
}

size_t BodyStream::Take(uint8_t* out, size_t max, uint32_t& code) {
  code = 0;
  if (max == 0) return 0;
  std::unique_lock<std::mutex> guard(lock_);
  while (held_ == 0 && !finished_ && !Cancelled()) changed_.wait_for(guard, kStep);
  if (held_ == 0) {
    code = finished_ ? code_ : code::kHttpCancelled;
    return 0;
  }
  size_t taken = 0;
  while (taken < max && held_ > 0) {
    const size_t piece = std::min({max - taken, held_, size_ - start_});
    std::memcpy(out + taken, ring_.get() + start_, piece);
    start_ = (start_ + piece) % size_;
    held_ -= piece;
    taken += piece;
  }
  changed_.notify_all();
  return taken;
}

void BodyStream::Abandon() {
  std::lock_guard<std::mutex> guard(lock_);
  abandoned_ = true;
  changed_.notify_all();
}

size_t BodyStream::Held() const {
  std::lock_guard<std::mutex> guard(lock_);
  return held_;
}

}  // namespace palvonauthd
