// CSDKUtils: path helpers, the byte/wide conversions, the per-user folders and
// the process and time texts.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <regex>
#include <string>
#include <vector>

#include "support/TempHome.h"
#include "util/CSDKUtils.h"

namespace {

using PalvonAuthManagerSDK::CSDKUtils;

bool IsFolder(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode);
}

/** Sets (or, for null, unsets) an environment variable for one scope and restores it afterwards. */
class ScopedEnv {
 public:
  ScopedEnv(const char* name, const char* value) : name_(name), had_(std::getenv(name) != nullptr) {
    if (had_) old_ = std::getenv(name);
    value == nullptr ? unsetenv(name) : setenv(name, value, 1);
  }
  ~ScopedEnv() { had_ ? setenv(name_.c_str(), old_.c_str(), 1) : unsetenv(name_.c_str()); }
  ScopedEnv(const ScopedEnv&) = delete;
  ScopedEnv& operator=(const ScopedEnv&) = delete;

 private:
  std::string name_;
  bool had_;
  std::string old_;
};

TEST(GetFolderFromPath, KeepsEverythingUpToTheLastSlash) {
  EXPECT_EQ(CSDKUtils::GetFolderFromPath(L""), L"");
  EXPECT_EQ(CSDKUtils::GetFolderFromPath(L"c.txt"), L"");
  EXPECT_EQ(CSDKUtils::GetFolderFromPath(L"/a/b/c.txt"), L"/a/b/");
  EXPECT_EQ(CSDKUtils::GetFolderFromPath(L"/a/b/"), L"/a/b/");
  EXPECT_EQ(CSDKUtils::GetFolderFromPath(L"/"), L"/");
  EXPECT_EQ(CSDKUtils::GetFolderFromPath(L"rel/x"), L"rel/");
}

TEST(StringToUTF8, KeepsTheLowByteOfEachCharacter) {
  EXPECT_EQ(CSDKUtils::StringToUTF8(L"plain ASCII"), "plain ASCII");
  EXPECT_EQ(CSDKUtils::StringToUTF8(L"\u00e9"), "\xE9");
  EXPECT_EQ(CSDKUtils::StringToUTF8(L"\u20ac"), "\xAC");
  EXPECT_EQ(CSDKUtils::StringToUTF8(L"\U0001F601"), "\x01");
  // U+0100 narrows to a zero byte, which stays in the text.
  const std::string narrowed = CSDKUtils::StringToUTF8(L"a\u0100b");
  EXPECT_EQ(narrowed, std::string("a\0b", 3));
  EXPECT_EQ(CSDKUtils::StringToUTF8(L""), "");
}

TEST(WidenBytes, SignExtendsEachByteAndEveryByteSurvivesARoundTrip) {
  const std::wstring wide = CSDKUtils::WidenBytes("A\xC3\x7F\x80");
  EXPECT_EQ(std::vector<uint32_t>(wide.begin(), wide.end()),
            (std::vector<uint32_t>{0x41u, 0xFFFFFFC3u, 0x7Fu, 0xFFFFFF80u}));
  std::string all;
  for (int b = 0; b < 256; ++b) all.push_back(static_cast<char>(b));
  EXPECT_EQ(CSDKUtils::StringToUTF8(CSDKUtils::WidenBytes(all)), all);
}

TEST(LocalAppDataFolder, IsHome) {
  {
    ScopedEnv home("HOME", "/home/u");
    EXPECT_EQ(CSDKUtils::GetLocalAppDataFolder(), L"/home/u");
  }
  {
    ScopedEnv home("HOME", "");
    EXPECT_EQ(CSDKUtils::GetLocalAppDataFolder(), L"");
  }
  {
    ScopedEnv home("HOME", "/home/j\xC3\xBCrgen");
    const std::wstring folder = CSDKUtils::GetLocalAppDataFolder();
    ASSERT_EQ(folder.size(), 13u);
    EXPECT_GT(static_cast<uint32_t>(folder[7]), 0xFFFFFF7Fu);
    EXPECT_GT(static_cast<uint32_t>(folder[8]), 0xFFFFFF7Fu);
  }
}

TEST(LocalAppDataFolder, UnsetHomeThrows) {
  ScopedEnv home("HOME", nullptr);
  EXPECT_ANY_THROW(CSDKUtils::GetLocalAppDataFolder());
  EXPECT_ANY_THROW(CSDKUtils::GetAMLocalAppDataFolder());
}

TEST(AMLocalAppDataFolder, CreatesLogsOnlyInsideAnExistingDataFolder) {
  const std::string home = std::getenv("HOME");
  const std::string data = home + "/.RZPClient";
  const std::string logs = data + "/logs";
  pam_test::RemoveTree(data);

  EXPECT_EQ(CSDKUtils::GetAMLocalAppDataFolder(), CSDKUtils::WidenBytes(logs));
  EXPECT_FALSE(IsFolder(data)) << "the parent folder is never made";
  EXPECT_FALSE(IsFolder(logs));

  ASSERT_EQ(mkdir(data.c_str(), 0700), 0);
  EXPECT_EQ(CSDKUtils::GetAMLocalAppDataFolder(), CSDKUtils::WidenBytes(logs));
  EXPECT_TRUE(IsFolder(logs));
  // An existing folder is fine.
  EXPECT_EQ(CSDKUtils::GetAMLocalAppDataFolder(), CSDKUtils::WidenBytes(logs));
  EXPECT_TRUE(IsFolder(logs));
}

TEST(AMLocalAppDataFolder, LogsFolderModeIs0775LessUmask) {
  const std::string home = std::getenv("HOME");
  pam_test::RemoveTree(home + "/.RZPClient");
  ASSERT_EQ(mkdir((home + "/.RZPClient").c_str(), 0700), 0);
  const mode_t old = umask(0);
  CSDKUtils::GetAMLocalAppDataFolder();
  umask(old);
  struct stat st {};
  ASSERT_EQ(stat((home + "/.RZPClient/logs").c_str(), &st), 0);
  EXPECT_EQ(st.st_mode & 07777, 0775u);
}

TEST(ProcessPath, FullPathAndShortName) {
  char buffer[4096];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  ASSERT_GT(n, 0);
  const std::string path(buffer, static_cast<size_t>(n));

  EXPECT_EQ(CSDKUtils::GetProcessFullPath(), CSDKUtils::WidenBytes(path));
  EXPECT_EQ(CSDKUtils::GetProcessShortName(), L"pam_unit_utils");
}

TEST(CurrentTime, FormatAndZoneOffset) {
  const std::regex format(R"(\d{4}-\d{2}-\d{2}_\d{2}_\d{2}_\d{2}_[+-]\d{4})");
  const std::string local = CSDKUtils::StringToUTF8(CSDKUtils::GetCurrentTime());
  EXPECT_TRUE(std::regex_match(local, format)) << local;

  {
    ScopedEnv tz("TZ", "UTC0");
    tzset();
    const std::string utc = CSDKUtils::StringToUTF8(CSDKUtils::GetCurrentTime());
    EXPECT_TRUE(std::regex_match(utc, format)) << utc;
    EXPECT_EQ(utc.substr(utc.size() - 5), "+0000");
  }
  {
    ScopedEnv tz("TZ", "XST5");  // five hours west of UTC
    tzset();
    const std::string west = CSDKUtils::StringToUTF8(CSDKUtils::GetCurrentTime());
    EXPECT_EQ(west.substr(west.size() - 5), "-0500") << west;
  }
  tzset();
}

}  // namespace
