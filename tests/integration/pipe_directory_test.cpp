// Where the per-user pipe directory ends up: a folder is taken only when it is
// a real directory of the user that nobody else may write; anything else is
// skipped with a line on standard error, down to no folder at all.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
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

constexpr uid_t kOtherUser = 4242;

std::string Home() { return getenv("HOME"); }

mode_t ModeOf(const std::string& path) {
  struct stat status {};
  if (lstat(path.c_str(), &status) != 0) return static_cast<mode_t>(-1);
  return status.st_mode & 07777;
}

void MakeDir(const std::string& path, mode_t mode) {
  ASSERT_EQ(mkdir(path.c_str(), mode), 0) << path;
  ASSERT_EQ(chmod(path.c_str(), mode), 0);
}

std::string FallbackLine(const std::string& reason) {
  return "Failed to create rzpHome directory inside user home directory. " + reason + "Falling to /tmp directory\n";
}

// Runs the lookup with HOME and USER set (nullptr: unset) and stderr captured.
struct Lookup {
  std::string directory;
  std::string standardError;
};

Lookup LookUp(const char* home, const char* user) {
  const std::string savedHome = Home();
  home != nullptr ? setenv("HOME", home, 1) : unsetenv("HOME");
  user != nullptr ? setenv("USER", user, 1) : unsetenv("USER");
  std::fflush(stderr);
  char name[] = "/tmp/pam-stderr-XXXXXX";
  const int capture = mkstemp(name);
  const int saved = dup(2);
  dup2(capture, 2);
  Lookup result;
  result.directory = CLinuxIPC::getUserTmpDir();
  std::fflush(stderr);
  dup2(saved, 2);
  close(saved);
  close(capture);
  result.standardError = pam_test::ReadFile(name);
  unlink(name);
  setenv("HOME", savedHome.c_str(), 1);
  return result;
}

}  // namespace

class PipeDirectory : public ::testing::Test {
 protected:
  void SetUp() override {
    previousMask_ = umask(022);
    user_ = "pam-test-user-" + std::to_string(getpid());
    tmpUser_ = "/tmp/" + user_;
    pam_test::RemoveTree(tmpUser_);
  }
  void TearDown() override {
    unlink(tmpUser_.c_str());
    pam_test::RemoveTree(tmpUser_);
    umask(previousMask_);
  }
  pam_test::TempHome home_;
  mode_t previousMask_ = 0;
  std::string user_;
  std::string tmpUser_;
};

TEST_F(PipeDirectory, TakesOnlyPrivateFoldersOfTheUser) {
  const bool root = geteuid() == 0;
  struct Case {
    const char* what;
    bool needsRoot;
    std::function<void(const std::string& home, const std::string& tmpUser)> prepare;
    bool homeBased;     // expected: $HOME/.RZPClient/.tmp, else /tmp/<user>
    const char* error;  // expected reason on the fallback line ("" for none)
    const char* tmpUserError;
  };
  const Case cases[] = {
      {"fresh home", false, [](const std::string&, const std::string&) {}, true, "", ""},
      {"own folders readable by others are narrowed", false,
       [](const std::string& home, const std::string&) {
         MakeDir(home + "/.RZPClient", 0755);
         MakeDir(home + "/.RZPClient/.tmp", 0750);
       },
       true, "", ""},
      {"pipe folder is a link", false,
       [](const std::string& home, const std::string&) {
         MakeDir(home + "/.RZPClient", 0700);
         MakeDir(home + "/elsewhere", 0700);
         ASSERT_EQ(symlink((home + "/elsewhere").c_str(), (home + "/.RZPClient/.tmp").c_str()), 0);
       },
       false, "it is not a directory (or is a link)", ""},
      {"group may write", false,
       [](const std::string& home, const std::string&) { MakeDir(home + "/.RZPClient", 0770); }, false,
       "group or others may write to it", ""},
      {"home unusable", false,
       [](const std::string& home, const std::string&) {
         ASSERT_EQ(close(open((home + "/.RZPClient").c_str(), O_CREAT | O_WRONLY, 0600)), 0);
       },
       false, "it is not a directory (or is a link)", ""},
      {"/tmp/<user> of another user, open to all", true,
       [](const std::string& home, const std::string& tmpUser) {
         MakeDir(home + "/.RZPClient", 0777);
         MakeDir(tmpUser, 0777);
         ASSERT_EQ(chown(tmpUser.c_str(), kOtherUser, kOtherUser), 0);
       },
       false, "group or others may write to it", "it belongs to user 4242"},
      {"/tmp/<user> is a link", false,
       [](const std::string& home, const std::string& tmpUser) {
         MakeDir(home + "/.RZPClient", 0777);
         ASSERT_EQ(symlink(home.c_str(), tmpUser.c_str()), 0);
       },
       false, "group or others may write to it", "it is not a directory (or is a link)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    if (c.needsRoot && !root) continue;
    pam_test::TempHome home;
    c.prepare(home.Path(), tmpUser_);
    const Lookup found = LookUp(home.Path().c_str(), user_.c_str());
    const bool skippedTmpUser = c.tmpUserError[0] != '\0';
    const std::string expected =
        c.homeBased ? home.Path() + "/.RZPClient/.tmp" : (skippedTmpUser ? std::string() : tmpUser_);
    EXPECT_EQ(found.directory, expected);
    if (!expected.empty()) {
      EXPECT_EQ(ModeOf(expected), 0700u);
    }
    std::string lines = c.error[0] != '\0' ? FallbackLine(c.error) : "";
    if (skippedTmpUser) {
      lines += "Pipe folder " + tmpUser_ + " is not used: " + c.tmpUserError + "\n" +
               "No private pipe folder: set HOME to a home directory of this user\n";
    }
    EXPECT_EQ(found.standardError, lines);
    unlink(tmpUser_.c_str());
    pam_test::RemoveTree(tmpUser_);
  }
}

TEST_F(PipeDirectory, EmptyHomeIsNoHomeAndTmpItselfIsNeverUsed) {
  // An empty HOME is neither "/" nor "/tmp": the user's own /tmp folder.
  Lookup found = LookUp("", user_.c_str());
  EXPECT_EQ(found.directory, tmpUser_);
  EXPECT_EQ(found.standardError, "");
  // A user name that would leave /tmp: no folder at all.
  found = LookUp("", "../etc");
  EXPECT_EQ(found.directory, "");
  EXPECT_EQ(found.standardError, "No private pipe folder: set HOME to a home directory of this user\n");
}

TEST_F(PipeDirectory, ChangePermissionWidensThroughTheFileAndNeverFollowsALink) {
  const std::string fifo = Home() + "/fifo";
  const std::string victim = Home() + "/victim";
  const std::string link = Home() + "/link";
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  ASSERT_EQ(close(open(victim.c_str(), O_CREAT | O_WRONLY, 0100)), 0);
  ASSERT_EQ(chmod(victim.c_str(), 0100), 0);
  ASSERT_EQ(symlink(victim.c_str(), link.c_str()), 0);
  EXPECT_TRUE(ChangePermission(fifo.c_str()));
  EXPECT_EQ(ModeOf(fifo), 0666u);
  EXPECT_FALSE(ChangePermission(link.c_str()));
  EXPECT_EQ(ModeOf(victim), 0100u);
  EXPECT_FALSE(ChangePermission((Home() + "/missing").c_str()));
}
