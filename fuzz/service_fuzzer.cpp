// Fuzz target of the service's request path. The input is what a client
// writes into its request pipe, after one leading byte that chooses the size
// of the pieces it arrives in. The bytes go through the service's own
// framing over a real pipe, and every frame is answered by the dispatcher a
// session uses, with HTTP transfers and launches stubbed out. The framing
// must never hand out more than it was given nor read past a frame, and no
// request may crash, hang or throw out of the dispatcher.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <vector>

#include "common/ServerPipes.h"
#include "daemon/Codes.h"
#include "daemon/Config.h"
#include "daemon/Dispatcher.h"
#include "daemon/Log.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
using pam_service::ReadStatus;
namespace pd = palvonauthd;

// Answers every transfer from the request itself, so the response readers
// have something to read; launches only count their arguments.
class StubActions final : public pd::Actions {
 public:
  pd::HttpOutcome Perform(pd::HttpRequest& request, const pd::HttpSettings&, const std::atomic<bool>&) override {
    request.attempted = true;
    request.trustFailureFlags = static_cast<uint32_t>(request.headers.size());
    if (request.url.empty()) {
      request.response.reset();
      return {pd::code::kHttpConnectFailed, "no URL"};
    }
    pd::HttpResponse response;
    response.status = 200;
    response.reason = request.method;
    response.headers = request.headers;
    response.body.assign(request.url.begin(), request.url.end());
    response.body.insert(response.body.end(), request.body.begin(), request.body.end());
    request.response = std::move(response);
    return {0, "stub"};
  }
  uint32_t Launch(const pd::LaunchRequest& request) override { return static_cast<uint32_t>(request.args.size() % 4); }
};

const pd::Config& FuzzConfig() {
  static const pd::Config config = [] {
    pd::SetSilent(true);
    return pd::DefaultConfig();
  }();
  return config;
}

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // 0: all at once; small pieces are possible but rare, as each costs two system calls.
  const size_t piece = data[0] == 0 ? size : 1 + size_t{data[0]} * data[0];
  ++data;
  --size;

  int fds[2];
  Check(pipe2(fds, O_NONBLOCK | O_CLOEXEC) == 0);
  StubActions actions;
  pd::ServiceContext context(FuzzConfig(), actions);
  const std::atomic<bool> cancel{false};
  pd::Dispatcher dispatcher(context, 4242, cancel);
  pam_service::FrameReader reader;

  size_t fed = 0;
  size_t framed = 0;
  bool done = false;
  while (!done) {
    if (fed < size) {
      const ssize_t written = write(fds[1], data + fed, std::min(piece, size - fed));
      if (written > 0) fed += static_cast<size_t>(written);
    } else if (fds[1] >= 0) {
      close(fds[1]);
      fds[1] = -1;
    }
    for (;;) {
      std::vector<uint8_t> raw;
      LinuxDictionary request;
      const ReadStatus status = reader.Read(fds[0], raw, request);
      if (status == ReadStatus::kFrame) {
        // A frame is exactly the bytes its prefix announced, in order.
        Check(raw.size() >= 12 && framed + raw.size() <= fed);
        Check(std::equal(raw.begin(), raw.end(), data + framed));
        framed += raw.size();
        (void)pd::DescribeValues(request);
        LinuxDictionary reply = dispatcher.Answer(request);
        unsigned int result = 0;
        Check(reply.GetUInt(L"return", &result));
        (void)pd::DescribeValues(reply);
        (void)reply.Serialize(true);
        continue;
      }
      if (status != ReadStatus::kNeedMore) done = true;
      break;
    }
  }
  (void)dispatcher.ReleaseAll();
  close(fds[0]);
  if (fds[1] >= 0) close(fds[1]);
  return 0;
}
