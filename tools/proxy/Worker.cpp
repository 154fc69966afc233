#include "proxy/Worker.h"

#include <malloc.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <memory>
#include <vector>

#include "proxy/ClientSocket.h"
#include "proxy/ListenAddress.h"
#include "proxy/PeerOwner.h"
#include "proxy/RequestParser.h"
#include "proxy/ResponseWriter.h"

namespace palvonauth {

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kMaxConnections = 64;
/** An idle keep-alive connection is closed after this long. */
constexpr auto kIdleTime = std::chrono::seconds(15);
/** A client has this long to complete a request's head once it began. */
constexpr auto kHeadTime = std::chrono::seconds(10);
/** A transfer in flight when the proxy is told to stop may go on this long. */
constexpr auto kGraceTime = std::chrono::seconds(3);

volatile std::sig_atomic_t g_stop = 0;

void OnStopSignal(int) { g_stop = 1; }

struct Client {
  std::unique_ptr<ClientSocket> socket;
  /** Last time a request ended or the first byte of the next one arrived. */
  Clock::time_point since;
  bool partial = false;
  /** The client has finished sending: what it sent is still served. */
  bool ended = false;
};

class Worker {
 public:
  Worker(int listenFd, const ProxySettings& settings, const GlobalOptions& options)
      : listenFd_(listenFd), settings_(settings), link_(options) {}

  void Run() {
    // Registering before the first client arrives saves it the wait.
    if (ServiceLink::ServiceListening()) {
      try {
        (void)link_.Connect({});
      } catch (const std::exception&) {
        link_.Drop();
      }
    }
    while (g_stop == 0) {
      Poll();
      ServeOne();
      Expire();
    }
    clients_.clear();
    link_.Drop();
  }

 private:
  void Poll() {
    std::vector<struct pollfd> waits;
    const bool accepting = clients_.size() < kMaxConnections || CloseOldestIdle();
    waits.push_back({accepting ? listenFd_ : -1, POLLIN, 0});
    bool ready = false;
    for (const Client& client : clients_) {
      waits.push_back({client.ended ? -1 : client.socket->Fd(), POLLIN, 0});
      ready = ready || Complete(client);
    }
    if (poll(waits.data(), waits.size(), ready ? 0 : 1000) <= 0) return;
    // Bytes first, then new clients, so that indices still match.
    std::vector<Client> kept;
    for (size_t i = 0; i < clients_.size(); ++i) {
      Client& client = clients_[i];
      if ((waits[i + 1].revents & (POLLIN | POLLHUP | POLLERR)) != 0) {
        const bool was = !client.socket->Buffer().empty();
        const ReadOutcome outcome = client.socket->ReadAvailable(HeadLimits{}.maxBlock + 1);
        if (outcome == ReadOutcome::kError || (outcome == ReadOutcome::kEnd && !Complete(client))) continue;
        client.ended = outcome == ReadOutcome::kEnd;
        if (!was && !client.socket->Buffer().empty()) client.since = Clock::now();
      }
      kept.push_back(std::move(client));
    }
    clients_ = std::move(kept);
    if ((waits[0].revents & POLLIN) != 0) Accept();
  }

  void Accept() {
    while (clients_.size() < kMaxConnections) {
      struct sockaddr_storage address {};
      socklen_t size = sizeof address;
      const int fd =
          accept4(listenFd_, reinterpret_cast<struct sockaddr*>(&address), &size, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (fd < 0) return;  // taken by another worker, or nothing left
      const int on = 1;
      (void)setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
      auto socket = std::make_unique<ClientSocket>(fd, AddressText(address));
      // Every local user can reach a loopback port, and every request goes
      // out with this user's logon: serve this user's programs only.
      if (IsLoopback(reinterpret_cast<const struct sockaddr*>(&address)) && LoopbackPeerOwner(fd) != geteuid()) {
        const std::string text = "palvonauth proxy: this proxy serves the programs of its own user only\n";
        (void)WriteOwnResponse(*socket, 403, text, false);
        LogAccess(settings_, *socket, "-", "-", 403, text.size(), 0, "another user's connection");
        continue;
      }
      clients_.push_back({std::move(socket), Clock::now(), false});
      // One new client per turn: every idle worker wakes for the listening
      // socket, and each taking one spreads a burst of clients evenly
      // instead of pinning most of them to the first worker awake.
      return;
    }
  }

  static bool Complete(const Client& client) {
    return ParseRequestHead(client.socket->Buffer()).state != HeadState::kIncomplete;
  }

  // Serves the next client in turn whose head is complete (or broken).
  void ServeOne() {
    for (size_t step = 0; step < clients_.size(); ++step) {
      const size_t index = (next_ + step) % clients_.size();
      ClientSocket& socket = *clients_[index].socket;
      const HeadParse parse = ParseRequestHead(socket.Buffer());
      if (parse.state == HeadState::kIncomplete) {
        clients_[index].partial = !socket.Buffer().empty();
        continue;
      }
      next_ = index + 1;
      const ClientSocket* served = &socket;
      bool keep = false;
      if (parse.state == HeadState::kRejected) {
        const std::string text = "palvonauth proxy: " + parse.problem + "\n";
        (void)WriteOwnResponse(socket, parse.status, text, false);
        LogAccess(settings_, socket, "-", "-", parse.status, text.size(), 0);
      } else {
        socket.Buffer().erase(0, parse.consumed);
        try {
          keep = Forward(socket, parse.head);
        } catch (const std::exception&) {
          keep = false;  // this connection ends; the worker and its other clients go on
        }
      }
      // Serving may have let other clients go: find this one again.
      for (auto it = clients_.begin(); it != clients_.end(); ++it) {
        if (it->socket.get() != served) continue;
        if (keep && g_stop == 0 && (!it->ended || Complete(*it))) {
          it->since = Clock::now();
          it->partial = false;
        } else {
          clients_.erase(it);
        }
        break;
      }
      return;
    }
  }

  bool Forward(ClientSocket& socket, const RequestHead& head) {
    ForwardHooks hooks;
    hooks.abandon = [this] {
      if (g_stop == 0) return false;
      if (!stopSeen_) stopSeen_ = Clock::now();
      return Clock::now() - *stopSeen_ > kGraceTime;
    };
    // A long body keeps this worker busy: idle clients parked here would
    // wait for it, so they are let go (as an idle time-out would) and come
    // back on a new connection to a free worker.
    hooks.beforeLongBody = [this, &socket] {
      std::vector<Client> kept;
      for (Client& client : clients_) {
        if (client.socket.get() == &socket || !client.socket->Buffer().empty()) kept.push_back(std::move(client));
      }
      clients_ = std::move(kept);
    };
    // `clients_` may change inside: the socket is held by its own pointer.
    return ForwardRequest(socket, head, WantsKeepAlive(head) && g_stop == 0, link_, settings_, hooks);
  }

  void Expire() {
    const Clock::time_point now = Clock::now();
    std::vector<Client> kept;
    for (Client& client : clients_) {
      if (client.partial && now - client.since > kHeadTime) {
        (void)WriteOwnResponse(*client.socket, 408, "palvonauth proxy: the request's head did not arrive in time\n",
                               false);
        continue;
      }
      if (client.socket->Buffer().empty() && now - client.since > kIdleTime) continue;
      if (client.ended && !Complete(client)) continue;
      kept.push_back(std::move(client));
    }
    clients_ = std::move(kept);
  }

  // Makes room for a new client by closing the idle one that waited longest.
  bool CloseOldestIdle() {
    auto oldest = clients_.end();
    for (auto it = clients_.begin(); it != clients_.end(); ++it) {
      if (it->socket->Buffer().empty() && (oldest == clients_.end() || it->since < oldest->since)) oldest = it;
    }
    if (oldest == clients_.end()) return false;
    clients_.erase(oldest);
    return true;
  }

  int listenFd_;
  const ProxySettings& settings_;
  ServiceLink link_;
  std::vector<Client> clients_;
  size_t next_ = 0;
  std::optional<Clock::time_point> stopSeen_;
};

}  // namespace

int RunWorker(int listenFd, const ProxySettings& settings, const GlobalOptions& options, const sigset_t& mask) {
  // Every body chunk from the service arrives in a fresh buffer of about
  // 120 KiB. With the allocator's defaults, freeing it may hand the top of the
  // heap back to the system and the next chunk fault in fresh pages, which
  // made some transfers four times as slow: the heap is kept instead.
  (void)mallopt(M_TRIM_THRESHOLD, 64 * 1024 * 1024);
  (void)mallopt(M_MMAP_THRESHOLD, 4 * 1024 * 1024);
  struct sigaction action {};
  action.sa_handler = OnStopSignal;
  sigemptyset(&action.sa_mask);
  // Without SA_RESTART: a signal ends the worker's wait at once.
  (void)sigaction(SIGTERM, &action, nullptr);
  (void)sigaction(SIGINT, &action, nullptr);
  (void)sigprocmask(SIG_SETMASK, &mask, nullptr);
  Worker worker(listenFd, settings, options);
  worker.Run();
  return 0;
}

}  // namespace palvonauth
