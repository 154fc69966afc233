// Fuzz target of the service's request path: what a client writes into its
// request pipe (after a byte choosing the size of the pieces it arrives in)
// goes through the service's framing over a real pipe into a session's
// dispatcher, with HTTP transfers and launches stubbed out. A frame is exactly
// the bytes its prefix announced, in order; every request gets a result.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <vector>

#include "common/ServerPipes.h"
#include "daemon/Config.h"
#include "daemon/Dispatcher.h"
#include "daemon/Log.h"
#include "daemon/MessageValues.h"
#include "daemon/ServiceCodes.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
namespace pd = palvonauthd;

// Answers every transfer from the request itself, so the response readers have
// something to read; launches only count their arguments.
class StubActions final : public pd::Actions {
 public:
  pd::HttpOutcome Perform(pd::HttpRequest& request, const pd::HttpSettings&, const std::atomic<bool>&) override {
    request.attempted = true;
    request.trustFailureFlags = static_cast<uint32_t>(request.headers.size());
    request.response.reset();
    if (request.url.empty()) return {pd::code::kHttpConnectFailed, "no URL"};
    pd::HttpResponse& response = request.response.emplace();
    response.status = 200, response.reason = request.method, response.headers = request.headers;
    response.body.assign(request.url.begin(), request.url.end());
    response.body.insert(response.body.end(), request.body.begin(), request.body.end());
    return {0, "stub"};
  }
  uint32_t Launch(const pd::LaunchRequest& request) override { return static_cast<uint32_t>(request.args.size() % 4); }
};

void Check(bool condition) {
  if (!condition) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size == 0) return 0;
  // 0: all at once; small pieces are possible but rare, as each costs two system calls.
  const size_t piece = data[0] == 0 ? size : 1 + size_t{data[0]} * data[0];
  ++data, --size;
  static const pd::Config config = (pd::SetSilent(true), pd::DefaultConfig());
  int fds[2];
  Check(pipe2(fds, O_NONBLOCK | O_CLOEXEC) == 0);
  StubActions actions;
  pd::ServiceContext context(config, actions);
  const std::atomic<bool> cancel{false};
  pd::Dispatcher dispatcher(context, 4242, cancel);
  pam_service::FrameReader reader;
  size_t fed = 0, framed = 0;
  for (pam_service::ReadStatus status = pam_service::ReadStatus::kNeedMore;
       status == pam_service::ReadStatus::kNeedMore;) {
    if (fed < size) {
      const ssize_t written = write(fds[1], data + fed, std::min(piece, size - fed));
      if (written > 0) fed += static_cast<size_t>(written);
    } else if (fds[1] >= 0) {
      close(fds[1]);
      fds[1] = -1;
    }
    std::vector<uint8_t> raw;
    LinuxDictionary request;
    while ((status = reader.Read(fds[0], raw, request)) == pam_service::ReadStatus::kFrame) {
      Check(raw.size() >= 12 && framed + raw.size() <= fed && std::equal(raw.begin(), raw.end(), data + framed));
      framed += raw.size();
      LinuxDictionary reply = dispatcher.Answer(request);
      unsigned int result = 0;
      Check(reply.GetUInt(pd::key::kReturn, &result) && reply.Serialize(true) != nullptr);
      (void)pd::DescribeValues(request), (void)pd::DescribeValues(reply);
    }
  }
  (void)dispatcher.ReleaseAll();
  close(fds[0]);
  if (fds[1] >= 0) close(fds[1]);
  return 0;
}
