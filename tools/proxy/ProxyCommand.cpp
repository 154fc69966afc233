// `proxy`: a local HTTP proxy whose every request the service performs
// through the library, as an application's request would be.
#include <unistd.h>

#include <cstdio>
#include <memory>

#include "commands/Commands.h"
#include "protocol/WireFormat.h"
#include "proxy/ListenAddress.h"
#include "proxy/RequestTarget.h"
#include "proxy/Workers.h"

namespace palvonauth {

namespace {

/** The largest request body one message to the service can carry, with room for the message's other keys. */
constexpr uint64_t kLargestBody = PalvonAuthManagerSDK::wire::kMaxBodyLength - 64 * 1024;
constexpr unsigned kMostWorkers = 32;

struct ProxyOptions {
  std::string listen = "127.0.0.1:3128";
  std::string upstream;
  unsigned workers = 0;
  bool quiet = false;
  bool allowRemote = false;
  uint64_t maxBody = kLargestBody;
};

int RunProxy(const Tool& tool, const ProxyOptions& options) {
  if (!options.upstream.empty()) {
    if (const std::optional<std::string> problem = CheckUpstream(options.upstream)) {
      throw LocalError("--upstream " + options.upstream + ": " + *problem, kExitUsage);
    }
  }
  const Listener listener = OpenListener(options.listen, options.allowRemote);
  if (!listener.loopback) {
    std::fprintf(stderr,
                 "palvonauth: warning: the proxy listens on %s, not only on this machine: whoever reaches it "
                 "makes requests with your logon\n",
                 listener.url.c_str());
  }
  unsigned workers = options.workers;
  if (workers == 0) workers = static_cast<unsigned>(std::max(1L, sysconf(_SC_NPROCESSORS_ONLN)));
  workers = std::min(workers, kMostWorkers);
  ProxySettings settings;
  settings.upstream = options.upstream;
  settings.maxBody = options.maxBody;
  settings.quiet = options.quiet;
  std::fprintf(stderr, "palvonauth: proxy listening on %s (%s%s, %u worker%s)\n", listener.url.c_str(),
               options.upstream.empty() ? "forward proxy" : "reverse proxy to ", options.upstream.c_str(), workers,
               workers == 1 ? "" : "s");
  const int code = SuperviseWorkers(listener.fd, workers, settings, tool.options);
  close(listener.fd);
  if (!options.quiet) std::fprintf(stderr, "palvonauth: proxy stopped\n");
  return code;
}

}  // namespace

void AddProxyCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand(
      "proxy", "Run a local HTTP proxy whose requests the service performs (forward, or reverse with --upstream)");
  auto options = std::make_shared<ProxyOptions>();
  command->add_option("--listen", options->listen, "Address to listen on, HOST:PORT (port 0: any free port)")
      ->capture_default_str();
  command->add_option("--upstream", options->upstream,
                      "Reverse proxy: send every request to this URL with the request's path appended");
  command
      ->add_option("--workers", options->workers,
                   "Worker processes, each serving one request at a time "
                   "(default: the number of processors)")
      ->check(CLI::Range(1u, kMostWorkers));
  command->add_flag("--quiet", options->quiet, "No access log on standard error");
  command->add_flag("--allow-remote", options->allowRemote, "Allow --listen on an address other hosts can reach");
  command->add_option("--max-body", options->maxBody, "Largest request body in bytes (suffixes KiB, MiB allowed)")
      ->transform(CLI::AsSizeValue(false))
      ->check(CLI::Range(uint64_t{0}, kLargestBody))
      ->capture_default_str();
  command->callback([&tool, options] { tool.run = [&tool, options](Output&) { return RunProxy(tool, *options); }; });
}

}  // namespace palvonauth
