#include "Progress.h"

#include <string>

namespace palvonauth {

namespace {

// "512 B", "64.0 KiB", "1.5 MiB", "2.0 GiB".
std::string FormatBytes(uint64_t bytes) {
  static const char* const kUnits[] = {"KiB", "MiB", "GiB", "TiB"};
  if (bytes < 1024) return std::to_string(bytes) + " B";
  double value = static_cast<double>(bytes) / 1024.0;
  size_t unit = 0;
  while (value >= 1024.0 && unit + 1 < sizeof kUnits / sizeof kUnits[0]) {
    value /= 1024.0;
    ++unit;
  }
  char text[32];
  std::snprintf(text, sizeof text, "%.1f %s", value, kUnits[unit]);
  return text;
}

}  // namespace

Progress::Progress(std::FILE* stream, bool enabled, uint64_t total, uint64_t threshold)
    : stream_(stream),
      enabled_(enabled),
      total_(total),
      threshold_(threshold),
      start_(std::chrono::steady_clock::now()),
      lastDraw_(start_) {}

void Progress::Update(uint64_t received) {
  if (!enabled_ || received < threshold_) return;
  const auto now = std::chrono::steady_clock::now();
  if (drawn_ && now - lastDraw_ < std::chrono::milliseconds(200)) return;
  lastDraw_ = now;
  Draw(received);
}

void Progress::Finish(uint64_t received) {
  if (!enabled_ || (!drawn_ && received < threshold_)) return;
  Draw(received);
  std::fputc('\n', stream_);
  std::fflush(stream_);
}

void Progress::Draw(uint64_t received) {
  std::string line = "palvonauth: received " + FormatBytes(received);
  if (total_ > 0) {
    line += " of " + FormatBytes(total_);
    const uint64_t percent = received >= total_ ? 100 : received * 100 / total_;
    line += " (" + std::to_string(percent) + "%)";
  }
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
  if (seconds > 0.05) {
    line += ", " + FormatBytes(static_cast<uint64_t>(static_cast<double>(received) / seconds)) + "/s";
  }
  const size_t length = line.size();
  // Blank out what is left of a longer previous line.
  if (length < lastLength_) line.append(lastLength_ - length, ' ');
  lastLength_ = length;
  std::fputc('\r', stream_);
  std::fputs(line.c_str(), stream_);
  std::fflush(stream_);
  drawn_ = true;
}

}  // namespace palvonauth
