// CTracer: the trace switch, the trace file's name, banner and line format,
// the standard-output fallback, and the fixed entry/exit/null-argument lines.
// Every test runs in its own process with HOME pointing at a fresh folder.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <dirent.h>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <regex>
#include <string>
#include <vector>

#include "PalvonAuthManagerTracer.h"
#include "support/CaptureStdout.h"
#include "support/TempHome.h"
#include "util/CSDKUtils.h"
#include "util/FormatString.h"

namespace {

using pam_test::CaptureStdout;

using PalvonAuthManagerSDK::CSDKUtils;
using PalvonAuthManagerSDK::CTracer;

const char kRule[] = "===========================================\n";
const char kTime[] = R"(\d{4}-\d{2}-\d{2}_\d{2}_\d{2}_\d{2}_[+-]\d{4})";
// A line is: time, one blank, the five-character level prefix, " : ", text.
// So a message line has seven blanks before the colon: "<time>       : text".

std::string Home() { return std::getenv("HOME"); }
std::string LogsFolder() { return Home() + "/.RZPClient/logs"; }

bool Exists(const std::string& path) {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

std::vector<std::string> FilesIn(const std::string& folder) {
  std::vector<std::string> names;
  if (DIR* dir = opendir(folder.c_str())) {
    while (dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(dir);
  }
  return names;
}

std::string ExecutablePath() {
  char buffer[4096];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  return n < 0 ? std::string() : std::string(buffer, static_cast<size_t>(n));
}

/** `text` as a regular expression matching exactly itself. */
std::string Literal(const std::string& text) {
  static const std::regex special(R"([.^$|()\[\]{}*+?\\])");
  return std::regex_replace(text, special, R"(\$&)");
}

bool Matches(const std::string& text, const std::string& pattern) {
  return std::regex_match(text, std::regex(pattern));
}

class TracerTest : public ::testing::Test {
 protected:
  void SetUp() override { wasEnabled_ = CTracer::s_tracingEnabled; }
  void TearDown() override {
    CTracer::s_tracingEnabled = true;
    CTracer::Uninitialize();
    CTracer::s_tracingEnabled = wasEnabled_;
    // Tests share HOME when the binary is run by hand without ctest.
    pam_test::RemoveTree(Home() + "/.RZPClient");
  }

  /** Turns tracing on, opens the trace file in the per-user folder and returns the file's contents so far. */
  std::string StartTracing() {
    mkdir((Home() + "/.RZPClient").c_str(), 0700);
    CTracer::s_tracingEnabled = true;
    CTracer::Initialize(L"Authentication Manager Static SDK", L"AuthManagerSDK");
    const std::vector<std::string> files = FilesIn(LogsFolder());
    if (files.size() != 1) return std::string();
    tracePath_ = LogsFolder() + "/" + files[0];
    return pam_test::ReadFile(tracePath_);
  }

  /** The trace file's contents after the five banner lines. */
  std::string LinesAfterBanner() const {
    const std::string text = pam_test::ReadFile(tracePath_);
    const size_t second = text.find(kRule, 1);
    return second == std::string::npos ? std::string("<no banner>") : text.substr(second + sizeof kRule - 1);
  }

  std::string tracePath_;
  bool wasEnabled_ = false;
};

TEST_F(TracerTest, OffByDefaultAndSilent) {
  ASSERT_FALSE(CTracer::s_tracingEnabled);
  mkdir((Home() + "/.RZPClient").c_str(), 0700);

  const std::string printed = CaptureStdout([] {
    CTracer::Initialize(L"Authentication Manager Static SDK", L"AuthManagerSDK");
    CTracer::Msg(L"message %d", 1);
    CTracer::Err(L"error %d", 2);
    CTracer::TraceEntry("sig");
    CTracer::TraceMethodEntry("sig");
    CTracer::TraceMethodExit("sig", 5);
    CTracer::TraceNullArgument("op", "arg");
    CTracer::OutputDebugString(L"text");
    CTracer::Uninitialize();
  });
  EXPECT_EQ(printed, "");
  EXPECT_FALSE(Exists(LogsFolder())) << "tracing off does not even make the log folder";
  EXPECT_FALSE(CTracer::s_tracefile.is_open());
}

TEST_F(TracerTest, FileNameAndBanner) {
  const std::string banner = StartTracing();
  ASSERT_FALSE(tracePath_.empty()) << "exactly one trace file expected in " << LogsFolder();
  EXPECT_TRUE(CTracer::s_tracefile.is_open());

  const std::string name = tracePath_.substr(LogsFolder().size() + 1);
  char address[64];
  std::snprintf(address, sizeof address, "%p", reinterpret_cast<void*>(&CTracer::GetTraceFilePathForProcess));
  const std::string pid = std::to_string(getpid());
  EXPECT_TRUE(Matches(name, "AuthManagerSDK-" + std::string(kTime) + "-" + pid + "-" + Literal(address) + "\\.txt"))
      << name;
  EXPECT_TRUE(Matches(address, "0x[0-9a-f]+")) << address;

  const std::string expected = std::string(kRule) + "  Authentication Manager Static SDK \n\n" + "Starting: " + kTime +
                               "\n\n" + "Module: " + Literal(ExecutablePath()) + "\n" + kRule;
  EXPECT_TRUE(Matches(banner, expected)) << banner;
}

TEST_F(TracerTest, MessageErrorEntryExitNullArgumentAndOverlongLines) {
  StartTracing();
  ASSERT_FALSE(tracePath_.empty());
  CTracer::Msg(L"connection %u opened as %ls", 7u, L"main");
  CTracer::Err(L"failed with %d", -3);
  CTracer::Msg(nullptr);  // a null format gives an empty message
  CTracer::Err(nullptr);
  CTracer::Msg(L"caf\u00e9 \u20ac");  // narrowed to one byte per character
  CTracer::TraceEntry("AMResult PalvonAuthManager_LogOff(ConnectionHandle)");
  CTracer::TraceMethodEntry("virtual AMResult Impl::LogOff(ConnectionHandle)");
  CTracer::TraceMethodExit("virtual AMResult Impl::LogOff(ConnectionHandle)", 5);
  CTracer::TraceNullArgument("CreateConnection", "outHandle");
  const std::wstring text(1100, L'x');
  CTracer::Msg(L"%ls", text.c_str());
  CTracer::Msg(L"next");

  const std::string t = kTime;
  const std::string expected = t + "       : connection 7 opened as main\n" +                              //
                               t + " Err   : failed with -3\n" +                                           //
                               t + "       : \n" + t + " Err   : \n" +                                     //
                               t + "       : caf\xe9 \xac\n" +                                             //
                               t + "       : AMResult PalvonAuthManager_LogOff\\(ConnectionHandle\\)\n" +  //
                               t + "       : \\[\\+\\] virtual AMResult Impl::LogOff\\(ConnectionHandle\\)\n" + t +
                               "       : \\[-\\] virtual AMResult Impl::LogOff\\(ConnectionHandle\\) : result = 5\n" +
                               t + " Err   : CreateConnection: failed because outHandle is NULL!\n" +
                               // An overlong message is cut to 1,023 characters; the line built around it is
                               // cut to the same limit, so it loses the tail of the message and its line feed.
                               "(" + t + "       : x+)" + t + "       : next\n";
  const std::string lines = LinesAfterBanner();
  std::smatch match;
  ASSERT_TRUE(std::regex_match(lines, match, std::regex(expected))) << lines;
  EXPECT_EQ(match.length(1), 1023);
}

TEST_F(TracerTest, UninitializeClosesAndLinesGoToStdout) {
  StartTracing();
  ASSERT_FALSE(tracePath_.empty());
  CTracer::Uninitialize();
  EXPECT_FALSE(CTracer::s_tracefile.is_open());
  const std::string before = pam_test::ReadFile(tracePath_);

  const std::string printed = CaptureStdout([] { CTracer::Msg(L"after close"); });
  EXPECT_TRUE(Matches(printed, std::string(kTime) + "       : after close\n\n")) << printed;
  EXPECT_EQ(pam_test::ReadFile(tracePath_), before);
}

TEST_F(TracerTest, SwitchingOffStopsWritingAndKeepsFileOpen) {
  StartTracing();
  ASSERT_FALSE(tracePath_.empty());
  const std::string before = pam_test::ReadFile(tracePath_);
  CTracer::s_tracingEnabled = false;

  const std::string printed = CaptureStdout([] {
    CTracer::Msg(L"ignored");
    CTracer::Uninitialize();
  });
  EXPECT_EQ(printed, "");
  EXPECT_TRUE(CTracer::s_tracefile.is_open()) << "Uninitialize does nothing while tracing is off";
  EXPECT_EQ(pam_test::ReadFile(tracePath_), before);
}

TEST_F(TracerTest, SameNameIsAppendedTo) {
  mkdir((Home() + "/.RZPClient").c_str(), 0700);
  CTracer::s_tracingEnabled = true;
  // The name holds the time to the second; retry if the clock ticks over
  // between computing the name and opening the file.
  for (int attempt = 0; attempt < 5; ++attempt) {
    const std::string path = CSDKUtils::StringToUTF8(CTracer::GetTraceFilePathForProcess(L"AuthManagerSDK"));
    {
      FILE* f = std::fopen(path.c_str(), "w");
      ASSERT_NE(f, nullptr) << path;
      std::fputs("earlier run\n", f);
      std::fclose(f);
    }
    CTracer::Initialize(L"Authentication Manager Static SDK", L"AuthManagerSDK");
    const std::string text = pam_test::ReadFile(path);
    if (text == "earlier run\n") {  // a new second: another file was opened
      CTracer::Uninitialize();
      continue;
    }
    EXPECT_EQ(text.rfind("earlier run\n", 0), 0u);
    EXPECT_EQ(text.find(kRule), std::string("earlier run\n").size());
    return;
  }
  FAIL() << "the clock kept ticking over";
}

class TracerFallbackTest : public TracerTest {
 protected:
  void ExpectStdoutFallback() {
    CTracer::s_tracingEnabled = true;
    const std::string printed = CaptureStdout([] {
      CTracer::Initialize(L"Authentication Manager Static SDK", L"AuthManagerSDK");
      CTracer::Msg(L"first %d", 1);
      CTracer::Err(L"second");
    });
    EXPECT_FALSE(CTracer::s_tracefile.is_open());
    const std::string t = kTime;
    EXPECT_TRUE(Matches(printed, t + "       : first 1\n\n" + t + " Err   : second\n\n")) << printed;
  }
};

TEST_F(TracerFallbackTest, NoDataFolderLogsNotAFolderOrReadOnly) {
  ExpectStdoutFallback();
  EXPECT_FALSE(Exists(Home() + "/.RZPClient")) << "only the last folder component is ever made";
  CTracer::Uninitialize();

  mkdir((Home() + "/.RZPClient").c_str(), 0700);
  FILE* f = std::fopen(LogsFolder().c_str(), "w");
  ASSERT_NE(f, nullptr);
  std::fclose(f);
  ExpectStdoutFallback();
  CTracer::Uninitialize();

  if (geteuid() == 0) return;  // permissions do not bind the superuser
  unlink(LogsFolder().c_str());
  mkdir(LogsFolder().c_str(), 0500);
  ExpectStdoutFallback();
  EXPECT_TRUE(FilesIn(LogsFolder()).empty());
}

}  // namespace
