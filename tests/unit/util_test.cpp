// The tracer (switch, trace file and banner, line formats, standard-output
// fallback), the utilities and wide formatting. Trace output is compared with
// data/trace_*.txt once times and the program's path are replaced.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>

#include "PalvonAuthManagerTracer.h"
#include "support/CaptureStdout.h"
#include "support/TempHome.h"
#include "util/CSDKUtils.h"
#include "util/FormatString.h"

namespace {

using PalvonAuthManagerSDK::CSDKUtils;
using PalvonAuthManagerSDK::CTracer;
using PalvonAuthManagerSDK::FormatString;
using pam_test::CaptureStdout;
using pam_test::ReadFile;
namespace fs = std::filesystem;

const std::string kExe = fs::read_symlink("/proc/self/exe");
const std::regex kTime(R"(\d{4}-\d{2}-\d{2}_\d{2}_\d{2}_\d{2}_[+-]\d{4})");

std::string Normal(std::string text) {
  text = std::regex_replace(text, kTime, "<time>");
  for (size_t at; (at = text.find(kExe)) != std::string::npos;) text.replace(at, kExe.size(), "<exe>");
  return text;
}

void Start() { CTracer::Initialize(L"Authentication Manager Static SDK", L"AuthManagerSDK"); }

void Script() {
  CTracer::Msg(L"connection %u opened as %ls", 7u, L"main");
  CTracer::Err(L"failed with %d", -3);
  CTracer::Msg(nullptr);
  CTracer::Err(nullptr);
  CTracer::Msg(L"caf\u00e9 \u20ac");
  CTracer::TraceEntry("AMResult PalvonAuthManager_LogOff(ConnectionHandle)");
  CTracer::TraceMethodEntry("virtual AMResult Impl::LogOff(ConnectionHandle)");
  CTracer::TraceMethodExit("virtual AMResult Impl::LogOff(ConnectionHandle)", 5);
  CTracer::TraceNullArgument("CreateConnection", "outHandle");
  CTracer::Msg(L"%ls", std::wstring(1100, L'x').c_str());
  CTracer::Msg(L"next");
}

std::string Session() {
  return Normal(CaptureStdout([] { Start(), Script(), CTracer::OutputDebugString(L"text"); }));
}

TEST(Tracer, SwitchFallbackTraceFileAndLineFormats) {
  const std::string data = std::string(std::getenv("HOME")) + "/.RZPClient", logs = data + "/logs";
  pam_test::RemoveTree(data);
  ASSERT_FALSE(CTracer::s_tracingEnabled);  // off by default: silent, and no folder is made
  EXPECT_EQ(Session() + CaptureStdout(CTracer::Uninitialize), "");
  EXPECT_FALSE(fs::exists(logs) || CTracer::s_tracefile.is_open());

  // Without the data folder, or with "logs" a file, lines go to standard output.
  CTracer::s_tracingEnabled = true;
  const std::string printed = Session();
  EXPECT_EQ(printed, ReadFile(PAM_UNIT_DATA "/trace_stdout.txt"));
  EXPECT_FALSE(fs::exists(data)) << "only the last folder component is ever made";
  EXPECT_EQ(CSDKUtils::GetAMLocalAppDataFolder(), CSDKUtils::WidenBytes(logs));
  fs::create_directory(data);
  std::ofstream(logs) << "";
  EXPECT_EQ(Session(), printed);
  EXPECT_FALSE(CTracer::s_tracefile.is_open());
  fs::remove(logs);

  const mode_t mask = umask(0);
  Start();
  umask(mask);
  EXPECT_EQ(fs::status(logs).permissions(), fs::perms(0775));
  EXPECT_EQ(CaptureStdout(Script), "");
  ASSERT_EQ(std::distance(fs::directory_iterator(logs), fs::directory_iterator()), 1);
  const std::string file = fs::directory_iterator(logs)->path(), trace = ReadFile(PAM_UNIT_DATA "/trace_file.txt");
  EXPECT_EQ(Normal(file).rfind(logs + "/AuthManagerSDK-<time>-" + std::to_string(getpid()) + "-0x", 0), 0u);
  EXPECT_EQ(Normal(ReadFile(file)), trace);

  // Switched off, nothing is written and Uninitialize leaves the file open,
  // so switched on again, Initialize starts no second file or banner; once
  // closed, lines go to standard output.
  CTracer::s_tracingEnabled = false;
  CTracer::Msg(L"ignored");
  CTracer::Uninitialize();
  EXPECT_TRUE(CTracer::s_tracefile.is_open());
  CTracer::s_tracingEnabled = true;
  Start();
  EXPECT_EQ(std::distance(fs::directory_iterator(logs), fs::directory_iterator()), 1);
  CTracer::Uninitialize();
  EXPECT_FALSE(CTracer::s_tracefile.is_open());
  EXPECT_EQ(Normal(CaptureStdout([] { CTracer::Msg(L"after close"); })), "<time>       : after close\n\n");
  EXPECT_EQ(Normal(ReadFile(file)), trace);

  // A file of the same name (same second) is appended to.
  const auto path = [] { return CSDKUtils::StringToUTF8(CTracer::GetTraceFilePathForProcess(L"AuthManagerSDK")); };
  std::string same;
  do {
    std::ofstream(same = path()) << "earlier run\n";
    Start();
  } while (path() != same);
  EXPECT_EQ(ReadFile(same).rfind("earlier run\n===========================================\n", 0), 0u);
  CTracer::Uninitialize();
  CTracer::s_tracingEnabled = false;
}

TEST(Utils, TextsPathsTimeAndFormatting) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  EXPECT_EQ(CSDKUtils::StringToUTF8(CSDKUtils::WidenBytes(all)), all);
  // Each character keeps its low byte.
  EXPECT_EQ(CSDKUtils::StringToUTF8(L"\u00e9\u20ac\U0001F601a\u0100b"), std::string({'\xE9', '\xAC', 1, 'a', 0, 'b'}));

  const std::string home = std::getenv("HOME");
  const auto folderFor = [](const char* value) { return setenv("HOME", value, 1), CSDKUtils::GetLocalAppDataFolder(); };
  const std::wstring text(1100, L'b');
  const std::pair<std::wstring, std::wstring> wide[] = {
      {CSDKUtils::WidenBytes("A\xC3\x7F\x80"), {L'A', static_cast<wchar_t>(-61), 0x7F, static_cast<wchar_t>(-128)}},
      {folderFor("/home/j\xC3\xBCrgen"), L"/home/j" + std::wstring{static_cast<wchar_t>(-61), -68} + L"rgen"},
      {folderFor(""), L""},
      {CSDKUtils::GetFolderFromPath(L""), L""},
      {CSDKUtils::GetFolderFromPath(L"c.txt"), L""},
      {CSDKUtils::GetFolderFromPath(L"/a/b/c.txt"), L"/a/b/"},
      {CSDKUtils::GetFolderFromPath(L"rel/x"), L"rel/"},
      {CSDKUtils::GetProcessFullPath(), CSDKUtils::WidenBytes(kExe)},
      {CSDKUtils::GetProcessShortName(), L"pam_unit"},
      {FormatString(L"%ls|%s|%u|%d", L"wide", "narrow", 4294967295u, -7), L"wide|narrow|4294967295|-7"},
      {FormatString(L"%ls", L"\u00e9\u20ac\U0001F600"), L"\u00e9\u20ac\U0001F600"},
      {FormatString(nullptr), L""},
      {FormatString(L"%ls", text.substr(0, 1023).c_str()), text.substr(0, 1023)},
      {FormatString(L"%ls", text.substr(0, 1024).c_str()), text.substr(0, 1023)},
      {FormatString(L"ab%ls", text.c_str()), L"ab" + text.substr(0, 1021)},
  };
  for (const auto& [actual, expected] : wide) EXPECT_EQ(actual, expected);
  unsetenv("HOME");
  EXPECT_ANY_THROW(CSDKUtils::GetLocalAppDataFolder());
  EXPECT_ANY_THROW(CSDKUtils::GetAMLocalAppDataFolder());
  setenv("HOME", home.c_str(), 1);

  for (const char* zone : {"UTC0+0000", "XST5-0500"}) {
    setenv("TZ", std::string(zone, 4).c_str(), 1);
    tzset();
    const std::string time = CSDKUtils::StringToUTF8(CSDKUtils::GetCurrentTime());
    EXPECT_TRUE(std::regex_match(time, kTime) && time.substr(time.size() - 5) == zone + 4) << time;
  }
}

}  // namespace
