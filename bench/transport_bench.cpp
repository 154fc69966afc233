// Round trip of one call through the library's transport, against a service
// in another process, next to a bare FIFO ping-pong of the same sizes
// between two processes. The summary line at the end gives the ratio
// library / bare; the goal is at most 1.5.
//
//   pam_bench_transport [--benchmark_min_time=2] [--benchmark_repetitions=5]
//
// Processes: this one (the client), a minimal service answering the client's
// calls, and a bare echo peer. Both helpers are forked before the library is
// initialised and before any thread exists; all three share a temporary HOME.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include "PalvonAuthManager.h"
#include "client/CClientCommLib.h"
#include "client/ServerVersion.h"
#include "common/ServerPipes.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/PipeFolder.h"
#include "message/LinuxDictionary.h"
#include "protocol/Operations.h"

using namespace PalvonAuthManagerSDK;

namespace {

// Sizes and bytes of the version query and of the service's answer to it.
struct Frames {
  std::vector<uint8_t> request;
  std::vector<uint8_t> reply;
};

std::vector<uint8_t> Encode(LinuxDictionary& message) {
  const uint8_t* bytes = message.Serialize(true);
  return std::vector<uint8_t>(bytes, bytes + message.EncodedLength());
}

std::vector<uint8_t> ReplyFrame(uint32_t type, uint32_t pid) {
  LinuxDictionary reply(MessageCommon(type, pid));
  reply.SetUInt(key::kReturn, 0);
  reply.SetUInt(key::kVersion, 2);
  return Encode(reply);
}

Frames VersionQueryFrames(uint32_t clientPid) {
  Frames frames;
  LinuxDictionary request(MessageCommon(msg::kGetServerSDKVersion, clientPid));
  frames.request = Encode(request);
  frames.reply = ReplyFrame(msg::kGetServerSDKVersion, clientPid);
  return frames;
}

bool ReadFully(int fd, uint8_t* into, size_t length) {
  size_t done = 0;
  while (done < length) {
    const ssize_t got = read(fd, into + done, length - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

bool WriteFully(int fd, const uint8_t* data, size_t length) {
  size_t done = 0;
  while (done < length) {
    const ssize_t written = write(fd, data + done, length - done);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    done += static_cast<size_t>(written);
  }
  return true;
}

// The service process: waits for one client to register, then answers each
// request frame with a prepared reply ("return" 0, "version" 2) until the
// client goes away. One blocking read per request and one write per reply,
// nothing else, so that its own cost matches the bare echo peer's.
[[noreturn]] void ServeOneClient(const std::string& directory) {
  pam_service::RegistrationPipe registration(directory);
  if (!registration.Open()) _exit(2);
  uint32_t client = 0;
  while (client == 0) {
    struct pollfd wait {
      registration.Fd(), POLLIN, 0
    };
    if (poll(&wait, 1, 60000) <= 0) _exit(3);
    for (const auto& record : registration.ReadRecords()) {
      if (record.WellFormed()) client = record.processId;
    }
  }
  const std::string base = directory + "/" + ClientChannelName(client);
  const int requests = open((base + kRequestPipeSuffix).c_str(), O_RDONLY | O_CLOEXEC);
  const int replies = open((base + kReplyPipeSuffix).c_str(), O_WRONLY | O_CLOEXEC);
  if (requests < 0 || replies < 0) _exit(4);
  std::map<uint32_t, std::vector<uint8_t>> prepared;
  // Whatever has arrived is read at once and cut into frames; the client
  // sends one frame per call, so one read usually brings exactly one.
  std::vector<uint8_t> pending;
  std::vector<uint8_t> chunk(1 << 16);
  for (;;) {
    const ssize_t got = read(requests, chunk.data(), chunk.size());
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) _exit(0);  // the client is gone
    pending.insert(pending.end(), chunk.begin(), chunk.begin() + got);
    size_t offset = 0;
    while (pending.size() - offset >= kMessagePrefixSize) {
      uint32_t type = 0;
      uint32_t bodyLength = 0;
      std::memcpy(&type, pending.data() + offset, 4);
      std::memcpy(&bodyLength, pending.data() + offset + 8, 4);
      if (pending.size() - offset < kMessagePrefixSize + bodyLength) break;
      offset += kMessagePrefixSize + bodyLength;
      auto it = prepared.find(type);
      if (it == prepared.end()) it = prepared.emplace(type, ReplyFrame(type, client)).first;
      if (!WriteFully(replies, it->second.data(), it->second.size())) _exit(0);
    }
    pending.erase(pending.begin(), pending.begin() + static_cast<std::ptrdiff_t>(offset));
  }
}

// The bare echo peer: reads one request-sized message, writes one
// reply-sized message, until the other side closes.
[[noreturn]] void Echo(const std::string& pingPath, const std::string& pongPath, const Frames& frames) {
  const int ping = open(pingPath.c_str(), O_RDONLY | O_CLOEXEC);
  const int pong = open(pongPath.c_str(), O_WRONLY | O_CLOEXEC);
  if (ping < 0 || pong < 0) _exit(5);
  std::vector<uint8_t> request(frames.request.size());
  for (;;) {
    if (!ReadFully(ping, request.data(), request.size())) _exit(0);
    if (!WriteFully(pong, frames.reply.data(), frames.reply.size())) _exit(0);
  }
}

struct Setup {
  std::string home;
  pid_t service = -1;
  pid_t echo = -1;
  int ping = -1;
  int pong = -1;
  Frames frames;
};

Setup g_setup;

bool Prepare() {
  char home[] = "/tmp/pam-bench-home-XXXXXX";
  if (mkdtemp(home) == nullptr) return false;
  g_setup.home = home;
  setenv("HOME", home, 1);
  const std::string directory = CLinuxIPC::getUserTmpDir();
  g_setup.frames = VersionQueryFrames(CurrentProcessId());

  std::fflush(nullptr);
  g_setup.service = fork();
  if (g_setup.service < 0) return false;
  if (g_setup.service == 0) ServeOneClient(directory);

  const std::string ping = g_setup.home + "/ping";
  const std::string pong = g_setup.home + "/pong";
  if (mkfifo(ping.c_str(), 0600) != 0 || mkfifo(pong.c_str(), 0600) != 0) return false;
  g_setup.echo = fork();
  if (g_setup.echo < 0) return false;
  if (g_setup.echo == 0) Echo(ping, pong, g_setup.frames);
  g_setup.ping = open(ping.c_str(), O_WRONLY | O_CLOEXEC);
  g_setup.pong = open(pong.c_str(), O_RDONLY | O_CLOEXEC);
  if (g_setup.ping < 0 || g_setup.pong < 0) return false;

  const AMResult initialised = PalvonAuthManager_Initialize();
  if (initialised != 0) {
    std::fprintf(stderr, "PalvonAuthManager_Initialize: %u\n", initialised);
    return false;
  }
  return true;
}

void TearDown() {
  (void)PalvonAuthManager_Uninitialize();
  if (g_setup.ping >= 0) close(g_setup.ping);
  if (g_setup.pong >= 0) close(g_setup.pong);
  for (const pid_t child : {g_setup.service, g_setup.echo}) {
    if (child <= 0) continue;
    int status = 0;
    // Both helpers end on end-of-file; a stuck one is stopped.
    for (int i = 0; i < 100 && waitpid(child, &status, WNOHANG) == 0; ++i) usleep(10000);
    if (waitpid(child, &status, WNOHANG) == 0) {
      kill(child, SIGKILL);
      waitpid(child, &status, 0);
    }
  }
  std::error_code ignored;
  std::filesystem::remove_all(g_setup.home, ignored);
}

// One version query through the process's call channel: encode (cached),
// write, wait, read and decode the reply, copy it out.
void BM_LibraryMakeCall(benchmark::State& state) {
  LinuxDictionary request(MessageCommon(msg::kGetServerSDKVersion, CurrentProcessId()));
  const boost::shared_ptr<CClientCommLib> channel = g_ClientCommPtr;
  for (auto _ : state) {
    LinuxDictionary reply = channel->MakeCall(request);
    unsigned int version = 0;
    if (!reply.GetUInt(key::kVersion, &version) || version != 2) {
      state.SkipWithError("unexpected reply");
      break;
    }
    benchmark::DoNotOptimize(version);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(g_setup.frames.request.size() + g_setup.frames.reply.size()));
}

// The whole internal operation as library initialisation runs it: request
// built each time, busy handling, tracing calls (tracing off).
void BM_LibraryGetServerSDKVersion(benchmark::State& state) {
  for (auto _ : state) {
    AMUint version = 0;
    if (GetServerSDKVersion(&version) != 0 || version != 2) {
      state.SkipWithError("unexpected result");
      break;
    }
    benchmark::DoNotOptimize(version);
  }
}

// The same bytes over two bare FIFOs: one write, one read each way.
void BM_RawFifoPingPong(benchmark::State& state) {
  const Frames& frames = g_setup.frames;
  std::vector<uint8_t> reply(frames.reply.size());
  for (auto _ : state) {
    if (!WriteFully(g_setup.ping, frames.request.data(), frames.request.size()) ||
        !ReadFully(g_setup.pong, reply.data(), reply.size())) {
      state.SkipWithError("echo peer gone");
      break;
    }
    benchmark::DoNotOptimize(reply.data());
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations()) *
                          static_cast<int64_t>(frames.request.size() + frames.reply.size()));
}

BENCHMARK(BM_RawFifoPingPong)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LibraryMakeCall)->UseRealTime()->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_LibraryGetServerSDKVersion)->UseRealTime()->Unit(benchmark::kMicrosecond);

// Console output plus the mean real time per iteration of each benchmark.
class SummaryReporter : public benchmark::ConsoleReporter {
 public:
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred || run.run_type != Run::RT_Iteration || run.iterations == 0) continue;
      auto& total = totals_[run.run_name.function_name];
      total.first += run.real_accumulated_time;
      total.second += static_cast<double>(run.iterations);
    }
    ConsoleReporter::ReportRuns(runs);
  }

  // Seconds per iteration, or 0 when the benchmark did not run.
  double PerIteration(const std::string& name) const {
    const auto it = totals_.find(name);
    return it == totals_.end() || it->second.second == 0 ? 0 : it->second.first / it->second.second;
  }

 private:
  std::map<std::string, std::pair<double, double>> totals_;
};

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  if (!Prepare()) {
    std::fprintf(stderr, "setting up the service and echo processes failed\n");
    TearDown();
    return 1;
  }
  SummaryReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  TearDown();

  const double raw = reporter.PerIteration("BM_RawFifoPingPong");
  const double library = reporter.PerIteration("BM_LibraryMakeCall");
  const double operation = reporter.PerIteration("BM_LibraryGetServerSDKVersion");
  std::printf("\nround trip of a %zu-byte request and a %zu-byte reply between two processes:\n",
              g_setup.frames.request.size(), g_setup.frames.reply.size());
  if (raw > 0) std::printf("  bare FIFO ping-pong         %8.2f us\n", raw * 1e6);
  if (library > 0) std::printf("  library MakeCall            %8.2f us\n", library * 1e6);
  if (operation > 0) std::printf("  library GetServerSDKVersion %8.2f us\n", operation * 1e6);
  if (raw > 0 && library > 0) {
    std::printf("  ratio MakeCall / bare       %8.2f (goal: at most 1.50)\n", library / raw);
  }
  if (raw > 0 && operation > 0) {
    std::printf("  ratio operation / bare      %8.2f\n", operation / raw);
  }
  return 0;
}
