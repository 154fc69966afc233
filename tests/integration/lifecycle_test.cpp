// Library start-up and shutdown against the scriptable test service.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <string>
#include <thread>
#include <vector>

#include "PalvonAuthManager.h"
#include "client/CClientCommLib.h"
#include "client/ServerVersion.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/PipeDirectory.h"
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

namespace {

std::string ClientPipeBase() {
  return CLinuxIPC::getUserTmpDir() + "/" + ClientChannelName(CurrentProcessId());
}

std::vector<uint32_t> Types(const TestService& service) {
  std::vector<uint32_t> types;
  for (const auto& request : service.Requests()) types.push_back(request.type);
  return types;
}

Reply Silent() {
  Reply reply = Reply::Empty();
  reply.silent = true;
  return reply;
}

}  // namespace

// --- nesting -------------------------------------------------------------------

TEST(Lifecycle, NestedCallsOnlyCountAndTheLastUninitializeTearsDown) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  // The second call talks to nobody.
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{msg::kGetServerSDKVersion, msg::kInitialize}));

  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_TRUE(IsInitialised());
  EXPECT_TRUE(g_ClientCommPtr);
  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  EXPECT_EQ(service.RequestCount(), 2u);

  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_FALSE(IsInitialised());
  EXPECT_FALSE(g_ClientCommPtr);
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{msg::kGetServerSDKVersion, msg::kInitialize, msg::kUninitialize}));

  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0xFFFDu);
  EXPECT_EQ(service.RequestCount(), 3u);
}

TEST(Lifecycle, UninitializeBeforeAnyInitializeIsNotInitialised) {
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0xFFFDu);
  EXPECT_FALSE(IsInitialised());
}

TEST(Lifecycle, ASecondFullCycleBuildsEverythingAgain) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_TRUE(IsInitialised());
  EXPECT_TRUE(Exists(ClientPipeBase() + "Read"));
  EXPECT_EQ(service.Registrations().size(), 2u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{msg::kGetServerSDKVersion, msg::kInitialize, msg::kUninitialize,
                                                   msg::kGetServerSDKVersion, msg::kInitialize, msg::kUninitialize}));
}

// --- what the service answers to Initialize -----------------------------------------

TEST(Lifecycle, AlreadyInitialisedAnswerCountsAsSuccess) {
  TestService service;
  service.Script(msg::kInitialize, {Reply::Return(0xFFFE)});
  EXPECT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_TRUE(IsInitialised());
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Lifecycle, RefusedInitializeIsUndoneAndItsCodeReturned) {
  TestService service;
  service.Script(msg::kInitialize, {Reply::Return(9)});
  EXPECT_EQ(PalvonAuthManager_Initialize(), 9u);
  EXPECT_FALSE(IsInitialised());
  // The service is told to forget the client, and the channel goes with it.
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{msg::kGetServerSDKVersion, msg::kInitialize, msg::kUninitialize}));
  EXPECT_FALSE(g_ClientCommPtr);
  EXPECT_FALSE(Exists(ClientPipeBase() + "Read"));
  EXPECT_FALSE(Exists(ClientPipeBase() + "Write"));
}

TEST(Lifecycle, FailedFirstInitialiseLeavesAStickyUnusableState) {
  TestService service;
  service.Script(msg::kInitialize, {Reply::Return(9)});
  ASSERT_EQ(PalvonAuthManager_Initialize(), 9u);
  const size_t requests = service.RequestCount();

  // Later calls only count, report success, and the library stays unusable.
  EXPECT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_FALSE(IsInitialised());
  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0xFFFDu);
  AMChar* version = nullptr;
  EXPECT_EQ(PalvonAuthManager_GetVersion(1, &version), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_ClearAllCredentials(1), 0xFFFDu);
  AMHttpHandle http = 0;
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(1, &http), 0xFFFDu);
  EXPECT_EQ(service.RequestCount(), requests);

  // Two initialise calls counted: the first Uninitialize only counts down,
  // the second finds no object and succeeds without a message.
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_EQ(service.RequestCount(), requests);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0xFFFDu);
}

// --- API levels from the service's version --------------------------------------------

TEST(Lifecycle, VersionOneGivesLevelOneWithoutLevelTwoOperations) {
  TestService service;
  service.SetVersion(1);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  EXPECT_EQ(level, 1u);
  const size_t requests = service.RequestCount();
  AMHttpHandle http = 77;
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(1, &http), 0xFFF5u);
  EXPECT_EQ(PalvonAuthManager_SetRequestTimeoutSeconds(1, 5), 0xFFF5u);
  EXPECT_EQ(http, 77u);
  EXPECT_EQ(service.RequestCount(), requests);
  // Level-1 operations work.
  EXPECT_EQ(PalvonAuthManager_ClearAllCredentials(1), 0u);
  EXPECT_EQ(service.RequestCount(), requests + 1);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Lifecycle, VersionAboveTwoIsCappedAtLevelTwo) {
  TestService service;
  service.SetVersion(5);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  EXPECT_EQ(level, 2u);
  service.Script(msg::kCreateAMHttpRequest, {Reply::Return(0).UInt(L"httpHandle", 31)});
  AMHttpHandle http = 0;
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(1, &http), 0u);
  EXPECT_EQ(service.RequestsOfType(msg::kCreateAMHttpRequest).size(), 1u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Lifecycle, VersionZeroFailsWithNotInitialisedAndMakesNoObjects) {
  TestService service;
  service.SetVersion(0);
  EXPECT_EQ(PalvonAuthManager_Initialize(), 0xFFFDu);
  EXPECT_FALSE(IsInitialised());
  AMUint level = 9;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0xFFFDu);
  EXPECT_EQ(level, 9u);
  // Nothing to send Initialize through.
  EXPECT_EQ(Types(service), std::vector<uint32_t>{msg::kGetServerSDKVersion});
  // The channel made for the version query is released by Uninitialize.
  EXPECT_TRUE(g_ClientCommPtr);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_FALSE(g_ClientCommPtr);
  EXPECT_FALSE(Exists(ClientPipeBase() + "Read"));
  EXPECT_EQ(Types(service), std::vector<uint32_t>{msg::kGetServerSDKVersion});
}

TEST(Lifecycle, FailedVersionQueryFailsInitializeWithItsCode) {
  TestService service;
  service.Script(msg::kGetServerSDKVersion, {Reply::Return(7)});
  EXPECT_EQ(PalvonAuthManager_Initialize(), 7u);
  EXPECT_FALSE(IsInitialised());
  EXPECT_EQ(Types(service), std::vector<uint32_t>{msg::kGetServerSDKVersion});
  EXPECT_TRUE(g_ClientCommPtr);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_FALSE(g_ClientCommPtr);
}

TEST(Lifecycle, BusyVersionQueryIsRepeatedUntilAnswered) {
  TestService service;
  service.Script(msg::kGetServerSDKVersion,
                 {Reply::Busy(), Reply::Busy(), Reply::Return(0).UInt(L"version", 1)});
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(200));
  const auto queries = service.RequestsOfType(msg::kGetServerSDKVersion);
  ASSERT_EQ(queries.size(), 3u);
  EXPECT_EQ(queries[0].raw, queries[2].raw);
  EXPECT_GE(queries[1].receivedAt - queries[0].receivedAt, std::chrono::milliseconds(100));
  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  EXPECT_EQ(level, 1u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

// --- Uninitialize -------------------------------------------------------------------

TEST(Lifecycle, RefusedUninitializeStillTearsDown) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  service.Script(msg::kUninitialize, {Reply::Return(12)});
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 12u);
  EXPECT_FALSE(IsInitialised());
  EXPECT_FALSE(g_ClientCommPtr);
  EXPECT_FALSE(Exists(ClientPipeBase() + "Read"));
  EXPECT_FALSE(Exists(ClientPipeBase() + "Write"));
}

// --- a read that fails -----------------------------------------------------------------

TEST(Lifecycle, FailedReadHandsBackTheRequestsOwnValues) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  const size_t before = service.RequestCount();
  service.Script(msg::kGetVersion, {Silent()});
  // Closing the channel while the call waits for the silent service ends
  // the wait with a pipe error.
  std::thread closer([&] {
    if (service.WaitForRequests(before + 1)) g_ClientCommPtr->Close();
  });
  LinuxDictionary request(MessageCommon(msg::kGetVersion, CurrentProcessId()));
  request.SetUInt(L"AuthManagerHandle", 5);
  request.SetWideString(L"note", L"mine");
  const LinuxDictionary reply = g_ClientCommPtr->MakeCall(request);
  closer.join();

  unsigned int value = 0;
  EXPECT_FALSE(reply.GetUInt(L"return", &value));
  EXPECT_TRUE(reply.GetUInt(L"AuthManagerHandle", &value));
  EXPECT_EQ(value, 5u);
  ASSERT_NE(reply.GetString(L"note"), nullptr);
  EXPECT_EQ(std::wstring(reply.GetString(L"note")), L"mine");
  EXPECT_EQ(reply.Header().messageType, 0xFFFFFFFFu);
  EXPECT_EQ(reply.Header().processId, CurrentProcessId());

  // The closed channel can send nothing more; the service is not told.
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0xFFF8u);
  EXPECT_FALSE(IsInitialised());
  EXPECT_FALSE(g_ClientCommPtr);
}

TEST(Lifecycle, OperationWhoseReadFailsKeepsItsInitialResult) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  const size_t before = service.RequestCount();
  service.Script(msg::kGetServerSDKVersion, {Silent()});
  std::thread closer([&] {
    if (service.WaitForRequests(before + 1)) g_ClientCommPtr->Close();
  });
  // No "return" in what comes back: the result stays 0 and the version
  // keeps the caller's value.
  AMUint version = 77;
  EXPECT_EQ(GetServerSDKVersion(&version), 0u);
  closer.join();
  EXPECT_EQ(version, 77u);
  (void)PalvonAuthManager_Uninitialize();
}
