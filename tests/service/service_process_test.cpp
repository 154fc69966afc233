// palvonauthd as a process among processes: several clients at once, clients
// that die, registrations that are not clients, fault injection, start-up
// configuration, launch-file hand-off and stopping; files planted under its
// names, hostile frames, surplus clients and descriptor shortage.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstring>
#include <filesystem>
#include <memory>
#include <set>
#include <string>

#include "PalvonAuthManager.h"
#include "ipc/CLinuxIPC.h"
#include "service/ServiceClient.h"
#include "service/ServiceHarness.h"
#include "support/TempHome.h"

using namespace PalvonAuthManagerSDK;
using pam_test::Daemon;
using pam_test::ForkClient;
using pam_test::InitialiseAndConnect;
using pam_test::Take;
using pam_test::VersionText;
using pam_test::WaitChild;

namespace {

using Clock = std::chrono::steady_clock;

std::string Home() { return std::getenv("HOME"); }

// A client's whole life in a child process: exit code 0 when every step
// answered as expected, otherwise the number of the step that did not.
int ClientFetching(const std::wstring& url) {
  if (PalvonAuthManager_Initialize() != 0) return 10;
  ConnectionHandle connection = 0;
  if (PalvonAuthManager_CreateConnection(L"child", nullptr, nullptr, &connection) != 0) return 11;
  AMHttpHandle http = 0;
  if (PalvonAuthManager_CreateAMHttpRequest(connection, &http) != 0) return 12;
  if (PalvonAuthManager_SetRequestUrl(http, url.c_str()) != 0) return 13;
  if (PalvonAuthManager_SendRequestAndReceiveResponse(http) != 0) return 14;
  AMUint status = 0;
  if (PalvonAuthManager_GetResponseStatusCode(http, &status) != 0 || status != 200) return 15;
  AMChar* version = nullptr;
  if (PalvonAuthManager_GetVersion(connection, &version) != 0) return 16;
  PalvonAuthManager_FreeString(version);
  if (PalvonAuthManager_DestroyConnection(connection) != 0) return 17;
  if (PalvonAuthManager_Uninitialize() != 0) return 18;
  return 0;
}

// Checks that the service answers this process normally.
void ExpectServed() {
  const ConnectionHandle connection = InitialiseAndConnect();
  ASSERT_NE(connection, 0u);
  EXPECT_EQ(VersionText(connection), L"palvonauthd 1.0.0 (reference service)");
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

template <typename Call>
std::chrono::milliseconds Timed(Call call) {
  const auto started = Clock::now();
  call();
  return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - started);
}

}  // namespace

TEST(ServiceProcess, ServesThreeClientProcessesAtOnce) {
  // The endpoint answers only once all three requests are in, so the test
  // passes only if the service performs them at the same time.
  pam_test::Gate gathered;
  pam_test::LoopbackHttp server;
  server.Routes().Get("/gather", [&](const httplib::Request&, httplib::Response& response) {
    gathered.Arrive();
    if (gathered.WaitFor(3, std::chrono::seconds(10))) {
      response.set_content("all here", "text/plain");
    } else {
      response.status = 503;
    }
  });
  server.Start();
  Daemon daemon;
  std::vector<pid_t> children;
  for (int i = 0; i < 3; ++i) children.push_back(ForkClient([&] { return ClientFetching(server.Url("/gather")); }));
  for (const pid_t child : children) EXPECT_EQ(WaitChild(child), 0) << daemon.LogText();
  for (const pid_t child : children) {
    EXPECT_TRUE(daemon.WaitForLog("client " + std::to_string(child) + " closed its request pipe; session ended"));
  }
}

TEST(ServiceProcess, HandlesBelongToTheClientThatCreatedThem) {
  Daemon daemon;
  int toParent[2];
  int toChild[2];
  ASSERT_EQ(pipe(toParent), 0);
  ASSERT_EQ(pipe(toChild), 0);
  const pid_t child = ForkClient([&] {
    if (PalvonAuthManager_Initialize() != 0) return 10;
    ConnectionHandle connection = 0;
    if (PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &connection) != 0) return 11;
    if (write(toParent[1], &connection, sizeof connection) != sizeof connection) return 12;
    char go = 0;
    if (read(toChild[0], &go, 1) != 1) return 13;
    if (PalvonAuthManager_DestroyConnection(connection) != 0) return 14;
    return PalvonAuthManager_Uninitialize() == 0 ? 0 : 15;
  });
  ConnectionHandle theirs = 0;
  ASSERT_EQ(read(toParent[0], &theirs, sizeof theirs), static_cast<ssize_t>(sizeof theirs));
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_EQ(PalvonAuthManager_DestroyConnection(theirs), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_LogOff(theirs), 0xFFFAu);
  ASSERT_EQ(write(toChild[1], "g", 1), 1);
  EXPECT_EQ(WaitChild(child), 0);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  for (int fd : {toParent[0], toParent[1], toChild[0], toChild[1]}) close(fd);
}

TEST(ServiceProcess, ClientKilledInTheMiddleOfACallIsCleanedUpAndOthersAreStillServed) {
  pam_test::Gate arrived;
  pam_test::Gate release;
  pam_test::LoopbackHttp server;
  server.Routes().Get("/hold", [&](const httplib::Request&, httplib::Response& response) {
    arrived.Arrive();
    release.WaitOpen(std::chrono::seconds(10));
    response.set_content("late", "text/plain");
  });
  server.Routes().Get(
      "/quick", [](const httplib::Request&, httplib::Response& response) { response.set_content("ok", "text/plain"); });
  server.Start();
  Daemon daemon;
  const pid_t victim = ForkClient([&] { return ClientFetching(server.Url("/hold")); });
  ASSERT_TRUE(arrived.WaitFor(1, std::chrono::seconds(10)));
  kill(victim, SIGKILL);
  EXPECT_EQ(WaitChild(victim), 128 + SIGKILL);
  // The service abandons the transfer and frees what the client had made.
  EXPECT_TRUE(daemon.WaitForLog("client " + std::to_string(victim) +
                                " process is gone; session ended, released 1 connection(s), 1 HTTP request(s)"))
      << daemon.LogText();
  release.Open();

  const pid_t survivor = ForkClient([&] { return ClientFetching(server.Url("/quick")); });
  EXPECT_EQ(WaitChild(survivor), 0) << daemon.LogText();
  ExpectServed();
}

TEST(ServiceProcess, ClientThatExitsWithoutUninitialisingIsCleanedUp) {
  Daemon daemon;
  const pid_t child = ForkClient([] {
    if (PalvonAuthManager_Initialize() != 0) return 10;
    ConnectionHandle connection = 0;
    AM_GATEWAY_INFO gateway = {L"GW", nullptr, 0, 0, 0};
    VpnAuthContextHandle context = 0;
    if (PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &connection) != 0) return 11;
    if (PalvonAuthManager_CreateVpnAuthContext(connection, &gateway, 0, &context) != 0) return 12;
    return 0;
  });
  EXPECT_EQ(WaitChild(child), 0);
  EXPECT_TRUE(daemon.WaitForLog("client " + std::to_string(child) +
                                " closed its request pipe; session ended, released 1 connection(s), 1 VPN context(s)"))
      << daemon.LogText();
}

TEST(ServiceProcess, RegistrationsThatAreNotClientsOfThisUserAreIgnored) {
  Daemon daemon;
  const std::string pipe = CLinuxIPC::getUserTmpDir() + "/.AuthManagerListnerPipe";
  const int fd = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(fd, 0);
  // Junk of an odd length, then a record of a process that does not exist.
  ASSERT_EQ(write(fd, "\x01\x02\x03\x04\x05", 5), 5);
  const uint32_t ghost[3] = {0xFFFFFFFFu, 0x7FFFFFF0u, 12};
  ASSERT_EQ(write(fd, ghost, sizeof ghost), static_cast<ssize_t>(sizeof ghost));
  EXPECT_TRUE(daemon.WaitForLog("ignored 5 byte(s) of malformed registration data")) << daemon.LogText();
  EXPECT_TRUE(daemon.WaitForLog("registration of process 2147483632 ignored: no such process"));

  pid_t stranger = -1;
  if (getuid() == 0) {
    // A process of another user (only root can make one here).
    stranger = fork();
    if (stranger == 0) {
      if (setgid(65534) != 0 || setuid(65534) != 0) _exit(1);
      prctl(PR_SET_DUMPABLE, 1);
      pause();
      _exit(0);
    }
    for (int i = 0; i < 200; ++i) {
      struct stat status {};
      if (stat(("/proc/" + std::to_string(stranger)).c_str(), &status) == 0 && status.st_uid == 65534) break;
      usleep(5000);
    }
    const uint32_t foreign[3] = {0xFFFFFFFFu, static_cast<uint32_t>(stranger), 12};
    ASSERT_EQ(write(fd, foreign, sizeof foreign), static_cast<ssize_t>(sizeof foreign));
    EXPECT_TRUE(
        daemon.WaitForLog("registration of process " + std::to_string(stranger) + " ignored: it belongs to user 65534"))
        << daemon.LogText();
    kill(stranger, SIGKILL);
    WaitChild(stranger);
  }
  close(fd);
  // A real client after all that is registered and served.
  ExpectServed();
}

TEST(ServiceProcess, BusyAnswersAreOnlyADelayForTheLibrary) {
  Daemon daemon({"-v", "--busy", "2"});
  const auto initialising = Timed([] { ASSERT_EQ(PalvonAuthManager_Initialize(), 0u); });
  // Version query and initialise are each answered busy twice, 100 ms apart.
  EXPECT_GE(initialising, std::chrono::milliseconds(400));
  ConnectionHandle connection = 0;
  ASSERT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &connection), 0u);
  std::wstring version;
  EXPECT_GE(Timed([&] { version = VersionText(connection); }), std::chrono::milliseconds(200));
  EXPECT_EQ(version, L"palvonauthd 1.0.0 (reference service)");
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_TRUE(daemon.WaitForLog("uninitialised"));
  EXPECT_EQ(daemon.CountInLog("-> GetVersion return=65280"), 2u);
  EXPECT_EQ(daemon.CountInLog("-> GetVersion return=0"), 1u);
  EXPECT_EQ(daemon.CountInLog("<- GetVersion"), 3u);
}

TEST(ServiceProcess, FaultsCanBeLimitedToChosenOperations) {
  Daemon daemon({"-v", "--busy", "1", "--delay", "150", "--fault-ops", "GetVersion,0x3F"});
  const ConnectionHandle connection = InitialiseAndConnect();
  ASSERT_NE(connection, 0u);
  // One busy answer (100 ms wait in the library) and two delayed answers.
  std::wstring version;
  EXPECT_GE(Timed([&] { version = VersionText(connection); }), std::chrono::milliseconds(400));
  EXPECT_EQ(version, L"palvonauthd 1.0.0 (reference service)");
  AM_SERVER_INFO* info = nullptr;
  ASSERT_EQ(PalvonAuthManager_DetermineServerType(connection, L"https://x.test/", &info), 0u);
  PalvonAuthManager_FreeServerInfo(info);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_TRUE(daemon.WaitForLog("uninitialised"));
  EXPECT_EQ(daemon.CountInLog("return=65280 {"), 2u) << daemon.LogText();
  EXPECT_EQ(daemon.CountInLog("-> GetVersion return=65280"), 1u);
  EXPECT_EQ(daemon.CountInLog("-> DetermineServerType return=65280"), 1u);
  EXPECT_EQ(daemon.CountInLog("-> CreateConnection return=65280"), 0u);
}

TEST(ServiceProcess, ChosenOperationsAnswerChosenCodesAndChosenSdkVersionIsCappedAtLevelTwo) {
  Daemon daemon({"--answer", "GetVersion=7", "--answer", "63=0xFFFA"},
                "[service]\nsdk_version = 5\n[faults]\nanswers = { CreateVpnAuthContext = 9 }\n");
  const ConnectionHandle connection = InitialiseAndConnect();
  ASSERT_NE(connection, 0u);
  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  EXPECT_EQ(level, 2u);
  AMChar* version = nullptr;
  EXPECT_EQ(PalvonAuthManager_GetVersion(connection, &version), 7u);
  EXPECT_EQ(version, nullptr);
  AM_SERVER_INFO* info = nullptr;
  EXPECT_EQ(PalvonAuthManager_DetermineServerType(connection, L"https://x.test/", &info), 0xFFFAu);
  AM_GATEWAY_INFO gateway = {nullptr, nullptr, 0, 0, 0};
  VpnAuthContextHandle context = 0;
  EXPECT_EQ(PalvonAuthManager_CreateVpnAuthContext(connection, &gateway, 0, &context), 9u);
  EXPECT_EQ(PalvonAuthManager_LogOff(connection), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(ServiceProcess, BadConfigurationIsRefusedWithFileLineAndProblem) {
  struct Case {
    std::string text;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"[service]\nsdk_version = 2\nversion_text = \"unterminated\n", ":3:"},
      {"[http]\ntimeout_s = 5\n\nuser_agnet = \"x\"\n", ":4:1: unknown key 'http.user_agnet'"},
      {"[service]\nsdk_version = -1\n", ":2:15: 'service.sdk_version' must be between 0 and 4294967295, not -1"},
      {"[http]\nverify_tls = \"yes\"\n", ":2:14: 'http.verify_tls' must be a boolean, not a string"},
      {"\n[faults]\nanswers = { NoSuchCall = 5 }\n", ":3:13: unknown operation 'NoSuchCall' in 'faults.answers'"},
      {"[trampoline]\ntemplate = \"{gateway}/t?u={uri}\"\n", ":2:12: 'trampoline.template': unknown placeholder {uri}"},
      {"[[servers.rule]]\nprefix = \"https://a/\"\ntype = 2\n",
       ":1:1: the rule for 'https://a/' has type 2 (gateway) and needs 'friendly_name' and 'logon_point_url'"},
  };
  for (size_t i = 0; i < cases.size(); ++i) {
    const std::string path = pam_test::WriteFile(Home() + "/bad" + std::to_string(i) + ".toml", cases[i].text);
    const auto run = pam_test::RunDaemonToExit({"--config", path});
    EXPECT_EQ(run.exitCode, 2) << run.log;
    EXPECT_NE(run.log.find("bad configuration: " + path + cases[i].expected), std::string::npos)
        << "case " << i << ": " << run.log;
  }
  // Unreadable files and bad flags are refused the same way.
  const std::pair<std::vector<std::string>, std::string> flags[] = {
      {{"--config", Home() + "/none.toml"}, Home() + "/none.toml: cannot be read"},
      {{"--answer", "GetVersion"}, "'GetVersion' is not OPERATION=CODE"},
      {{"--no-such-flag"}, ""},
  };
  for (const auto& [args, expected] : flags) {
    const auto run = pam_test::RunDaemonToExit(args);
    EXPECT_EQ(run.exitCode, 2) << args[0];
    EXPECT_NE(run.log.find(expected), std::string::npos) << run.log;
  }
}

TEST(ServiceProcess, DefaultConfigurationFileIsReadWhenPresent) {
  ASSERT_EQ(mkdir((Home() + "/.config").c_str(), 0700), 0);
  ASSERT_EQ(mkdir((Home() + "/.config/palvonauthd").c_str(), 0700), 0);
  pam_test::WriteFile(Home() + "/.config/palvonauthd/palvonauthd.toml", "[service]\nversion_text = \"from file\"\n");
  Daemon daemon({"--version-text", "from flag"});
  EXPECT_TRUE(daemon.WaitForLog("configuration read from " + Home() + "/.config/palvonauthd/palvonauthd.toml"));
  // Flags win over the file.
  EXPECT_EQ(VersionText(InitialiseAndConnect()), L"from flag");
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(ServiceProcess, LaunchIsRecordedWhenNoLauncherIsConfigured) {
  Daemon daemon;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  char url[] = "https://host.example.com/session.rzp";
  char first[] = "--fullscreen";
  char second[] = "two words \"quoted\"";
  char third[] = "\xc3\xbcml\xc3\xa4ut";
  AMUTF8Char* args[] = {first, second, third, nullptr};
  AMUint status = 77;
  ASSERT_EQ(PalvonAuthManager_LaunchRZPFile(url, args, &status), 0u);
  EXPECT_EQ(status, 1u);
  const std::string log = pam_test::ReadFile(Home() + "/.RZPClient/logs/launches.log");
  EXPECT_NE(log.find("\tclient=" + std::to_string(getpid()) +
                     "\tstatus=1\turl=\"https://host.example.com/session.rzp\""
                     "\targs=[\"--fullscreen\", \"two words \\\"quoted\\\"\", \"\xc3\xbcml\xc3\xa4ut\"]\n"),
            std::string::npos)
      << log;
  AMUTF8Char* none[] = {nullptr};
  ASSERT_EQ(PalvonAuthManager_LaunchRZPFile(nullptr, none, &status), 0u);
  EXPECT_EQ(status, 1u);
  EXPECT_NE(pam_test::ReadFile(Home() + "/.RZPClient/logs/launches.log").find("\turl=-\targs=[]\n"), std::string::npos);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(ServiceProcess, ConfiguredLauncherGetsTheLaunchUrlAndArgumentsAsTheyAre) {
  const std::string out = Home() + "/launched.txt";
  const std::string script =
      pam_test::WriteFile(Home() + "/launcher.sh", "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > \"" +
                                                       out + ".tmp\"\nmv \"" + out + ".tmp\" \"" + out + "\"\n");
  ASSERT_EQ(chmod(script.c_str(), 0700), 0);
  Daemon daemon({}, "[launch]\ncommand = [\"" + script + "\", \"--from-config\"]\nlog_file = \"" + Home() +
                        "/my-launches.log\"\n");
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  char url[] = "file:///tmp/a b.rzp";
  char first[] = "$HOME; echo no shell";
  char second[] = "\xc3\xbc";
  AMUTF8Char* args[] = {first, second, nullptr};
  AMUint status = 77;
  ASSERT_EQ(PalvonAuthManager_LaunchRZPFile(url, args, &status), 0u);
  EXPECT_EQ(status, 0u);
  std::string lines;
  for (int i = 0; i < 500 && (lines = pam_test::ReadFile(out)).empty(); ++i) usleep(10000);
  EXPECT_EQ(lines, "--from-config\nfile:///tmp/a b.rzp\n$HOME; echo no shell\n\xc3\xbc\n");
  EXPECT_NE(pam_test::ReadFile(Home() + "/my-launches.log").find("\tstatus=0\t"), std::string::npos);
  EXPECT_TRUE(daemon.WaitForLog("exited with status 0")) << daemon.LogText();
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(ServiceProcess, LauncherThatCannotStartIsReported) {
  Daemon daemon({"--launcher", Home() + "/missing-launcher"});
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  AMUTF8Char* none[] = {nullptr};
  AMUint status = 77;
  ASSERT_EQ(PalvonAuthManager_LaunchRZPFile(nullptr, none, &status), 0u);
  EXPECT_EQ(status, 2u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(ServiceProcess, StopsCleanlyOnSigtermAndRefusesASecondInstance) {
  Daemon daemon;
  const auto second = pam_test::RunDaemonToExit({});
  EXPECT_EQ(second.exitCode, 1);
  EXPECT_NE(second.log.find("another palvonauthd (process " + std::to_string(daemon.Pid()) + ") already serves"),
            std::string::npos)
      << second.log;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_EQ(daemon.Stop(), 0);
  EXPECT_NE(daemon.LogText().find("stopping on Terminated"), std::string::npos);
  EXPECT_NE(daemon.LogText().find("service stopping; session ended"), std::string::npos) << daemon.LogText();
  EXPECT_NE(daemon.LogText().find("info: stopped"), std::string::npos);
  // The registration pipe stays, so clients that wait for a service keep waiting for the next one.
  struct stat status {};
  EXPECT_EQ(stat((CLinuxIPC::getUserTmpDir() + "/.AuthManagerListnerPipe").c_str(), &status), 0);
  EXPECT_TRUE(S_ISFIFO(status.st_mode));
}

TEST(ServiceProcess, LinksUnderItsFileNamesAreRefusedAndTheirTargetsLeftAlone) {
  const std::string victim = pam_test::WriteFile(Home() + "/victim", "precious");
  ASSERT_EQ(chmod(victim.c_str(), 0600), 0);
  const std::string dir = CLinuxIPC::getUserTmpDir();
  const std::pair<std::string, std::string> cases[] = {
      {"/.palvonauthd.lock", "cannot use the lock file " + dir + "/.palvonauthd.lock: it is a symbolic link"},
      {"/.AuthManagerListnerPipe", "cannot use the registration pipe " + dir + "/.AuthManagerListnerPipe: a link"},
  };
  for (const auto& [name, expected] : cases) {
    ASSERT_EQ(symlink(victim.c_str(), (dir + name).c_str()), 0);
    const auto run = pam_test::RunDaemonToExit({});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.log.find(expected), std::string::npos) << run.log;
    ASSERT_EQ(unlink((dir + name).c_str()), 0);
  }
  struct stat status {};
  ASSERT_EQ(stat(victim.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(pam_test::ReadFile(victim), "precious");

  {
    // A client's pipe names that link to FIFOs which would otherwise do.
    Daemon daemon;
    pam_test::RawClient client;
    for (const std::string& path : {client.RequestPath(), client.ReplyPath()}) {
      ASSERT_EQ(rename(path.c_str(), (path + ".real").c_str()), 0);
      ASSERT_EQ(symlink((path + ".real").c_str(), path.c_str()), 0);
    }
    client.Register();
    EXPECT_TRUE(daemon.WaitForLog("registration of process " + std::to_string(client.Pid()) +
                                  " refused: " + client.RequestPath() + ": it is a symbolic link"))
        << daemon.LogText();
  }

  // No private pipe folder at all (a file where the folder should be, a
  // user name that cannot be a folder): the service does not start.
  const std::string home = Home();
  const char* user = std::getenv("USER");
  const std::string savedUser = user != nullptr ? user : "";
  ASSERT_EQ(mkdir((home + "/other").c_str(), 0700), 0);
  pam_test::WriteFile(home + "/other/.RZPClient", "");
  setenv("HOME", (home + "/other").c_str(), 1);
  setenv("USER", "no/such/user", 1);
  const auto run = pam_test::RunDaemonToExit({});
  setenv("HOME", home.c_str(), 1);
  if (user != nullptr) {
    setenv("USER", savedUser.c_str(), 1);
  } else {
    unsetenv("USER");
  }
  EXPECT_EQ(run.exitCode, 1);
  EXPECT_NE(run.log.find("no private pipe folder"), std::string::npos) << run.log;
}

TEST(ServiceProcess, FilesOfAnotherUserAreRefusedAndLeftAlone) {
  if (getuid() != 0) GTEST_SKIP() << "only root can make files of another user";
  constexpr uid_t kStranger = 4242;
  const std::string dir = CLinuxIPC::getUserTmpDir();
  const std::pair<std::string, std::string> cases[] = {
      {"/.palvonauthd.lock", "cannot use the lock file " + dir + "/.palvonauthd.lock: it belongs to user 4242"},
      {"/.AuthManagerListnerPipe", "cannot use the registration pipe " + dir + "/.AuthManagerListnerPipe: a link"},
  };
  for (const auto& [name, expected] : cases) {
    const std::string path = dir + name;
    if (name == "/.palvonauthd.lock") {
      pam_test::WriteFile(path, "4242\n");
    } else {
      ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    }
    ASSERT_EQ(chmod(path.c_str(), 0600), 0);
    ASSERT_EQ(chown(path.c_str(), kStranger, kStranger), 0);
    const auto run = pam_test::RunDaemonToExit({});
    EXPECT_EQ(run.exitCode, 1);
    EXPECT_NE(run.log.find(expected), std::string::npos) << run.log;
    struct stat status {};
    ASSERT_EQ(lstat(path.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u) << name;
    if (S_ISREG(status.st_mode)) {
      EXPECT_EQ(pam_test::ReadFile(path), "4242\n");
    }
    ASSERT_EQ(unlink(path.c_str()), 0);
  }

  Daemon daemon;
  pam_test::RawClient client;
  for (const std::string& path : {client.RequestPath(), client.ReplyPath()}) {
    ASSERT_EQ(chown(path.c_str(), kStranger, kStranger), 0);
  }
  client.Register();
  EXPECT_TRUE(daemon.WaitForLog("registration of process " + std::to_string(client.Pid()) +
                                " refused: " + client.RequestPath() + ": it is not a FIFO of this user"))
      << daemon.LogText();
}

TEST(ServiceProcess, ARequestIsReadNoFurtherThanItsFrameAndAStalledOneEnds) {
#if defined(__SANITIZE_THREAD__)
  // Over a hundred megabytes through an instrumented service would outlast
  // any sensible limit; the other builds run it, and no threads are involved.
  GTEST_SKIP() << "too slow under ThreadSanitizer";
#endif
  const uint32_t largest = 64u << 20;
  {
    // The largest frame, then bytes without end: what follows the frame is
    // taken as the next prefix, which announces too much.
    Daemon daemon;
    pam_test::RawClient client;
    const std::string ended = "client " + std::to_string(client.Pid()) + " announced a request of 4294967295 bytes";
    client.Register();
    ASSERT_TRUE(client.Answered());
    ASSERT_TRUE(client.Send(pam_test::FramePrefix(59, static_cast<uint32_t>(client.Pid()), largest)));
    const std::vector<uint8_t> chunk(1u << 20, 0xFF);
    while (!daemon.WaitForLog(ended, std::chrono::milliseconds(0)) && client.Send(chunk, std::chrono::seconds(2))) {
    }
    EXPECT_TRUE(daemon.WaitForLog(ended)) << daemon.LogText();
  }
  {
    // Most of a frame, then silence.
    Daemon daemon({}, "[service]\nframe_timeout_ms = 500\n");
    pam_test::RawClient client;
    client.Register();
    ASSERT_TRUE(client.Answered());
    ASSERT_TRUE(client.Send(pam_test::FramePrefix(59, static_cast<uint32_t>(client.Pid()), largest)));
    (void)client.Send(std::vector<uint8_t>(60u << 20, 0));
    EXPECT_TRUE(daemon.WaitForLog("client " + std::to_string(client.Pid()) +
                                  " sent part of a request, then nothing for 500 ms; session ended"))
        << daemon.LogText();
  }
}

TEST(ServiceProcess, SurplusClientsAreRefusedWhileTheServedOnesGoOn) {
  struct Case {
    std::string config;
    bool starveDescriptors;
    std::string refusal;
    size_t refused;
  };
  const Case cases[] = {
      {"[service]\nmax_clients = 2\n", false, "refused: 2 clients are served already (service.max_clients)", 3},
      {"[service]\nverbose = false\n", true, "Too many open files", 4},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.config);
    Daemon daemon({}, c.config);
    pam_test::RawClient served;
    served.Register();
    ASSERT_TRUE(served.Answered());
    struct rlimit saved {};
    if (c.starveDescriptors) {
      // Not a single descriptor more for the service: the limit is its
      // lowest free descriptor number.
      std::set<int> open;
      for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(daemon.Pid()) + "/fd")) {
        open.insert(std::stoi(entry.path().filename().string()));
      }
      rlim_t lowestFree = 0;
      while (open.count(static_cast<int>(lowestFree)) != 0) ++lowestFree;
      ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, nullptr, &saved), 0);
      const struct rlimit low = {lowestFree, saved.rlim_max};
      ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, &low, nullptr), 0);
    }
    std::vector<std::unique_ptr<pam_test::RawClient>> burst(4);
    for (auto& client : burst) {
      client = std::make_unique<pam_test::RawClient>();
      client->Register();
    }
    for (int i = 0; i < 500 && daemon.CountInLog(c.refusal) < c.refused; ++i) usleep(10000);
    EXPECT_EQ(daemon.CountInLog(c.refusal), c.refused) << daemon.LogText();
    // Sweeps went on meanwhile; the client served before is still served.
    usleep(300000);
    EXPECT_TRUE(served.Answered()) << daemon.LogText();
    EXPECT_EQ(daemon.CountInLog("process is gone"), 0u) << daemon.LogText();
    if (c.starveDescriptors) {
      ASSERT_EQ(prlimit(daemon.Pid(), RLIMIT_NOFILE, &saved, nullptr), 0);
    }
  }
}

TEST(ServiceProcess, ARegistrationOfAServedClientReplacesItsSessionOnlyWhenItsPipesAreNew) {
  Daemon daemon;
  pam_test::RawClient client;
  const std::string pid = std::to_string(client.Pid());
  client.Register();
  ASSERT_TRUE(client.Answered());
  client.Register();
  EXPECT_TRUE(daemon.WaitForLog("registration of process " + pid + " refused: it is served already, on the same pipes"))
      << daemon.LogText();
  EXPECT_TRUE(client.Answered());
  client.Recreate();
  client.Register();
  EXPECT_TRUE(daemon.WaitForLog("client " + pid + " registered again; session ended")) << daemon.LogText();
  EXPECT_TRUE(client.Answered());
}

TEST(ServiceProcess, PipesOfAGoneClientAreRemovedWhileTheyAreTheFifosItHadOpened) {
  Daemon daemon;
  pam_test::RawClient untouched;
  pam_test::RawClient replaced;
  for (auto* client : {&untouched, &replaced}) {
    client->Register();
    ASSERT_TRUE(client->Answered());
  }
  // A new FIFO under one of the names is not the service's to remove.
  const std::string newcomer = replaced.RequestPath();
  ASSERT_EQ(rename(newcomer.c_str(), (newcomer + ".old").c_str()), 0);
  ASSERT_EQ(mkfifo(newcomer.c_str(), 0600), 0);
  untouched.Die();
  replaced.Die();
  EXPECT_TRUE(daemon.WaitForLog("removed 2 pipe(s) of client " + std::to_string(untouched.Pid())));
  EXPECT_TRUE(daemon.WaitForLog("removed 1 pipe(s) of client " + std::to_string(replaced.Pid()))) << daemon.LogText();
  for (const std::string& path : {untouched.RequestPath(), untouched.ReplyPath(), replaced.ReplyPath()}) {
    EXPECT_NE(access(path.c_str(), F_OK), 0) << path;
  }
  EXPECT_EQ(access(newcomer.c_str(), F_OK), 0);
}
