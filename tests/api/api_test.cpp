// The library's outward face: the exported symbols and the level-1 examples
// run against the test service. (The trace texts of every export are checked
// by the transcripts of tests/integration.)
#include <gtest/gtest.h>

#include <cstdio>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "protocol/Operations.h"
#include "support/ChildProcess.h"
#include "support/TempHome.h"
#include "support/TestService.h"

namespace {

using namespace PalvonAuthManagerSDK;
using pam_test::Reply;

// Dynamic symbols (objdump -T), SONAME and version nodes (objdump -p) against
// data/exported_symbols.txt: exactly the public interface is exported.
TEST(ExportedSymbols, ExactlyThePublicInterfaceUnderItsVersionNodeAndSoname) {
  std::string text;
  FILE* pipe = popen(PAM_OBJDUMP " -T -p '" PAM_SHARED_LIBRARY "'", "r");
  ASSERT_NE(pipe, nullptr);
  for (int c; (c = std::fgetc(pipe)) != EOF;) text += static_cast<char>(c);
  pclose(pipe);
  // A symbol: address, seven flags (binding first, kind last), section, size,
  // version, name; the version node shows as an absolute symbol of its own
  // name. The base version definition (flags 0x01) names the file itself.
  const std::regex symbol(R"(^[0-9a-f]+ (.).....(.) (\S+)\s+[0-9a-f]+\s+(\S+)\s+(\S+)$)");
  const std::regex soname(R"(^\s+SONAME\s+(\S+)$)"), node(R"(^\d+ 0x00 0x[0-9a-f]+ (\S+)$)");
  std::set<std::string> rows;
  std::istringstream lines(text);
  std::smatch m;
  for (std::string line; std::getline(lines, line);) {
    if (std::regex_match(line, m, symbol) && m[3] != "*UND*" && m[1] != "l" && !(m[3] == "*ABS*" && m[4] == m[5])) {
      rows.insert(m[5].str() + " " + m[1].str() + m[2].str() + " " + m[4].str());
    }
    if (std::regex_match(line, m, soname)) rows.insert("SONAME " + m[1].str());
    if (std::regex_match(line, m, node)) rows.insert("VERSION " + m[1].str());
  }
  std::string actual;
  for (const std::string& row : rows) actual += row + "\n";
  EXPECT_EQ(actual, pam_test::ReadFile(PAM_API_DATA "/exported_symbols.txt"));
}

// The level-1 examples as child processes, once through and once with a failing call.
class ExamplesTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ExamplesTest, WalkThroughLevelOneAndReportAFailedCall) {
  using namespace msg;
  for (const bool fail : {false, true}) {
    pam_test::TestService service;  // its default answers the version query with 2
    service.Script(kCreateConnection, {Reply::Return(0).UInt(L"AuthManagerHandle", 42)});
    service.Script(kGetVersion, {Reply::Return(0).Wide(L"version", L"7.3.0")});
    service.Script(kDetermineServerType, {Reply::Return(0)
                                              .UInt(L"serverType", 2)
                                              .Wide(L"friendlyName", L"Example Gateway")
                                              .Wide(L"logonPointUrl", L"https://gw.example.com/logon")
                                              .UInt(L"amGatewayEdition", 1)
                                              .UInt(L"amGatewayAuthType", 3)});
    service.Script(kGenerateTrampolineUrl, {Reply::Return(0)
                                                .Wide(L"trampolineUrl", L"https://gw.example.com/trampoline?id=1")
                                                .UInt(L"amAuthenticationResult", 5)});
    service.Script(kGetLogonStatus, {fail ? Reply::Return(0xFFFAu) : Reply::Return(0).UInt(L"logonStatus", 1)});
    const pam_test::ChildResult outcome = pam_test::RunChild({GetParam()});
    EXPECT_EQ(outcome.exitCode, fail ? 1 : 0);
    EXPECT_EQ(outcome.err, fail ? "GetLogonStatus failed with result 65530 (0xFFFA)\n" : "");
    EXPECT_EQ(outcome.out, std::string("API level: 2\nconnection: 42\nservice version: 7.3.0\nserver type: 2\n") +
                               "gateway: Example Gateway at https://gw.example.com/logon (edition 1, authentication "
                               "type 3)\ntrampoline URL: https://gw.example.com/trampoline?id=1 (authentication "
                               "result 5)\n" +
                               (fail ? "" : "logon status: 1\n"));
    // Every call uses the connection handed out; it is closed after a failure too.
    std::vector<uint32_t> types, handles;
    for (const pam_test::Request& request : service.Requests()) {
      unsigned int handle = 0;
      request.message.GetUInt(L"AuthManagerHandle", &handle);
      types.push_back(request.type), handles.push_back(handle);
    }
    EXPECT_EQ(types, (std::vector<uint32_t>{kGetServerSDKVersion, kInitialize, kCreateConnection, kGetVersion,
                                            kDetermineServerType, kGenerateTrampolineUrl, kGetLogonStatus,
                                            kDestroyConnection, kUninitialize}));
    EXPECT_EQ(handles, (std::vector<uint32_t>{0, 0, 0, 42, 42, 42, 42, 42, 0}));
  }
}

INSTANTIATE_TEST_SUITE_P(Level1, ExamplesTest, ::testing::Values(PAM_LEVEL1_EXAMPLE_C, PAM_LEVEL1_EXAMPLE_CPP),
                         [](const auto& info) { return std::string(info.index == 0 ? "C" : "Cpp"); });

// The README's C and C++ examples, built from the README's own text.
class ReadmeExampleTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ReadmeExampleTest, PrintsTheServiceVersion) {
  pam_test::TestService service;
  service.Script(msg::kCreateConnection, {Reply::Return(0).UInt(L"AuthManagerHandle", 42)});
  service.Script(msg::kGetVersion, {Reply::Return(0).Wide(L"version", L"7.3.0")});
  const pam_test::ChildResult outcome = pam_test::RunChild({GetParam()});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(outcome.out, "service version: 7.3.0\n");
}

INSTANTIATE_TEST_SUITE_P(Readme, ReadmeExampleTest, ::testing::Values(PAM_README_EXAMPLE_C, PAM_README_EXAMPLE_CPP),
                         [](const auto& info) { return std::string(info.index == 0 ? "C" : "Cpp"); });

}  // namespace
