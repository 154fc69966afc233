// Installs the build into a fresh prefix, builds a separate application
// against it (find_package and pkg-config) and runs it against a service:
// the installed palvonauthd when the service is built, the test service
// otherwise.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fcntl.h>

#include <chrono>
#include <sstream>
#include <thread>

#include "ToolTestSupport.h"
#include "message/MessageTypes.h"

using namespace pam_test;
namespace msg = PalvonAuthManagerSDK::msg;

namespace {

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

bool IsSymlink(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

std::vector<std::string> Split(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) words.push_back(word);
  return words;
}

// Runs a build step and fails the test with its output when it fails.
ChildResult Step(const std::vector<std::string>& argv, const std::vector<std::string>& environment = {}) {
  ChildOptions options;
  options.environment = environment;
  options.timeout = std::chrono::seconds(90);
  ChildResult result = RunChild(argv, options);
  std::string line;
  for (const auto& arg : argv) line += arg + " ";
  EXPECT_EQ(result.exitCode, 0) << line << "\n" << result.out << result.err;
  return result;
}

// The installed service, running in the background with the test's HOME.
class Daemon {
 public:
  explicit Daemon(const std::string& path, const std::string& log) {
    std::vector<std::string> args = {path, "--version-text", "install-test service"};
    std::vector<char*> argv;
    for (auto& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    const int logFd = open(log.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    pid_ = fork();
    if (pid_ == 0) {
      dup2(logFd, STDOUT_FILENO);
      dup2(logFd, STDERR_FILENO);
      execv(argv[0], argv.data());
      _exit(127);
    }
    close(logFd);
  }
  ~Daemon() { Stop(); }
  // SIGTERM ends the service normally; returns its exit status.
  int Stop() {
    if (pid_ <= 0) return status_;
    kill(pid_, SIGTERM);
    int status = 0;
    waitpid(pid_, &status, 0);
    pid_ = -1;
    status_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    return status_;
  }

 private:
  pid_t pid_ = -1;
  int status_ = -1;
};

}  // namespace

TEST(InstalledSdk, ConsumersBuildAgainstTheInstallationAndTalkToAService) {
  const std::string home = Home();
  const std::string prefix = home + "/prefix";
  Step({PAM_CMAKE_COMMAND, "--install", PAM_BUILD_DIR, "--prefix", prefix}, {"DESTDIR="});

  const std::string lib = prefix + "/" PAM_INSTALL_LIBDIR;
  const std::string version = PAM_PROJECT_VERSION;
  for (const std::string& path :
       {lib + "/libpalvonauthmanager.so." + version, prefix + "/include/palvonauthmanager/PalvonAuthManager.h",
        prefix + "/include/palvonauthmanager/PalvonAuthManagerTracer.h", prefix + "/bin/palvonauth",
        lib + "/pkgconfig/palvonauthmanager.pc", lib + "/cmake/PalvonAuthManager/PalvonAuthManagerConfig.cmake",
        lib + "/cmake/PalvonAuthManager/PalvonAuthManagerConfigVersion.cmake",
        lib + "/cmake/PalvonAuthManager/PalvonAuthManagerTargets.cmake", prefix + "/share/man/man1/palvonauth.1"}) {
    EXPECT_TRUE(Exists(path)) << path;
  }
  EXPECT_TRUE(IsSymlink(lib + "/libpalvonauthmanager.so.1"));
  EXPECT_TRUE(IsSymlink(lib + "/libpalvonauthmanager.so"));
#ifdef PAM_HAVE_DAEMON
  EXPECT_TRUE(Exists(prefix + "/bin/palvonauthd"));
  EXPECT_TRUE(Exists(prefix + "/share/man/man8/palvonauthd.8"));
  const std::string unit = ReadWholeFile(prefix + "/lib/systemd/user/palvonauthd.service");
  EXPECT_NE(unit.find("ExecStart=" + prefix + "/bin/palvonauthd"), std::string::npos) << unit;
#endif

  // find_package route: a CMake project of its own, found through the prefix only.
  const std::string build = home + "/consumer-build";
  const std::string flags = PAM_CONSUMER_FLAGS;
  Step({PAM_CMAKE_COMMAND, "-S", PAM_CONSUMER_SOURCE_DIR, "-B", build, "-G", PAM_GENERATOR,
        "-DCMAKE_MAKE_PROGRAM=" PAM_MAKE_PROGRAM, "-DCMAKE_C_COMPILER=" PAM_C_COMPILER,
        "-DCMAKE_CXX_COMPILER=" PAM_CXX_COMPILER, "-DCMAKE_BUILD_TYPE=Debug", "-DCMAKE_PREFIX_PATH=" + prefix,
        "-DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF", "-DCMAKE_C_FLAGS=" + flags, "-DCMAKE_CXX_FLAGS=" + flags,
        "-DCMAKE_EXE_LINKER_FLAGS=" + flags});
  const std::string cache = ReadWholeFile(build + "/CMakeCache.txt");
  EXPECT_NE(cache.find("PalvonAuthManager_DIR:PATH=" + lib + "/cmake/PalvonAuthManager"), std::string::npos);
  Step({PAM_CMAKE_COMMAND, "--build", build});

  // pkg-config route: a plain compiler call with the flags pkg-config gives.
  const std::vector<std::string> pcEnv = {"PKG_CONFIG_PATH=" + lib + "/pkgconfig"};
  const ChildResult pcFlags = Step({PAM_PKG_CONFIG, "--cflags", "--libs", "palvonauthmanager"}, pcEnv);
  const ChildResult pcLibdir = Step({PAM_PKG_CONFIG, "--variable=libdir", "palvonauthmanager"}, pcEnv);
  const ChildResult pcVersion = Step({PAM_PKG_CONFIG, "--modversion", "palvonauthmanager"}, pcEnv);
  EXPECT_EQ(pcVersion.out, version + "\n");
  std::vector<std::string> compile = {PAM_C_COMPILER, "-std=c11", "-o", home + "/consumer-pc",
                                      std::string(PAM_CONSUMER_SOURCE_DIR) + "/main.c"};
  for (const auto& word : Split(flags)) compile.push_back(word);
  for (const auto& word : Split(pcFlags.out)) compile.push_back(word);
  compile.push_back("-Wl,-rpath," + Split(pcLibdir.out).at(0));
  Step(compile);

#ifdef PAM_HAVE_DAEMON
  Daemon daemon(prefix + "/bin/palvonauthd", home + "/palvonauthd.log");
  const std::string expectedVersion = "install-test service";
#else
  TestService service;
  Answers answers(service);
  answers.Always(msg::kGetVersion, Reply::Return(0).Wide(L"version", L"install-test service"));
  const std::string expectedVersion = "install-test service";
#endif
  for (const std::string& program : {build + "/consumer", home + "/consumer-pc"}) {
    SCOPED_TRACE(program);
    const ChildResult run = RunChild({program});
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(run.out, "api-level 2\nversion " + expectedVersion + "\ninitialised no\n");
  }
  const ChildResult traced = RunChild({build + "/trace_consumer"});
  EXPECT_EQ(traced.exitCode, 0) << traced.out << traced.err;
  EXPECT_EQ(traced.out, "api-level 2, trace files 1\n");

  // The installed tool finds the installed library through its run path.
  const ChildResult tool = RunChild({prefix + "/bin/palvonauth", "--json", "--wait", "30", "version"},
                                    ChildOptions{"", {"LD_LIBRARY_PATH="}, false, std::chrono::seconds(40)});
  EXPECT_EQ(tool.exitCode, 0) << tool.err;
  EXPECT_EQ(JsonString(tool.out, "version"), expectedVersion) << tool.out;

#ifdef PAM_HAVE_DAEMON
  EXPECT_EQ(daemon.Stop(), 0) << ReadWholeFile(home + "/palvonauthd.log");
#endif
}
