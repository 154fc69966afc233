// Library start-up and shutdown against the scriptable test service.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>

#include "PalvonAuthManager.h"
#include "client/CClientCommLib.h"
#include "message/MessageTypes.h"
#include "support/TestService.h"

using namespace PalvonAuthManagerSDK;
using pam_test::Reply;
using pam_test::TestService;

namespace {

bool Exists(const std::string& path) {
  struct stat status {};
  return stat(path.c_str(), &status) == 0;
}

}  // namespace

TEST(Lifecycle, InitializeNegotiatesLevelTwoAndUninitializeRemovesPipes) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_TRUE(IsInitialised());
  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  EXPECT_EQ(level, 2u);

  const auto requests = service.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].type, msg::kGetServerSDKVersion);
  EXPECT_EQ(requests[0].raw.size(), 148u);
  EXPECT_EQ(requests[1].type, msg::kInitialize);

  const std::string base = service.Directory() + "/.AuthManager" + std::to_string(getpid());
  EXPECT_TRUE(Exists(base + "Read"));
  EXPECT_TRUE(Exists(base + "Write"));

  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_FALSE(IsInitialised());
  ASSERT_EQ(service.RequestCount(), 3u);
  EXPECT_EQ(service.Requests()[2].type, msg::kUninitialize);
  EXPECT_FALSE(Exists(base + "Read"));
  EXPECT_FALSE(Exists(base + "Write"));
  EXPECT_FALSE(g_ClientCommPtr);
}

TEST(Lifecycle, BusyTwiceThenSuccessRepeatsTheSameRequest) {
  TestService service;
  service.Script(msg::kInitialize, {Reply::Busy(), Reply::Busy(), Reply::Return(0)});
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  const auto inits = service.RequestsOfType(msg::kInitialize);
  ASSERT_EQ(inits.size(), 3u);
  EXPECT_EQ(inits[0].raw, inits[2].raw);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}
