// `palvonauth proxy` under load: a large body through the reverse proxy next
// to the same body fetched straight from the same server, and small requests
// from one client and from sixteen concurrent ones.
//
//   PAM_BENCH_PROXY_MIB=100 pam_bench_proxy [--benchmark_repetitions=3]
//
// The web server runs on a loopback port in this process; the service and
// the proxy (reverse mode, --workers 4) are children sharing a temporary
// HOME. Clients are libcurl handles in this process, one per client thread,
// each keeping its connection. Goals: body ratio >= 0.3 (aim 0.6); small
// requests per second with 16 clients >= 4 x those of one client.
//
// Small requests run twice: from /body/, answered at once, where every
// request is work for the processor and the number of cores bounds what
// more clients can gain; and from /late/, answered after kServerLatency as a
// distant server would, where only the number of workers bounds it.
#include <benchmark/benchmark.h>
#include <curl/curl.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "LoopbackBodies.h"
#include "support/ProxyProcess.h"
#include "support/ServiceHarness.h"

using namespace pam_test;
using namespace pam_bench;

namespace {

constexpr uint64_t kSmallBody = 5000;
constexpr int kSmallRequests = 640;  // in all, shared by the clients
constexpr auto kServerLatency = std::chrono::milliseconds(20);

struct Setup {
  std::string origin;
  std::string proxy;
  double straightRate = 0;       // bytes per second
  std::map<std::pair<int64_t, int64_t>, double> rps;  // small requests per second by client count and latency
};
Setup g;

uint64_t BodyBytes() {
  const char* text = std::getenv("PAM_BENCH_PROXY_MIB");
  const long long mib = text != nullptr ? std::atoll(text) : 100;
  return static_cast<uint64_t>(mib > 0 ? mib : 100) * kMiB;
}

// One large body from `base`; its bytes per second, or 0 after reporting the problem.
void FetchBody(benchmark::State& state, const std::string& base, double& rate) {
  const uint64_t size = BodyBytes();
  double seconds = 0;
  for (auto _ : state) {
    Sink sink;
    const auto start = Clock::now();
    std::string problem = FetchStraight(base + "/body/" + std::to_string(size), sink);
    seconds += MsSince(start) / 1000;
    if (problem.empty()) problem = sink.Problem(size);
    if (!problem.empty()) {
      state.SkipWithError(problem.c_str());
      return;
    }
  }
  state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(size));
  rate = static_cast<double>(state.iterations() * size) / seconds;
}

void BM_BodyStraight(benchmark::State& state) { FetchBody(state, g.origin, g.straightRate); }

void BM_BodyThroughProxy(benchmark::State& state) {
  double rate = 0;
  FetchBody(state, g.proxy, rate);
  if (g.straightRate > 0 && rate > 0) state.counters["ratio"] = rate / g.straightRate;
}

// Small bodies through the proxy, shared by state.range(0) concurrent
// clients, from a server answering at once (range(1) 0) or after kServerLatency.
void BM_SmallThroughProxy(benchmark::State& state) {
  const int clients = static_cast<int>(state.range(0));
  const bool late = state.range(1) != 0;
  const int requests = late ? kSmallRequests / 4 : kSmallRequests;
  const std::string url = g.proxy + (late ? "/late/" : "/body/") + std::to_string(kSmallBody);
  double seconds = 0;
  for (auto _ : state) {
    std::atomic<int> broken{0};
    std::string problem;
    std::vector<std::thread> threads;
    const auto start = Clock::now();
    for (int c = 0; c < clients; ++c) {
      threads.emplace_back([&, c] {
        CURL* curl = curl_easy_init();
        for (int i = c; i < requests; i += clients) {
          Sink sink;
          std::string failure = FetchWith(curl, url, sink);
          if (failure.empty()) failure = sink.Problem(kSmallBody);
          if (!failure.empty() && broken++ == 0) problem = failure;
        }
        curl_easy_cleanup(curl);
      });
    }
    for (std::thread& thread : threads) thread.join();
    seconds += MsSince(start) / 1000;
    if (broken > 0) {
      state.SkipWithError((std::to_string(broken.load()) + " requests failed, first: " + problem).c_str());
      return;
    }
  }
  const double rps = requests * static_cast<double>(state.iterations()) / seconds;
  state.counters["requests_per_s"] = rps;
  g.rps[{clients, state.range(1)}] = rps;
  const auto one = g.rps.find({1, state.range(1)});
  if (one != g.rps.end() && clients > 1) state.counters["vs_one_client"] = rps / one->second;
}

int Run() {
  TempHome home;
  LoopbackHttp server;
  AddRoutes(server.Routes());
  server.Routes().Get(R"(/late/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
    std::this_thread::sleep_for(kServerLatency);
    const size_t size = std::min<size_t>(std::stoull(request.matches[1]), kPiece);
    response.set_content(std::string(ThePattern().At(0), size), "application/octet-stream");
  });
  server.Start();
  Daemon daemon;
  g.origin = "http://127.0.0.1:" + std::to_string(server.Port());
  Proxy proxy(PALVONAUTH_PATH, {"--upstream", g.origin + "/", "--workers", "4", "--quiet"});
  g.proxy = proxy.Url();
  // Warm-up: every worker registers and the server's threads start.
  for (int i = 0; i < 8; ++i) {
    Sink warm;
    (void)FetchStraight(g.proxy + "/body/" + std::to_string(kMiB), warm);
  }
  benchmark::RunSpecifiedBenchmarks();
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  for (const auto& [name, function] : {std::pair<const char*, void (*)(benchmark::State&)>{"BM_BodyStraight", BM_BodyStraight},
                                       {"BM_BodyThroughProxy", BM_BodyThroughProxy}}) {
    benchmark::RegisterBenchmark(name, function)->Iterations(1)->UseRealTime()->Unit(benchmark::kMillisecond);
  }
  benchmark::RegisterBenchmark("BM_SmallThroughProxy", BM_SmallThroughProxy)
      ->ArgsProduct({{1, 4, 16}, {0, 1}})
      ->Iterations(1)
      ->UseRealTime()
      ->Unit(benchmark::kMillisecond);
  return RunWithCurl(Run);
}
