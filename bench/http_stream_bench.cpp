// One large HTTP download fetched straight with libcurl and through the real
// palvonauthd with the library, and how soon the first bytes of a slow
// response reach the client.
//
//   PAM_BENCH_BODY_MIB=300,200 pam_bench_http_stream [--benchmark_repetitions=3]
//
// PAM_BENCH_BODY_MIB: body sizes in MiB (default 300). PAM_BENCH_DAEMON: the
// service binary (default: the one built here). The web server runs on a
// loopback port in this process and generates its bodies, nothing is kept on
// disk; the service is a child with a temporary HOME shared with this process.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "LoopbackBodies.h"
#include "PalvonAuthManager.h"
#include "support/ServiceHarness.h"

using namespace PalvonAuthManagerSDK;
using namespace pam_test;
using namespace pam_bench;

namespace {

constexpr AMUint kReadSize = kMiB;
constexpr uint64_t kSlowBody = kMiB;

struct Setup {
  LoopbackHttp* server = nullptr;
  Daemon* daemon = nullptr;
  ConnectionHandle connection = 0;
  /** Straight bytes per second by body size in MiB, for the ratio. */
  std::map<int64_t, double> straightRate;
};
Setup g;

std::wstring Url(const char* route, uint64_t bytes) { return g.server->Url(route + std::to_string(bytes)); }

std::string Narrow(const std::wstring& text) { return std::string(text.begin(), text.end()); }

std::string Hex(AMResult code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%X", code);
  return text;
}

/** The last line of the service's log that mentions an HTTP request, masked. */
std::string LastHttpLogLine() {
  std::istringstream log(g.daemon->Log());
  std::string line, last;
  while (std::getline(log, line)) {
    if (line.find("HTTP request") != std::string::npos) last = line;
  }
  return MaskLog(last);
}

/** VmHWM of the service in MiB. */
double ServicePeakMiB() {
  std::istringstream status(ReadFile("/proc/" + std::to_string(g.daemon->Pid()) + "/status"));
  for (std::string line; std::getline(status, line);) {
    if (line.rfind("VmHWM:", 0) == 0) return std::stod(line.substr(6)) / 1024.0;
  }
  return 0;
}

/** Starts the service's peak RSS afresh (Linux: 5 to clear_refs). */
void ResetServicePeak() { WriteFile("/proc/" + std::to_string(g.daemon->Pid()) + "/clear_refs", "5"); }

struct ServiceFetch {
  std::string problem;
  Sink sink;
  Clock::time_point sent;  // when the Send call returned
};

/** Fetches `url` through the service with 1 MiB reads until 0 bytes. */
ServiceFetch FetchThroughService(const std::wstring& url) {
  ServiceFetch fetch;
  AMHttpHandle request = 0;
  AMResult result = PalvonAuthManager_CreateAMHttpRequest(g.connection, &request);
  if (result == 0) result = PalvonAuthManager_SetRequestUrl(request, url.c_str());
  if (result != 0) {
    fetch.problem = "setting up the request: " + Hex(result);
    return fetch;
  }
  result = PalvonAuthManager_SendRequestAndReceiveResponse(request);
  fetch.sent = Clock::now();
  AMUint status = 0;
  if (result != 0) {
    fetch.problem = "SendRequestAndReceiveResponse: " + Hex(result) + " (" + LastHttpLogLine() + ")";
  } else if ((result = PalvonAuthManager_GetResponseStatusCode(request, &status)) != 0 || status != 200) {
    fetch.problem = "status " + std::to_string(status) + ", result " + Hex(result);
  } else {
    std::vector<AMByte> buffer(kReadSize);
    for (AMUint got = 1; got > 0;) {
      got = 0;
      result = PalvonAuthManager_ReadResponseBodyStream(request, buffer.data(), kReadSize, &got);
      if (result != 0) {
        fetch.problem = "ReadResponseBodyStream: " + Hex(result);
        break;
      }
      fetch.sink.Take(reinterpret_cast<const char*>(buffer.data()), got);
    }
  }
  (void)PalvonAuthManager_DestroyAMHttpRequest(request);
  return fetch;
}

void BM_Straight(benchmark::State& state) {
  const uint64_t size = static_cast<uint64_t>(state.range(0)) * kMiB;
  double seconds = 0;
  for (auto _ : state) {
    Sink sink;
    const auto start = Clock::now();
    std::string problem = FetchStraight(Narrow(Url("/body/", size)), sink);
    seconds += MsSince(start) / 1000;
    if (problem.empty()) problem = sink.Problem(size);
    if (!problem.empty()) {
      state.SkipWithError(problem.c_str());
      return;
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
  g.straightRate[state.range(0)] = static_cast<double>(state.iterations() * size) / seconds;
}

void BM_ThroughService(benchmark::State& state) {
  const uint64_t size = static_cast<uint64_t>(state.range(0)) * kMiB;
  double seconds = 0, sendMs = 0, firstByteMs = 0, peakMiB = 0;
  for (auto _ : state) {
    ResetServicePeak();
    const auto start = Clock::now();
    ServiceFetch fetch = FetchThroughService(Url("/body/", size));
    seconds += MsSince(start) / 1000;
    peakMiB = std::max(peakMiB, ServicePeakMiB());
    if (fetch.problem.empty()) fetch.problem = fetch.sink.Problem(size);
    if (!fetch.problem.empty()) {
      std::fprintf(stderr, "%lld MiB through the service: %s; service peak RSS %.0f MiB\n",
                   static_cast<long long>(state.range(0)), fetch.problem.c_str(), peakMiB);
      state.SkipWithError(fetch.problem.c_str());
      return;
    }
    sendMs += MsSince(start, fetch.sent);
    firstByteMs += MsSince(fetch.sent, fetch.sink.first);
  }
  const double iterations = static_cast<double>(state.iterations());
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
  const auto straight = g.straightRate.find(state.range(0));
  if (straight != g.straightRate.end()) {
    state.counters["ratio"] = static_cast<double>(size) * iterations / seconds / straight->second;
  }
  state.counters["service_peak_MiB"] = peakMiB;
  state.counters["send_ms"] = sendMs / iterations;
  state.counters["send_to_first_byte_ms"] = firstByteMs / iterations;
}

// The slow response: from the start of the request to the first body bytes.
void BM_SlowStraight(benchmark::State& state) {
  double firstMs = 0;
  for (auto _ : state) {
    Sink sink;
    const auto start = Clock::now();
    std::string problem = FetchStraight(Narrow(Url("/slow/", kSlowBody)), sink);
    if (problem.empty()) problem = sink.Problem(kSlowBody);
    if (!problem.empty()) {
      state.SkipWithError(problem.c_str());
      return;
    }
    firstMs += MsSince(start, sink.first);
  }
  state.counters["first_chunk_ms"] = firstMs / static_cast<double>(state.iterations());
}

void BM_SlowThroughService(benchmark::State& state) {
  double firstMs = 0;
  for (auto _ : state) {
    const auto start = Clock::now();
    ServiceFetch fetch = FetchThroughService(Url("/slow/", kSlowBody));
    if (fetch.problem.empty()) fetch.problem = fetch.sink.Problem(kSlowBody);
    if (!fetch.problem.empty()) {
      state.SkipWithError(fetch.problem.c_str());
      return;
    }
    firstMs += MsSince(start, fetch.sink.first);
  }
  state.counters["first_chunk_ms"] = firstMs / static_cast<double>(state.iterations());
}

/** Sizes in MiB from PAM_BENCH_BODY_MIB ("300,200"); empty when malformed. */
std::vector<int64_t> BodySizes() {
  const char* text = std::getenv("PAM_BENCH_BODY_MIB");
  std::istringstream list(text != nullptr && *text != '\0' ? text : "300");
  std::vector<int64_t> sizes;
  for (std::string item; std::getline(list, item, ',');) {
    char* end = nullptr;
    const long long mib = std::strtoll(item.c_str(), &end, 10);
    if (end == item.c_str() || *end != '\0' || mib <= 0) return {};
    sizes.push_back(mib);
  }
  return sizes;
}

void Register(const std::vector<int64_t>& sizes) {
  using Function = void (*)(benchmark::State&);
  for (const auto& [name, function] : {std::pair<const char*, Function>{"BM_Straight", BM_Straight},
                                       std::pair<const char*, Function>{"BM_ThroughService", BM_ThroughService}}) {
    for (const int64_t mib : sizes) {
      benchmark::RegisterBenchmark(name, function)->Arg(mib)->Iterations(1)->UseRealTime()->Unit(
          benchmark::kMillisecond);
    }
  }
  benchmark::RegisterBenchmark("BM_SlowStraight", BM_SlowStraight)->Iterations(1)->UseRealTime()->Unit(
      benchmark::kMillisecond);
  benchmark::RegisterBenchmark("BM_SlowThroughService", BM_SlowThroughService)->Iterations(1)->UseRealTime()->Unit(
      benchmark::kMillisecond);
}

int Run() {
  TempHome home;
  LoopbackHttp server;
  AddRoutes(server.Routes());
  server.Start();
  const char* binary = std::getenv("PAM_BENCH_DAEMON");
  Daemon daemon({}, "", binary != nullptr && *binary != '\0' ? binary : DaemonPath());
  g.server = &server;
  g.daemon = &daemon;
  AMResult result = PalvonAuthManager_Initialize();
  if (result == 0) result = PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &g.connection);
  if (result != 0) {
    std::fprintf(stderr, "initialising the library failed: %s\n", Hex(result).c_str());
    return 1;
  }
  // A small fetch each way first, so that the first benchmark does not pay for the warm-up.
  Sink warm;
  (void)FetchStraight(Narrow(Url("/body/", 8 * kMiB)), warm);
  (void)FetchThroughService(Url("/body/", 8 * kMiB));
  benchmark::RunSpecifiedBenchmarks();
  (void)PalvonAuthManager_DestroyConnection(g.connection);
  (void)PalvonAuthManager_Uninitialize();
  const int stopped = daemon.Stop();
  if (stopped != 0) std::fprintf(stderr, "palvonauthd ended with %d:\n%s", stopped, daemon.Log().c_str());
  return stopped == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  const std::vector<int64_t> sizes = BodySizes();
  if (sizes.empty()) {
    std::fprintf(stderr, "PAM_BENCH_BODY_MIB: expected sizes in MiB such as 300,200\n");
    return 1;
  }
  Register(sizes);
  return RunWithCurl(Run);
}
