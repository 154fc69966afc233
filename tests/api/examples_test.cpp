// The level-1 examples, run as child processes (same HOME) against a test
// service on a thread of this process.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ChildProcess.h"
#include "message/MessageTypes.h"
#include "support/TestService.h"

namespace {

using PalvonAuthManagerSDK::msg::kCreateConnection;
using PalvonAuthManagerSDK::msg::kDestroyConnection;
using PalvonAuthManagerSDK::msg::kDetermineServerType;
using PalvonAuthManagerSDK::msg::kGenerateTrampolineUrl;
using PalvonAuthManagerSDK::msg::kGetLogonStatus;
using PalvonAuthManagerSDK::msg::kGetServerSDKVersion;
using PalvonAuthManagerSDK::msg::kGetVersion;
using PalvonAuthManagerSDK::msg::kInitialize;
using PalvonAuthManagerSDK::msg::kUninitialize;
using pam_test::Reply;
using pam_test::Request;

// Plausible answers for everything the examples ask.
Reply Answer(const Request& request) {
  switch (request.type) {
    case kGetServerSDKVersion:
      return Reply::Return(0).UInt(L"version", 2);
    case kCreateConnection:
      return Reply::Return(0).UInt(L"AuthManagerHandle", 42);
    case kGetVersion:
      return Reply::Return(0).Wide(L"version", L"7.3.0");
    case kDetermineServerType:
      return Reply::Return(0)
          .UInt(L"serverType", 2)
          .Wide(L"friendlyName", L"Example Gateway")
          .Wide(L"logonPointUrl", L"https://gw.example.com/logon")
          .UInt(L"amGatewayEdition", 1)
          .UInt(L"amGatewayAuthType", 3);
    case kGenerateTrampolineUrl:
      return Reply::Return(0)
          .Wide(L"trampolineUrl", L"https://gw.example.com/trampoline?id=1")
          .UInt(L"amAuthenticationResult", 5);
    case kGetLogonStatus:
      return Reply::Return(0).UInt(L"logonStatus", 1);
    default:
      return Reply::Return(0);
  }
}

// The types of the requests the service received (all from the example).
std::vector<uint32_t> TypesOf(const std::vector<Request>& requests) {
  std::vector<uint32_t> types;
  for (const Request& request : requests) types.push_back(request.type);
  return types;
}

class ExamplesTest : public ::testing::TestWithParam<const char*> {};

TEST_P(ExamplesTest, WalksThroughLevelOneAndExitsCleanly) {
  pam_test::TestService service;
  service.SetHandler(&Answer);
  const pam_test::ChildResult outcome = pam_test::RunChild({GetParam()});
  EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
  EXPECT_EQ(outcome.err, "");
  for (const char* line :
       {"API level: 2\n", "connection: 42\n", "service version: 7.3.0\n", "server type: 2\n",
        "gateway: Example Gateway at https://gw.example.com/logon (edition 1, authentication type 3)\n",
        "trampoline URL: https://gw.example.com/trampoline?id=1 (authentication result 5)\n", "logon status: 1\n"}) {
    EXPECT_NE(outcome.out.find(line), std::string::npos) << "missing: " << line << "in:\n" << outcome.out;
  }

  const auto requests = service.Requests();
  EXPECT_EQ(TypesOf(requests), (std::vector<uint32_t>{kGetServerSDKVersion, kInitialize, kCreateConnection, kGetVersion,
                                                      kDetermineServerType, kGenerateTrampolineUrl, kGetLogonStatus,
                                                      kDestroyConnection, kUninitialize}));
  // The calls use the connection the service handed out.
  for (const Request& request : requests) {
    if (request.type == kGetVersion || request.type == kDestroyConnection) {
      unsigned int handle = 0;
      EXPECT_TRUE(request.message.GetUInt(L"AuthManagerHandle", &handle));
      EXPECT_EQ(handle, 42u);
    }
  }
}

TEST_P(ExamplesTest, ReportsAFailedCallAndExitsWithOne) {
  pam_test::TestService service;
  service.SetHandler(&Answer);
  service.Script(kGetLogonStatus, {Reply::Return(0xFFFAu)});
  const pam_test::ChildResult outcome = pam_test::RunChild({GetParam()});
  EXPECT_EQ(outcome.exitCode, 1);
  EXPECT_NE(outcome.err.find("GetLogonStatus failed with result 65530 (0xFFFA)"), std::string::npos) << outcome.err;
  // The connection is still closed and the library shut down.
  const std::vector<uint32_t> types = TypesOf(service.Requests());
  ASSERT_GE(types.size(), 2u);
  EXPECT_EQ(std::vector<uint32_t>(types.end() - 2, types.end()),
            (std::vector<uint32_t>{kDestroyConnection, kUninitialize}));
}

INSTANTIATE_TEST_SUITE_P(Level1, ExamplesTest, ::testing::Values(PAM_LEVEL1_EXAMPLE_C, PAM_LEVEL1_EXAMPLE_CPP),
                         [](const ::testing::TestParamInfo<const char*>& info) {
                           return std::string(info.index == 0 ? "C" : "Cpp");
                         });

}  // namespace
