#ifndef PAM_BENCH_LOOPBACKBODIES_H
#define PAM_BENCH_LOOPBACKBODIES_H

// Generated response bodies for the HTTP benchmarks: a loopback server's
// routes that produce them, a sink that checks them as they arrive, and a
// libcurl fetch into such a sink.

#include <curl/curl.h>
#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <exception>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

namespace pam_bench {

using Clock = std::chrono::steady_clock;
using namespace std::chrono_literals;

constexpr uint64_t kMiB = 1024 * 1024;
constexpr size_t kPeriod = 65521;  // prime, so that a shifted or lost piece shows
constexpr size_t kPiece = kMiB;    // most bytes written or checked at once
constexpr size_t kSlowFirst = 4096;
constexpr auto kSlowPause = 3s;

inline double MsSince(Clock::time_point start, Clock::time_point end = Clock::now()) {
  return std::chrono::duration<double, std::milli>(end - start).count();
}

/** Pseudo-random bytes repeating every kPeriod; At(offset) has kPiece valid bytes. */
class Pattern {
 public:
  Pattern() : bytes_(kPeriod + kPiece) {
    uint32_t x = 2463534242u;
    for (size_t i = 0; i < kPeriod; ++i) {
      x ^= x << 13, x ^= x >> 17, x ^= x << 5;
      bytes_[i] = static_cast<char>(x);
    }
    for (size_t i = kPeriod; i < bytes_.size(); ++i) bytes_[i] = bytes_[i - kPeriod];
  }
  const char* At(uint64_t offset) const { return bytes_.data() + offset % kPeriod; }

 private:
  std::vector<char> bytes_;
};

inline const Pattern& ThePattern() {
  static const Pattern pattern;
  return pattern;
}

/** Counts received bytes and compares each with the pattern at its offset. */
struct Sink {
  uint64_t bytes = 0;
  bool intact = true;
  Clock::time_point first;
  void Take(const char* data, size_t length) {
    if (bytes == 0 && length > 0) first = Clock::now();
    while (length > 0) {
      const size_t piece = std::min(length, kPiece);
      intact = intact && std::memcmp(data, ThePattern().At(bytes), piece) == 0;
      bytes += piece, data += piece, length -= piece;
    }
  }
  std::string Problem(uint64_t expected) const {
    if (bytes != expected) return std::to_string(bytes) + " bytes instead of " + std::to_string(expected);
    return intact ? "" : "body differs from the pattern";
  }
};

/** GET /body/N: N pattern bytes. GET /slow/N: the first 4 KiB at once, the rest after a pause. */
inline void AddRoutes(httplib::Server& server) {
  server.Get(R"(/(body|slow)/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
    const bool slow = request.matches[1] == "slow";
    const uint64_t size = std::stoull(request.matches[2]);
    response.set_content_provider(
        size, "application/octet-stream", [slow](size_t offset, size_t length, httplib::DataSink& sink) {
          if (slow && offset == kSlowFirst) {
            for (const auto until = Clock::now() + kSlowPause; Clock::now() < until;) {
              if (!sink.is_writable()) return false;
              std::this_thread::sleep_for(10ms);
            }
          }
          const size_t limit = slow && offset < kSlowFirst ? kSlowFirst - offset : kPiece;
          return sink.write(ThePattern().At(offset), std::min(length, limit));
        });
  });
}

inline size_t OnCurlBody(char* data, size_t size, size_t count, void* user) {
  static_cast<Sink*>(user)->Take(data, size * count);
  return size * count;
}

/** Fetches `url` with a libcurl handle (which keeps its connection for the next fetch); an error text or "". */
inline std::string FetchWith(CURL* curl, const std::string& url, Sink& sink) {
  curl_easy_setopt(curl, CURLOPT_URL, url.c_str());
  curl_easy_setopt(curl, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(curl, CURLOPT_PROXY, "");
  curl_easy_setopt(curl, CURLOPT_WRITEFUNCTION, OnCurlBody);
  curl_easy_setopt(curl, CURLOPT_WRITEDATA, &sink);
  const CURLcode result = curl_easy_perform(curl);
  long status = 0;
  curl_easy_getinfo(curl, CURLINFO_RESPONSE_CODE, &status);
  if (result != CURLE_OK) return curl_easy_strerror(result);
  return status == 200 ? "" : "HTTP status " + std::to_string(status);
}

/** Fetches `url` with a libcurl handle of its own. */
inline std::string FetchStraight(const std::string& url, Sink& sink) {
  CURL* curl = curl_easy_init();
  if (curl == nullptr) return "curl_easy_init failed";
  const std::string problem = FetchWith(curl, url, sink);
  curl_easy_cleanup(curl);
  return problem;
}

/** Runs a benchmark program's body between libcurl's global set-up and clean-up; its exit code. */
template <typename Body>
int RunWithCurl(Body&& body) {
  curl_global_init(CURL_GLOBAL_DEFAULT);
  int code = 1;
  try {
    code = body();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s\n", error.what());
  }
  curl_global_cleanup();
  return code;
}

}  // namespace pam_bench

#endif
