// Where the per-user pipe directory ends up, what gets created on the way,
// the line written to standard error when the home directory cannot be used,
// and the permission widening applied to pipe files.
#include <fcntl.h>
#include <grp.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>

#include "ipc/CLinuxIPC.h"
#include "ipc/PipeDirectory.h"
#include "support/TempHome.h"

using PalvonAuthManagerSDK::ChangePermission;
using PalvonAuthManagerSDK::CLinuxIPC;

namespace {

std::string Home() { return getenv("HOME"); }

bool IsDirectory(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

bool Exists(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0;
}

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  if (stat(path.c_str(), &status) != 0) return static_cast<mode_t>(-1);
  return status.st_mode & 07777;
}

void MakeRegularFile(const std::string& path) {
  const int fd = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC | O_CLOEXEC, 0600);
  ASSERT_GE(fd, 0) << path;
  close(fd);
}

std::string FallbackLine(int error) {
  return std::string("Failed to create rzpHome directory inside user home directory. ") + std::strerror(error) +
         "Falling to /tmp directory\n";
}

// Sets the umask for the lifetime of the object.
class Umask {
 public:
  explicit Umask(mode_t mask) : previous_(umask(mask)) {}
  ~Umask() { umask(previous_); }
  Umask(const Umask&) = delete;
  Umask& operator=(const Umask&) = delete;

 private:
  mode_t previous_;
};

// Sets or removes (nullptr) an environment variable, restoring it afterwards.
class EnvVar {
 public:
  EnvVar(const char* name, const char* value) : name_(name), had_(getenv(name) != nullptr) {
    if (had_) old_ = getenv(name);
    value != nullptr ? setenv(name, value, 1) : unsetenv(name);
  }
  ~EnvVar() { had_ ? setenv(name_, old_.c_str(), 1) : unsetenv(name_); }
  EnvVar(const EnvVar&) = delete;
  EnvVar& operator=(const EnvVar&) = delete;

 private:
  const char* name_;
  bool had_;
  std::string old_;
};

// Sends everything written to file descriptor 2 into a file while alive.
class StderrCapture {
 public:
  StderrCapture() {
    std::fflush(stderr);
    char name[] = "/tmp/pam-stderr-XXXXXX";
    fd_ = mkstemp(name);
    path_ = name;
    saved_ = dup(2);
    dup2(fd_, 2);
  }
  ~StderrCapture() { Stop(); }
  StderrCapture(const StderrCapture&) = delete;
  StderrCapture& operator=(const StderrCapture&) = delete;

  std::string Stop() {
    if (saved_ >= 0) {
      std::fflush(stderr);
      dup2(saved_, 2);
      close(saved_);
      close(fd_);
      saved_ = -1;
      text_ = pam_test::ReadFile(path_);
      unlink(path_.c_str());
    }
    return text_;
  }

 private:
  int fd_ = -1;
  int saved_ = -1;
  std::string path_;
  std::string text_;
};

// A user name no one has, so that /tmp/<name> belongs to this test alone.
std::string FakeUserName() { return "pam-test-user-" + std::to_string(getpid()); }

// Removes /tmp/<user> when the test ends, whatever happened.
class TmpUserDir {
 public:
  explicit TmpUserDir(std::string user) : path_("/tmp/" + std::move(user)) { rmdir(path_.c_str()); }
  ~TmpUserDir() { rmdir(path_.c_str()); }
  TmpUserDir(const TmpUserDir&) = delete;
  TmpUserDir& operator=(const TmpUserDir&) = delete;
  const std::string& Path() const { return path_; }

 private:
  std::string path_;
};

// Makes creating anything under HOME fail. Root is not stopped by
// permissions, so there HOME points below a regular file (ENOTDIR);
// otherwise HOME is a folder without write permission (EACCES).
struct UnusableHome {
  std::string path;
  int error = 0;
};

UnusableHome MakeUnusableHome() {
  UnusableHome home;
  if (geteuid() == 0) {
    const std::string file = Home() + "/plain-file";
    MakeRegularFile(file);
    home.path = file + "/home";
    home.error = ENOTDIR;
  } else {
    home.path = Home() + "/locked";
    mkdir(home.path.c_str(), 0700);
    chmod(home.path.c_str(), 0500);
    home.error = EACCES;
  }
  return home;
}

// HOME made unusable and USER set to a fake name, so the lookup falls back
// to /tmp/<user>.
struct FallbackToTmpUser {
  UnusableHome home = MakeUnusableHome();
  std::string user = FakeUserName();
  TmpUserDir tmpUser{user};
  EnvVar setHome{"HOME", home.path.c_str()};
  EnvVar setUser{"USER", user.c_str()};
};

// A user id without a password-database entry, or 0 when none is found.
uid_t UnknownUserId() {
  for (uid_t uid = 47000; uid < 48000; ++uid) {
    if (getpwuid(uid) == nullptr) return uid;
  }
  return 0;
}

struct ChildOutcome {
  bool supported = false;  // root, and an unknown user id was found
  bool ran = false;        // the child finished its lookup
  std::string directory;
  std::string standardError;
};

// Runs getUserTmpDir() in a child process that has switched to a user
// without a password entry (needs root). `prepare` adjusts the child's
// environment before the call.
ChildOutcome LookUpAsUnknownUser(const std::function<void()>& prepare) {
  ChildOutcome outcome;
  const uid_t uid = UnknownUserId();
  if (geteuid() != 0 || uid == 0) return outcome;
  outcome.supported = true;
  int result[2];
  int errors[2];
  if (pipe2(result, O_CLOEXEC) != 0 || pipe2(errors, O_CLOEXEC) != 0) return outcome;
  std::fflush(nullptr);
  const pid_t child = fork();
  if (child == 0) {
    dup2(errors[1], 2);
    if (setgroups(0, nullptr) != 0 || setgid(uid) != 0 || setuid(uid) != 0) _exit(3);
    prepare();
    const std::string directory = CLinuxIPC::getUserTmpDir();
    const ssize_t written = write(result[1], directory.data(), directory.size());
    _exit(written == static_cast<ssize_t>(directory.size()) ? 0 : 4);
  }
  close(result[1]);
  close(errors[1]);
  auto drain = [](int fd) {
    std::string text;
    char chunk[512];
    ssize_t got;
    while ((got = read(fd, chunk, sizeof chunk)) > 0) text.append(chunk, static_cast<size_t>(got));
    close(fd);
    return text;
  };
  outcome.directory = drain(result[0]);
  outcome.standardError = drain(errors[0]);
  int status = 0;
  waitpid(child, &status, 0);
  outcome.ran = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return outcome;
}

}  // namespace

// Every case starts from a home folder of its own.
class PipeDirectory : public ::testing::Test {
 protected:
  pam_test::TempHome home_;
};

// --- HOME usable -----------------------------------------------------------

TEST_F(PipeDirectory, UsableHomeGetsBothLevelsOwnerOnlyUnderAnyUmask) {
  // The umask is not cleared: it can take owner bits away from the directory
  // made first, but group and other bits never appear.
  const struct {
    mode_t mask;
    mode_t top;
  } cases[] = {{022, 0700}, {027, 0700}, {0, 0700}, {0100, 0600}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.mask);
    pam_test::RemoveTree(Home() + "/.RZPClient");
    Umask mask(c.mask);
    StderrCapture errors;
    const std::string directory = CLinuxIPC::getUserTmpDir();
    const std::string printed = errors.Stop();
    EXPECT_EQ(ModeOf(Home() + "/.RZPClient"), c.top);
    if (c.top != 0700) continue;  // without its x bit the second level may not be makeable
    EXPECT_EQ(directory, Home() + "/.RZPClient/.tmp");
    EXPECT_TRUE(IsDirectory(directory));
    EXPECT_EQ(ModeOf(directory), 0700u);
    EXPECT_EQ(printed, "");
  }
}

TEST_F(PipeDirectory, ExistingDirectoriesAreAcceptedAndKeepTheirModes) {
  Umask mask(022);
  ASSERT_EQ(mkdir((Home() + "/.RZPClient").c_str(), 0755), 0);
  chmod((Home() + "/.RZPClient").c_str(), 0755);
  StderrCapture errors;
  // Only the missing second level is created.
  EXPECT_EQ(CLinuxIPC::getUserTmpDir(), Home() + "/.RZPClient/.tmp");
  EXPECT_EQ(ModeOf(Home() + "/.RZPClient/.tmp"), 0700u);
  chmod((Home() + "/.RZPClient/.tmp").c_str(), 0750);
  EXPECT_EQ(CLinuxIPC::getUserTmpDir(), Home() + "/.RZPClient/.tmp");
  EXPECT_EQ(errors.Stop(), "");
  EXPECT_EQ(ModeOf(Home() + "/.RZPClient"), 0755u);
  EXPECT_EQ(ModeOf(Home() + "/.RZPClient/.tmp"), 0750u);
}

TEST_F(PipeDirectory, NothingIsCachedBetweenCalls) {
  const std::string first = CLinuxIPC::getUserTmpDir();
  pam_test::TempHome other;  // points HOME elsewhere
  const std::string second = CLinuxIPC::getUserTmpDir();
  EXPECT_EQ(second, other.Path() + "/.RZPClient/.tmp");
  EXPECT_NE(first, second);
  EXPECT_TRUE(IsDirectory(second));
}

TEST_F(PipeDirectory, UnsetHomeFallsBackToThePasswordEntry) {
  const struct passwd* user = getpwuid(getuid());
  if (user == nullptr || user->pw_dir == nullptr || user->pw_dir[0] == '\0') {
    GTEST_SKIP() << "the current user has no password entry";
  }
  const std::string rzpHome = std::string(user->pw_dir) + "/.RZPClient";
  const std::string expected = rzpHome + "/.tmp";
  // Remove again only what this test created in the real home folder.
  const bool hadRzpHome = Exists(rzpHome);
  const bool hadPipeDirectory = Exists(expected);
  EnvVar unsetHome("HOME", nullptr);
  StderrCapture errors;
  const std::string directory = CLinuxIPC::getUserTmpDir();
  const std::string printed = errors.Stop();
  const bool usable = IsDirectory(expected);
  if (!hadPipeDirectory) rmdir(expected.c_str());
  if (!hadRzpHome) rmdir(rzpHome.c_str());
  if (!usable) GTEST_SKIP() << "the password entry's home folder is not writable here";
  EXPECT_EQ(directory, expected);
  EXPECT_EQ(printed, "");
}

// --- HOME not usable ---------------------------------------------------------

TEST_F(PipeDirectory, UnusableHomeFallsBackToTmpUserWithOneLinePerCall) {
  for (const mode_t m : {022, 027}) {
    SCOPED_TRACE(m);
    Umask mask(m);
    FallbackToTmpUser fallback;
    StderrCapture errors;
    EXPECT_EQ(CLinuxIPC::getUserTmpDir(), fallback.tmpUser.Path());
    EXPECT_EQ(CLinuxIPC::getUserTmpDir(), fallback.tmpUser.Path());
    ASSERT_TRUE(IsDirectory(fallback.tmpUser.Path()));
    EXPECT_EQ(ModeOf(fallback.tmpUser.Path()), 0700u);
    EXPECT_EQ(errors.Stop(), FallbackLine(fallback.home.error) + FallbackLine(fallback.home.error));
  }
  // An existing /tmp/<user> is used as it is.
  FallbackToTmpUser fallback;
  ASSERT_EQ(mkdir(fallback.tmpUser.Path().c_str(), 0755), 0);
  chmod(fallback.tmpUser.Path().c_str(), 0755);
  StderrCapture errors;
  EXPECT_EQ(CLinuxIPC::getUserTmpDir(), fallback.tmpUser.Path());
  EXPECT_EQ(ModeOf(fallback.tmpUser.Path()), 0755u);
}

TEST_F(PipeDirectory, SecondLevelFailureAlsoFallsBackToTmpUser) {
  // A regular file named .RZPClient passes the first step (EEXIST) and makes
  // the second one fail with ENOTDIR.
  MakeRegularFile(Home() + "/.RZPClient");
  const std::string user = FakeUserName();
  TmpUserDir tmpUser(user);
  EnvVar setUser("USER", user.c_str());
  StderrCapture errors;
  EXPECT_EQ(CLinuxIPC::getUserTmpDir(), tmpUser.Path());
  EXPECT_EQ(errors.Stop(), FallbackLine(ENOTDIR));
  EXPECT_TRUE(IsDirectory(tmpUser.Path()));
}

TEST_F(PipeDirectory, UnusableHomeWithoutUserVariableUsesThePasswordEntryName) {
  const struct passwd* entry = getpwuid(getuid());
  if (entry == nullptr || entry->pw_name == nullptr) GTEST_SKIP() << "no password entry";
  const std::string expected = std::string("/tmp/") + entry->pw_name;
  const bool existed = Exists(expected);
  const UnusableHome home = MakeUnusableHome();
  EnvVar setHome("HOME", home.path.c_str());
  EnvVar unsetUser("USER", nullptr);
  StderrCapture errors;
  const std::string directory = CLinuxIPC::getUserTmpDir();
  if (!existed) rmdir(expected.c_str());
  EXPECT_EQ(directory, expected);
  EXPECT_EQ(errors.Stop(), FallbackLine(home.error));
}

// --- no password entry (root only: the lookup runs as an unknown user) -----

TEST_F(PipeDirectory, WithoutPasswordEntryOrUserNameTheLookupEndsInTmpOrTheUncreatedPath) {
  const std::string home = Home();
  const std::string user = FakeUserName();
  TmpUserDir tmpUser(user);
  // No HOME, no password entry: "/tmp" silently, and /tmp/<user> is not made.
  ChildOutcome outcome = LookUpAsUnknownUser([&] {
    unsetenv("HOME");
    setenv("USER", user.c_str(), 1);
  });
  if (!outcome.supported) GTEST_SKIP() << "needs root to run as a user without a password entry";
  ASSERT_TRUE(outcome.ran);
  EXPECT_EQ(outcome.directory, "/tmp");
  EXPECT_EQ(outcome.standardError, "");
  EXPECT_FALSE(Exists(tmpUser.Path()));

  // HOME belongs to root with mode 0700, and no user name: "/tmp".
  const auto homeWithoutUser = [&] {
    setenv("HOME", home.c_str(), 1);
    unsetenv("USER");
  };
  outcome = LookUpAsUnknownUser(homeWithoutUser);
  ASSERT_TRUE(outcome.ran);
  EXPECT_EQ(outcome.directory, "/tmp");
  EXPECT_EQ(outcome.standardError, FallbackLine(EACCES));

  // HOME readable by everyone with a regular file as .RZPClient: the second
  // step fails, and with no user name the result stays the uncreated path.
  MakeRegularFile(home + "/.RZPClient");
  chmod(home.c_str(), 0755);
  outcome = LookUpAsUnknownUser(homeWithoutUser);
  chmod(home.c_str(), 0700);
  ASSERT_TRUE(outcome.ran);
  EXPECT_EQ(outcome.directory, home + "/.RZPClient/.tmp");
  EXPECT_EQ(outcome.standardError, FallbackLine(ENOTDIR));
}

// --- ChangePermission ------------------------------------------------------

TEST_F(PipeDirectory, ChangePermissionAddsReadWriteForAllAndKeepsOtherBits) {
  Umask mask(022);
  const std::string fifo = Home() + "/fifo";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  EXPECT_TRUE(ChangePermission(fifo.c_str()));
  EXPECT_EQ(ModeOf(fifo), 0666u);
  struct stat status {};
  ASSERT_EQ(stat(fifo.c_str(), &status), 0);
  EXPECT_TRUE(S_ISFIFO(status.st_mode));

  const std::string program = Home() + "/program";
  MakeRegularFile(program);
  ASSERT_EQ(chmod(program.c_str(), 0100), 0);
  EXPECT_TRUE(ChangePermission(program.c_str()));
  EXPECT_EQ(ModeOf(program), 0766u);
  // Already wide: unchanged, still true.
  EXPECT_TRUE(ChangePermission(program.c_str()));
  EXPECT_EQ(ModeOf(program), 0766u);

  const std::string missing = Home() + "/missing";
  EXPECT_FALSE(ChangePermission(missing.c_str()));
  EXPECT_FALSE(Exists(missing));
}
