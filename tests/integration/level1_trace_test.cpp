// The trace file of one complete session, compared line by line (banner
// included) with the time stamps masked.
#include <unistd.h>

#include <regex>

#include "api/SignatureTexts.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::ErrLine;
using l1test::MaskTime;
using l1test::MsgLine;
using pam_test::Reply;

namespace {

std::string ExecutablePath() {
  char buffer[4096];
  const ssize_t n = readlink("/proc/self/exe", buffer, sizeof buffer - 1);
  return n < 0 ? std::string() : std::string(buffer, static_cast<size_t>(n));
}

class TraceFileTest : public ::testing::Test {
 protected:
  void TearDown() override { CTracer::s_tracingEnabled = false; }
};

TEST_F(TraceFileTest, OneSessionLineByLine) {
  CTracer::s_tracingEnabled = true;
  ASSERT_EQ(mkdir((l1test::Home() + "/.RZPClient").c_str(), 0700), 0);
  pam_test::TestService service;
  service.Script(msg::kCreateConnection, {Reply::Return(0).UInt(L"AuthManagerHandle", 7)});
  service.Script(msg::kDestroyConnection, {Reply::Return(0xFFFAu)});

  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ConnectionHandle handle = 0;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"main", nullptr, nullptr, &handle), 0u);
  EXPECT_EQ(handle, 7u);
  EXPECT_EQ(PalvonAuthManager_GetVersion(handle, nullptr), 0xFFFBu);
  EXPECT_EQ(PalvonAuthManager_DestroyConnection(99), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  // Lines after the tracer stopped go nowhere near the file.
  CTracer::s_tracingEnabled = false;

  const auto files = l1test::TraceFiles();
  ASSERT_EQ(files.size(), 1u);
  const std::string pid = std::to_string(getpid());
  // AuthManagerSDK-<local time>-<process id>-<code address>.txt
  EXPECT_TRUE(std::regex_match(MaskTime(files[0]), std::regex("AuthManagerSDK-<T>-" + pid + "-0x[0-9a-f]+\\.txt")))
      << files[0];

  const std::string registration = service.Directory() + "/.AuthManagerListnerPipe";
  // The signature texts themselves are pinned by the signature text tests.
  const std::string version = sig::kGetServerSDKVersion;
  const std::string initialize = sig::l1::kInitialize;
  const std::string uninitialize = sig::l1::kUninitialize;
  const std::string create = sig::l1::kCreateConnection;
  const std::string getVersion = sig::l1::kGetVersion;
  const std::string destroy = sig::l1::kDestroyConnection;
  const std::vector<std::string> expected = {
      "===========================================",
      "  Authentication Manager Static SDK ",
      "",
      "Starting: <T>",
      "",
      "Module: " + ExecutablePath(),
      "===========================================",
      MsgLine("GUID: .AuthManager" + pid + " "),
      MsgLine("Successfully created Registration pipe: " + registration + " "),
      MsgLine("Successfully changed permission of Registration pipe: " + registration + " "),
      MsgLine("Client: Opened fifo : " + registration + " "),
      MsgLine("[+] " + version),
      MsgLine("[-] " + version + " : result = 0"),
      MsgLine("[+] " + initialize),
      MsgLine("[-] " + initialize + " : result = 0"),
      MsgLine("Initialize succeeded"),
      MsgLine(sig::api::kCreateConnection),
      MsgLine("[+] " + create),
      MsgLine("[-] " + create + " : result = 0"),
      MsgLine(sig::api::kGetVersion),
      MsgLine("[+] " + getVersion),
      ErrLine("GetVersion: failed because version is NULL!"),
      MsgLine(sig::api::kDestroyConnection),
      MsgLine("[+] " + destroy),
      ErrLine("Invalid connection handle 99."),
      MsgLine("[-] " + destroy + " : result = 65530"),
      MsgLine("Unintialising implementation object."),
      MsgLine("[+] " + uninitialize),
      MsgLine("[-] " + uninitialize + " : result = 0"),
      MsgLine("Uninitialize Ends"),
  };
  std::vector<std::string> actual;
  for (const std::string& line : l1test::ReadLines(l1test::LogsFolder() + "/" + files[0])) {
    actual.push_back(MaskTime(line));
  }
  ASSERT_EQ(actual.size(), expected.size());
  for (size_t i = 0; i < expected.size(); ++i) EXPECT_EQ(actual[i], expected[i]) << "line " << i + 1;

  // The file ends with a line feed: every line was written whole.
  const std::string bytes = pam_test::ReadFile(l1test::LogsFolder() + "/" + files[0]);
  ASSERT_FALSE(bytes.empty());
  EXPECT_EQ(bytes.back(), '\n');
}

}  // namespace
