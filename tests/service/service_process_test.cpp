// The real palvonauthd driven through the library's exports: clients side by
// side, clients that die, handles of other clients; and what it refuses: files of other users under its names,
// registrations that are no clients, endless or stalled frames, clients beyond its limits, configuration files it
// cannot trust. Under systemd: its log, its notifications, its reloads.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <set>
#include <tuple>
#include <utility>

#include "PalvonAuthManager.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/PipeFolder.h"
#include "message/LinuxDictionary.h"
#include "support/ChildProcess.h"
#include "support/ServiceHarness.h"
#include "support/TempHome.h"

using namespace PalvonAuthManagerSDK;
using namespace pam_test;

namespace {

// A client's whole life; 0 when every call succeeded.
int Fetch(const std::wstring& url) {
  ConnectionHandle c = 0;
  AMHttpHandle h = 0;
  AMUint status = 0;
  const bool ok =
      PalvonAuthManager_Initialize() == 0 && PalvonAuthManager_CreateConnection(L"child", nullptr, nullptr, &c) == 0 &&
      PalvonAuthManager_CreateAMHttpRequest(c, &h) == 0 && PalvonAuthManager_SetRequestUrl(h, url.c_str()) == 0 &&
      PalvonAuthManager_SendRequestAndReceiveResponse(h) == 0 &&
      PalvonAuthManager_GetResponseStatusCode(h, &status) == 0 && status == 200 &&
      PalvonAuthManager_DestroyConnection(c) == 0 && PalvonAuthManager_Uninitialize() == 0;
  return ok ? 0 : 1;
}

std::vector<uint8_t> Prefix(uint32_t type, uint32_t processId, uint32_t length) {
  const uint32_t fields[3] = {type, processId, length};
  return {reinterpret_cast<const uint8_t*>(fields), reinterpret_cast<const uint8_t*>(fields + 3)};
}

void Register(const std::vector<uint8_t>& bytes) {
  const int fd = open((CLinuxIPC::getUserTmpDir() + "/" + kRegistrationPipeName).c_str(), O_WRONLY | O_CLOEXEC);
  EXPECT_EQ(write(fd, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  close(fd);
}

// A client made by hand: the test holds the pipes of a sleeping child of its own and speaks raw bytes on them.
struct RawClient {
  pid_t pid = ForkChild([] { return pause(); });
  std::string id = std::to_string(pid);
  int request = -1, reply = -1;
  bool alive = true;
  std::vector<int> fds;
  RawClient() { Make(); }
  ~RawClient() {
    Die();
    for (const int fd : fds) close(fd);
  }
  std::string Path(const char* suffix) const {
    return CLinuxIPC::getUserTmpDir() + "/" + ClientChannelName(static_cast<uint32_t>(pid)) + suffix;
  }
  // New FIFOs under the pipe names; the old ones stay open.
  void Make() {
    for (int* fd : {&request, &reply}) {
      const std::string path = Path(fd == &request ? kRequestPipeSuffix : kReplyPipeSuffix);
      unlink(path.c_str());
      mkfifo(path.c_str(), 0600);
      fds.push_back(*fd = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    }
  }
  void Register() const { ::Register(Prefix(0xFFFFFFFFu, static_cast<uint32_t>(pid), 12)); }
  bool Send(const std::vector<uint8_t>& bytes, std::chrono::milliseconds timeout = 10s) const {
    struct pollfd wait = {request, POLLOUT, 0};
    for (size_t done = 0; done < bytes.size();) {
      const ssize_t n = write(request, bytes.data() + done, bytes.size() - done);
      done += n > 0 ? static_cast<size_t>(n) : 0;
      if (n <= 0 && poll(&wait, 1, static_cast<int>(timeout.count())) != 1) return false;
    }
    return true;
  }
  // Sends a version query; true when a reply arrives.
  bool Answered() const {
    LinuxDictionary query(MessageCommon(83, static_cast<uint32_t>(pid)));
    const uint8_t* frame = query.Serialize(true);
    struct pollfd wait = {reply, POLLIN, 0};
    uint8_t bytes[4096];
    const bool answered = Send({frame, frame + query.EncodedLength()}) && poll(&wait, 1, 10000) == 1;
    while (read(reply, bytes, sizeof bytes) > 0) {
    }
    return answered;
  }
  void Die() {
    if (!std::exchange(alive, false)) return;
    kill(pid, SIGKILL);
    WaitChild(pid);
  }
};

}  // namespace

TEST(ServiceProcess, ClientProcessesAreServedSideBySideAndCleanedUpAfter) {
  // The gathering page answers only once three requests are in at the same time.
  Gate gathered, held, release;
  LoopbackHttp server;
  server.Routes().Get("/gather", [&](const httplib::Request&, httplib::Response& response) {
    gathered.Arrive();
    response.status = gathered.WaitFor(3) ? 200 : 503;
  });
  server.Routes().Get("/hold", [&](const httplib::Request&, httplib::Response& response) {
    held.Arrive();
    response.status = release.WaitFor(1) ? 200 : 503;
  });
  server.Start();
  Daemon daemon;
  ConnectionHandle mine = 0;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &mine), 0u);
  std::vector<pid_t> gatherers;
  for (int i = 0; i < 3; ++i) gatherers.push_back(ForkChild([&] { return Fetch(server.Url("/gather")); }));
  for (const pid_t child : gatherers) {
    EXPECT_EQ(WaitChild(child), 0) << daemon.Log();
    EXPECT_TRUE(daemon.WaitForLog("client " + std::to_string(child) + " closed its request pipe; session ended\n"));
  }
  // Killed in the middle of a transfer: abandoned and freed.
  const pid_t victim = ForkChild([&] { return Fetch(server.Url("/hold")); });
  ASSERT_TRUE(held.WaitFor(1));
  kill(victim, SIGKILL);
  EXPECT_EQ(WaitChild(victim), 128 + SIGKILL);
  EXPECT_TRUE(daemon.WaitForLog("client " + std::to_string(victim) +
                                " process is gone; session ended, released 1 connection(s), 1 HTTP request(s)"))
      << daemon.Log();
  release.Arrive();
  // Gone without uninitialising; the handles of another client are not its own.
  const pid_t leaver = ForkChild([&] {
    ConnectionHandle c = 0;
    AM_GATEWAY_INFO gateway = {L"GW", nullptr, 0, 0, 0};
    VpnAuthContextHandle context = 0;
    return PalvonAuthManager_Initialize() != 0 ||
           PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &c) != 0 ||
           PalvonAuthManager_CreateVpnAuthContext(c, &gateway, 0, &context) != 0 ||
           PalvonAuthManager_DestroyConnection(mine) != 0xFFFA || PalvonAuthManager_LogOff(mine) != 0xFFFA;
  });
  EXPECT_EQ(WaitChild(leaver), 0);
  EXPECT_TRUE(daemon.WaitForLog("client " + std::to_string(leaver) +
                                " closed its request pipe; session ended, released 1 connection(s), 1 VPN context(s)"))
      << daemon.Log();
  EXPECT_EQ(PalvonAuthManager_LogOff(mine), 0u);
  EXPECT_EQ(Fetch(server.Url("/gather")), 0) << daemon.Log();
}

TEST(ServiceProcess, FilesAndRegistrationsOfOthersAreRefused) {
  const std::string dir = CLinuxIPC::getUserTmpDir(), lock = dir + "/.palvonauthd.lock";
  struct stat status {};
  for (const std::string& path : {lock, dir + "/" + kRegistrationPipeName}) {
    if (getuid() != 0) break;  // only root can make files of another user
    unlink(path.c_str());
    ASSERT_EQ(path == lock ? (WriteFile(path, "4242\n"), 0) : mkfifo(path.c_str(), 0600), 0);
    ASSERT_EQ(chmod(path.c_str(), 0600) + chown(path.c_str(), 4242, 4242), 0);
    EXPECT_NE(RunChild({DaemonPath()})
                  .err.find(path == lock ? "lock file " + path + ": it belongs to user 4242"
                                         : "pipe " + path + ": a link, a file of another kind"),
              std::string::npos);
    EXPECT_TRUE(lstat(path.c_str(), &status) == 0 && (status.st_mode & 07777) == 0600 && status.st_uid == 4242);
    EXPECT_TRUE(path != lock || ReadFile(lock) == "4242\n");
    unlink(path.c_str());
  }
  Daemon daemon;
  EXPECT_NE(RunChild({DaemonPath()})
                .err.find("another palvonauthd (process " + std::to_string(daemon.Pid()) + ") already serves " + dir),
            std::string::npos);
  const auto refused = [&](const std::string& pid, const std::string& why) {
    EXPECT_TRUE(daemon.WaitForLog("registration of process " + pid + why)) << daemon.Log();
  };
  // Junk, records of the wrong length or without a process, one of a process that does not exist; a tail that may
  // still become a record waits, and is junk when it does not.
  std::vector<uint8_t> junk = {1, 2, 3, 4, 5};
  for (const auto& bytes : {Prefix(0xFFFFFFFFu, 0x7FFFFFF0u, 12), Prefix(0xFFFFFFFFu, 300, 13),
                            Prefix(0xFFFFFFFFu, 0, 12), std::vector<uint8_t>(3, 0xFF)}) {
    junk.insert(junk.end(), bytes.begin(), bytes.end());
  }
  Register(junk);
  EXPECT_TRUE(daemon.WaitForLog("ignored 29 byte(s) of malformed registration data")) << daemon.Log();
  refused("2147483632", " ignored: no such process");
  junk = Prefix(0xFFFFFFFFu, 0x7FFFFFF1u, 12);
  junk.insert(junk.begin(), 0);
  Register(junk);
  EXPECT_TRUE(daemon.WaitForLog("ignored 4 byte(s) of malformed registration data")) << daemon.Log();
  refused("2147483633", " ignored: no such process");
  if (getuid() == 0) {
    // A process of another user, and pipes of another user.
    const pid_t stranger =
        ForkChild([] { return setgid(65534) || setuid(65534) || prctl(PR_SET_DUMPABLE, 1) || pause(); });
    const std::string proc = "/proc/" + std::to_string(stranger);
    for (int i = 0; i < 200 && (stat(proc.c_str(), &status) != 0 || status.st_uid != 65534); ++i) usleep(5000);
    Register(Prefix(0xFFFFFFFFu, static_cast<uint32_t>(stranger), 12));
    refused(std::to_string(stranger), " ignored: it belongs to user 65534, this service serves user 0");
    kill(stranger, SIGKILL);
    WaitChild(stranger);
    RawClient alien;
    ASSERT_EQ(chown(alien.Path(kRequestPipeSuffix).c_str(), 4242, 4242), 0);
    alien.Register();
    refused(alien.id, " refused: " + alien.Path(kRequestPipeSuffix) + ": it is not a FIFO of this user");
  }
  RawClient linked;
  for (const char* suffix : {kRequestPipeSuffix, kReplyPipeSuffix}) {
    const std::string path = linked.Path(suffix);
    ASSERT_EQ(rename(path.c_str(), (path + ".real").c_str()) + symlink((path + ".real").c_str(), path.c_str()), 0);
  }
  linked.Register();
  refused(linked.id, " refused: " + linked.Path(kRequestPipeSuffix) + ": it is a symbolic link");
  // A real client is still served, and its session is ended when the service stops.
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_EQ(daemon.Stop(), 0);
  EXPECT_NE(daemon.Log().find("client " + std::to_string(getpid()) + " service stopping; session ended"),
            std::string::npos);
}

TEST(ServiceProcess, EachClientCostsAtMostOneFrameOneSessionAndItsPipesUntilItIsGone) {
  {
    Daemon daemon({}, "[service]\nframe_timeout_ms = 500\nmax_clients = 2\n");
    RawClient served;
    served.Register();
    ASSERT_TRUE(served.Answered());
    // Without a descriptor to spare, then beyond max_clients, registrations are refused; the served one goes on.
    std::set<int> open;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.Pid()) + "/fd")) {
      open.insert(std::stoi(entry.path().filename().string()));
    }
    rlimit saved{}, low{};
    ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, nullptr, &saved), 0);
    low.rlim_max = saved.rlim_max;
    while (open.count(static_cast<int>(low.rlim_cur)) != 0) ++low.rlim_cur;
    std::string accepted;
    for (const auto& [limit, refusal, refused] :
         {std::tuple<const rlimit*, std::string, size_t>{&low, "Too many open files", 4},
          {&saved, "refused: 2 clients are served already (service.max_clients)", 3}}) {
      ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, limit, nullptr), 0);
      std::vector<std::unique_ptr<RawClient>> burst(4);
      for (auto& client : burst) (client = std::make_unique<RawClient>())->Register();
      daemon.WaitForLog(refusal, refused);
      usleep(300000);
      EXPECT_EQ(daemon.Count(refusal), refused) << daemon.Log();
      EXPECT_TRUE(served.Answered()) << daemon.Log();
      EXPECT_EQ(daemon.Count("process is gone; session ended"), 0u) << daemon.Log();
      accepted = burst[0]->id;
    }
    // Pipes of gone clients are removed, while they are the FIFOs that were opened.
    EXPECT_TRUE(daemon.WaitForLog("removed 2 pipe(s) of client " + accepted + ", whose process is gone"));
    // Part of a frame, then silence. A pipe re-created under its name is not the service's to remove.
    RawClient stalled;
    stalled.Register();
    ASSERT_TRUE(stalled.Answered() && stalled.Send(Prefix(59, static_cast<uint32_t>(stalled.pid), 64u << 20)));
    EXPECT_TRUE(stalled.Send(std::vector<uint8_t>(1024, 0)));
    EXPECT_TRUE(daemon.WaitForLog("client " + stalled.id + " sent part of a request, then nothing for 500 ms"));
    const std::string newcomer = stalled.Path(kRequestPipeSuffix);
    ASSERT_EQ(rename(newcomer.c_str(), (newcomer + ".old").c_str()) + mkfifo(newcomer.c_str(), 0600), 0);
    stalled.Die();
    EXPECT_TRUE(daemon.WaitForLog("removed 1 pipe(s) of client " + stalled.id + ", whose process is gone"));
    EXPECT_NE(access(stalled.Path(kReplyPipeSuffix).c_str(), F_OK), 0);
    EXPECT_EQ(access(newcomer.c_str(), F_OK), 0);
    // A second registration on the same pipes is refused; on new pipes it replaces the session.
    served.Register();
    EXPECT_TRUE(daemon.WaitForLog("process " + served.id + " refused: it is served already, on the same pipes"));
    EXPECT_TRUE(served.Answered());
    served.Make();
    served.Register();
    EXPECT_TRUE(daemon.WaitForLog("client " + served.id + " registered again; session ended")) << daemon.Log();
    EXPECT_TRUE(served.Answered());
  }
#if !defined(__SANITIZE_THREAD__)  // 64 MiB through an instrumented service would outlast any sensible limit
  // The largest frame, then what is taken as the next prefix, which announces too much.
  Daemon daemon;
  RawClient endless;
  endless.Register();
  ASSERT_TRUE(endless.Answered() && endless.Send(Prefix(59, static_cast<uint32_t>(endless.pid), 64u << 20)));
  EXPECT_TRUE(endless.Send(std::vector<uint8_t>((64u << 20) + 12, 0xFF), 20s));
  EXPECT_TRUE(daemon.WaitForLog("client " + endless.id + " announced a request of 4294967295 bytes (at most 67108864"))
      << daemon.Log();
#endif
}

// Response bodies stream: the first bytes of a slow server reach the client
// while the server still holds the rest, a large body arrives byte-exact, a
// client that stops reading stops the download, and destroying the request
// mid-body ends the server's side.
TEST(ServiceProcess, ResponseBodiesStreamThroughABoundedBuffer) {
  constexpr size_t kLarge = 48u << 20;
  const auto pattern = [](size_t at) { return static_cast<char>('a' + (at * 7 + at / 4093) % 26); };
  std::atomic<bool> release{false};
  std::atomic<size_t> sent{0};
  std::atomic<bool> closed{false};
  LoopbackHttp http;
  http.Routes().Get("/slow", [&](const httplib::Request&, httplib::Response& response) {
    response.set_chunked_content_provider("application/octet-stream", [&](size_t offset, httplib::DataSink& sink) {
      if (offset == 0) return sink.write("first", 5);
      while (!release) std::this_thread::sleep_for(5ms);
      sink.done();
      return true;
    });
  });
  http.Routes().Get("/large", [&](const httplib::Request&, httplib::Response& response) {
    response.set_content_provider(kLarge, "application/octet-stream",
                                  [&](size_t offset, size_t length, httplib::DataSink& sink) {
                                    std::string piece(std::min<size_t>(length, 256u << 10), '\0');
                                    for (size_t i = 0; i < piece.size(); ++i) piece[i] = pattern(offset + i);
                                    if (!sink.write(piece.data(), piece.size())) closed = true;
                                    sent = offset + piece.size();
                                    return !closed.load();
                                  });
  });
  http.Start();
  Daemon daemon({}, "[http]\nbody_buffer_bytes = 1048576\n");
  ConnectionHandle c = 0;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &c), 0u);
  const auto open = [&](const char* path) {
    AMHttpHandle h = 0;
    EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(c, &h), 0u);
    EXPECT_EQ(PalvonAuthManager_SetRequestUrl(h, http.Url(path).c_str()), 0u);
    EXPECT_EQ(PalvonAuthManager_SendRequestAndReceiveResponse(h), 0u);
    return h;
  };
  std::vector<AMByte> buffer(1u << 20);
  AMUint got = 0;

  const AMHttpHandle slow = open("/slow");
  ASSERT_EQ(PalvonAuthManager_ReadResponseBodyStream(slow, buffer.data(), 1024, &got), 0u);
  EXPECT_EQ(std::string(buffer.begin(), buffer.begin() + got), "first");
  release = true;
  ASSERT_EQ(PalvonAuthManager_ReadResponseBodyStream(slow, buffer.data(), 1024, &got), 0u);
  EXPECT_EQ(got, 0u);

  const AMHttpHandle large = open("/large");
  size_t total = 0;
  bool exact = true;
  do {
    ASSERT_EQ(PalvonAuthManager_ReadResponseBodyStream(large, buffer.data(), 1u << 20, &got), 0u);
    for (AMUint i = 0; i < got; ++i) exact = exact && buffer[i] == static_cast<AMByte>(pattern(total + i));
    total += got;
  } while (got > 0);
  EXPECT_TRUE(exact);
  EXPECT_EQ(total, kLarge);

  // One read, then none: the server gets no further than the service's
  // buffer and the sockets between them hold.
  const AMHttpHandle stopped = open("/large");
  ASSERT_EQ(PalvonAuthManager_ReadResponseBodyStream(stopped, buffer.data(), 1u << 20, &got), 0u);
  size_t before = 0;
  do {
    before = sent;
    std::this_thread::sleep_for(300ms);
  } while (sent != before);
  EXPECT_LT(sent.load(), size_t{16u << 20});
  EXPECT_EQ(PalvonAuthManager_DestroyAMHttpRequest(stopped), 0u);
  for (int i = 0; i < 400 && !closed; ++i) std::this_thread::sleep_for(10ms);
  EXPECT_TRUE(closed);
  EXPECT_EQ(PalvonAuthManager_DestroyConnection(c), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(ServiceProcess, ConfigurationFilesItCannotTrustAreRefusedWithTheReason) {
  const std::string file = WriteFile(Home() + "/real.toml", ""), link = Home() + "/link.toml", fifo = Home() + "/fifo";
  unlink(link.c_str()), unlink(fifo.c_str());  // left by an earlier repetition in the same HOME
  ASSERT_EQ(symlink(file.c_str(), link.c_str()) + mkfifo(fifo.c_str(), 0600), 0);
  const std::string open = WriteFile(Home() + "/open.toml", "");
  ASSERT_EQ(chmod(open.c_str(), 0666), 0);
  for (const auto& [path, problem] : std::vector<std::pair<std::string, std::string>>{
           {link, "cannot read: it is a symbolic link (name the file it points to)"},
           {fifo, "cannot read: it is not a regular file"},
           {open, "not used: anyone may write to it"}}) {
    const ChildResult run = RunChild({DaemonPath(), "--config", path});
    EXPECT_EQ(run.exitCode, 2);
    EXPECT_EQ(run.err, "palvonauthd: bad configuration: " + path + ": " + problem + "\n");
  }
}

TEST(ServiceProcess, UnderSystemdItLogsPrioritiesNotifiesItsStateAndReloadsOnHangup) {
  struct stat log {};
  ASSERT_EQ(stat(WriteFile(Home() + "/palvonauthd.log", "").c_str(), &log), 0);
  const std::string stream = std::to_string(log.st_dev) + ":" + std::to_string(log.st_ino);
  // Only the very stream standard error is makes the journal's format.
  for (const std::string& other : {std::to_string(log.st_dev) + ":" + std::to_string(log.st_ino + 1), stream + "x"}) {
    Daemon daemon({}, "", DaemonPath(), {"JOURNAL_STREAM=" + other});
    EXPECT_EQ(daemon.MaskedLog().rfind("info: ready: listening on ~/", 0), 0u) << daemon.Log();
  }
  const int notify = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string socketPath = Home() + "/notify";
  socketPath.copy(address.sun_path, sizeof address.sun_path - 1);
  unlink(socketPath.c_str());
  ASSERT_EQ(bind(notify, reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
  std::string notified;
  const auto await = [&](const std::string& state) {  // reads notifications until one holds `state`
    char buffer[512];
    for (struct pollfd wait = {notify, POLLIN, 0}; poll(&wait, 1, 10000) == 1;) {
      const std::string message(buffer, static_cast<size_t>(std::max<ssize_t>(recv(notify, buffer, 512, 0), 0)));
      notified += message + "|";
      if (message.find(state) != std::string::npos) return true;
    }
    return false;
  };
  Daemon daemon({"--sdk-version", "7"}, "[service]\nversion_text = \"before\"\n", DaemonPath(),
                {"JOURNAL_STREAM=" + stream, "NOTIFY_SOCKET=" + socketPath});
  ASSERT_TRUE(await("READY=1\nSTATUS=serving 0 client(s)")) << notified;
  EXPECT_EQ(daemon.MaskedLog().rfind("<6>configuration read from ~/palvonauthd.toml\n<6>ready: listening on ~/", 0), 0u)
      << daemon.Log();
  ConnectionHandle c = 0;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &c), 0u);
  // The file changed, broken, gone: a reload puts a good one in force at the next request of a client served all
  // along, with the flags still over it, and keeps it when the file is no good.
  const std::string config = Home() + "/palvonauthd.toml";
  for (const auto& [text, logged, version] : std::vector<std::tuple<std::string, std::string, std::string>>{
           {"[service]\nversion_text = \"after\"\nsdk_version = 3\nverbose = true\n",
            "<6>configuration reloaded from ~/palvonauthd.toml; it applies to every request from now on\n", "after"},
           {"[service]\nversion_text = \"broken\"\nbogus = 1\n",
            "<3>configuration not reloaded, the one in force stays: ~/palvonauthd.toml:3:1: unknown key 'service.",
            "after"},
           {"", "<3>configuration not reloaded, the one in force stays: ~/palvonauthd.toml: cannot read: No such file",
            "after"}}) {
    text.empty() ? (void)unlink(config.c_str()) : (void)WriteFile(config, text);
    kill(daemon.Pid(), SIGHUP);
    EXPECT_TRUE(await("RELOADING=1") && await("READY=1")) << notified;
    EXPECT_NE(daemon.MaskedLog().find(logged), std::string::npos) << daemon.Log();
    AMChar* got = nullptr;
    ASSERT_EQ(PalvonAuthManager_GetVersion(c, &got), 0u);
    EXPECT_EQ(std::wstring(got), std::wstring(version.begin(), version.end()));
    PalvonAuthManager_FreeString(got);
  }
  ASSERT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  const std::string pid = std::to_string(getpid());
  EXPECT_TRUE(daemon.WaitForLog("<7>client " + pid + " -> GetServerSDKVersion return=0 {return=0, version=7}"))
      << daemon.Log();
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_EQ(daemon.Stop(), 0);
  EXPECT_TRUE(await("STOPPING=1")) << notified;
  EXPECT_EQ(daemon.Count("palvonauthd["), 0u) << daemon.Log();
  close(notify);
}
