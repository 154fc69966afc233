// Library start-up and shutdown against the scriptable test service.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <memory>
#include <functional>
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

std::string ClientPipeBase() { return CLinuxIPC::getUserTmpDir() + "/" + ClientChannelName(CurrentProcessId()); }

// The channel object and both client pipes are gone.
void ExpectTornDown() {
  EXPECT_FALSE(IsInitialised());
  EXPECT_FALSE(g_ClientCommPtr);
  EXPECT_FALSE(Exists(ClientPipeBase() + "Read"));
  EXPECT_FALSE(Exists(ClientPipeBase() + "Write"));
}

std::vector<uint32_t> Types(const TestService& service) {
  std::vector<uint32_t> types;
  for (const auto& request : service.Requests()) types.push_back(request.type);
  return types;
}

AMUint ApiLevel() {
  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
  return level;
}

const uint32_t kVersion = msg::kGetServerSDKVersion;
const uint32_t kInit = msg::kInitialize;
const uint32_t kUninit = msg::kUninitialize;

// Runs `call` while the service stays silent to the next request of `type`,
// and closes the client channel once that request has arrived: the read
// fails with a pipe error.
void WithFailedRead(TestService& service, uint32_t type, const std::function<void()>& call) {
  const size_t before = service.RequestCount();
  Reply silent = Reply::Empty();
  silent.silent = true;
  service.Script(type, {silent});
  std::thread closer([&] {
    if (service.WaitForRequests(before + 1)) CurrentChannel()->Close();
  });
  call();
  closer.join();
}

}  // namespace

TEST(Lifecycle, InitializeNegotiatesLevelTwoAndEachCycleBuildsAndRemovesThePipes) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_TRUE(IsInitialised());
  EXPECT_EQ(ApiLevel(), 2u);
  const auto requests = service.Requests();
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(requests[0].type, kVersion);
  EXPECT_EQ(requests[0].raw.size(), 148u);
  EXPECT_EQ(requests[1].type, kInit);
  const std::string base = service.Directory() + "/.AuthManager" + std::to_string(getpid());
  EXPECT_TRUE(Exists(base + "Read"));
  EXPECT_TRUE(Exists(base + "Write"));
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  ExpectTornDown();

  // A second full cycle builds everything again; a refused Uninitialize
  // still tears it down and hands back the code.
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_TRUE(Exists(ClientPipeBase() + "Read"));
  EXPECT_EQ(service.Registrations().size(), 2u);
  service.Script(kUninit, {Reply::Return(12)});
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 12u);
  ExpectTornDown();
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{kVersion, kInit, kUninit, kVersion, kInit, kUninit}));
}

TEST(Lifecycle, BusyIsRepeatedWithTheSameRequestAndAlreadyInitialisedCountsAsSuccess) {
  TestService service;
  service.Script(kVersion, {Reply::Busy(), Reply::Busy(), Reply::Return(0).UInt(L"version", 1)});
  service.Script(kInit, {Reply::Busy(), Reply::Busy(), Reply::Return(0xFFFE)});
  const auto start = std::chrono::steady_clock::now();
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  // Two 100 ms pauses for each of the two requests.
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(400));
  EXPECT_TRUE(IsInitialised());
  for (const uint32_t type : {kVersion, kInit}) {
    const auto sent = service.RequestsOfType(type);
    ASSERT_EQ(sent.size(), 3u);
    EXPECT_EQ(sent[0].raw, sent[2].raw);
    EXPECT_GE(sent[1].receivedAt - sent[0].receivedAt, std::chrono::milliseconds(100));
  }
  EXPECT_EQ(ApiLevel(), 1u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Lifecycle, NestedCallsOnlyCountAndTheLastUninitializeTearsDown) {
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0xFFFDu);  // before any Initialize
  EXPECT_FALSE(IsInitialised());
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  // The second call talks to nobody.
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{kVersion, kInit}));

  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_TRUE(IsInitialised());
  EXPECT_TRUE(g_ClientCommPtr);
  EXPECT_EQ(ApiLevel(), 2u);
  EXPECT_EQ(service.RequestCount(), 2u);

  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  ExpectTornDown();
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{kVersion, kInit, kUninit}));

  AMUint level = 0;
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0xFFFDu);
  EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0xFFFDu);
  EXPECT_EQ(service.RequestCount(), 3u);
}

TEST(Lifecycle, RefusedFirstInitialiseIsUndoneAndLeavesAStickyUnusableState) {
  TestService service;
  service.Script(kInit, {Reply::Return(9)});
  ASSERT_EQ(PalvonAuthManager_Initialize(), 9u);
  // The service is told to forget the client, and the channel goes with it.
  ExpectTornDown();
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{kVersion, kInit, kUninit}));

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
  EXPECT_EQ(service.RequestCount(), 3u);

  // Two initialise calls counted: the first Uninitialize only counts down,
  // the second finds no object and succeeds without a message.
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_EQ(service.RequestCount(), 3u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0xFFFDu);
}

// --- API levels from the service's version --------------------------------------------

TEST(Lifecycle, ServiceVersionSetsTheApiLevelCappedAtTwo) {
  TestService service;
  service.Script(msg::kCreateAMHttpRequest, {Reply::Return(0).UInt(L"httpHandle", 31)});
  for (const uint32_t version : {1u, 5u}) {
    SCOPED_TRACE(version);
    service.SetVersion(version);
    ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
    const size_t requests = service.RequestCount();
    AMHttpHandle http = 77;
    if (version == 1) {
      // Level-2 operations are refused without a message; level-1 ones work.
      EXPECT_EQ(ApiLevel(), 1u);
      EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(1, &http), 0xFFF5u);
      EXPECT_EQ(PalvonAuthManager_SetRequestTimeoutSeconds(1, 5), 0xFFF5u);
      EXPECT_EQ(http, 77u);
      EXPECT_EQ(service.RequestCount(), requests);
      EXPECT_EQ(PalvonAuthManager_ClearAllCredentials(1), 0u);
    } else {
      EXPECT_EQ(ApiLevel(), 2u);
      EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(1, &http), 0u);
      EXPECT_EQ(http, 31u);
    }
    EXPECT_EQ(service.RequestCount(), requests + 1);
    EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  }
}

TEST(Lifecycle, VersionZeroOrAFailedVersionQueryFailsInitializeBeforeSendingIt) {
  TestService service;
  service.Script(kVersion, {Reply::Return(7)});
  // The failed query's code; then version 0 gives "not initialised".
  for (const AMResult expected : {7u, 0xFFFDu}) {
    SCOPED_TRACE(expected);
    const size_t before = service.RequestCount();
    EXPECT_EQ(PalvonAuthManager_Initialize(), expected);
    EXPECT_FALSE(IsInitialised());
    AMUint level = 9;
    EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0xFFFDu);
    EXPECT_EQ(level, 9u);
    // Nothing to send Initialize through; the channel made for the version
    // query is released by Uninitialize without a message.
    EXPECT_EQ(service.RequestCount(), before + 1);
    EXPECT_TRUE(g_ClientCommPtr);
    EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
    ExpectTornDown();
    EXPECT_EQ(service.RequestCount(), before + 1);
    service.SetVersion(0);
  }
  EXPECT_EQ(Types(service), (std::vector<uint32_t>{kVersion, kVersion}));
}

// --- a read that fails -----------------------------------------------------------------

TEST(Lifecycle, FailedReadThrowsInsteadOfHandingBackTheRequest) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  LinuxDictionary request(MessageCommon(msg::kGetVersion, CurrentProcessId()));
  request.SetUInt(L"AuthManagerHandle", 5);
  WithFailedRead(service, msg::kGetVersion,
                 [&] { EXPECT_THROW((void)CurrentChannel()->MakeCall(request), std::runtime_error); });

  // The closed channel can send nothing more; the service is not told.
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0xFFF8u);
  EXPECT_FALSE(IsInitialised());
  EXPECT_FALSE(CurrentChannel());
}

TEST(Lifecycle, OperationWhoseReadFailsReturns65528AndKeepsItsOutValue) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  AMUint version = 77;
  WithFailedRead(service, kVersion, [&] { EXPECT_EQ(GetServerSDKVersion(&version), 0xFFF8u); });
  EXPECT_EQ(version, 77u);
  (void)PalvonAuthManager_Uninitialize();
}

// --- a service that goes away -------------------------------------------------------------

namespace {

// Runs `call` and gives up waiting after a while: a call that hangs fails the
// test instead of the whole run.
AMResult WithoutHanging(const std::function<AMResult()>& call) {
  auto pending = std::async(std::launch::async, call);
  if (pending.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    ADD_FAILURE() << "the call did not return";
    std::_Exit(1);
  }
  return pending.get();
}

// A forked child holds copies of the test service's thread state, which the
// leak checker would report at the child's exit.
bool g_inForkedChild = false;

// One exchange with the service (the test service answers it with 0).
AMResult Probe() { return PalvonAuthManager_DestroyConnection(1); }

}  // namespace

TEST(Lifecycle, ALostServiceFailsCallsAtOnceAndANewOneIsReachedAfterReinitialising) {
  auto service = std::make_unique<TestService>();
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  ASSERT_EQ(Probe(), 0u);

  // Gone between two calls: a request larger than the pipe holds fails
  // instead of blocking in its write.
  service.reset();
  const std::vector<AMByte> body(200 * 1024, 0x5A);
  EXPECT_EQ(WithoutHanging([&] { return PalvonAuthManager_SetRequestData(1, body.data(), 200 * 1024); }), 0xFFF8u);
  EXPECT_EQ(WithoutHanging(Probe), 0xFFF8u);
  EXPECT_EQ(WithoutHanging(PalvonAuthManager_Uninitialize), 0xFFF8u);

  // Gone during a call and replaced at once by a service that does not know
  // this process: the call in flight and the next one fail.
  service = std::make_unique<TestService>();
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  Reply silent = Reply::Empty();
  silent.silent = true;
  service->Script(msg::kDestroyConnection, {silent});
  const size_t before = service->RequestCount();
  std::thread restart([&] {
    (void)service->WaitForRequests(before + 1);
    service.reset();
    service = std::make_unique<TestService>();
  });
  EXPECT_EQ(WithoutHanging(Probe), 0xFFF8u);
  restart.join();
  EXPECT_EQ(WithoutHanging(Probe), 0xFFF8u);

  // Uninitialise and initialise again in the same process: served anew.
  EXPECT_EQ(WithoutHanging(PalvonAuthManager_Uninitialize), 0xFFF8u);
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_EQ(Probe(), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

TEST(Lifecycle, AForkedChildNeitherUsesNorRemovesItsParentsChannel) {
  TestService service;
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  const std::string base = CLinuxIPC::getUserTmpDir() + "/" + ClientChannelName(CurrentProcessId());
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    g_inForkedChild = true;
    // Calls through the inherited channel fail; after initialising its own
    // channel the child is served; exit() runs the library's destructors.
    const bool inheritedFails = Probe() == 0xFFF8u;
    const bool ownWorks = PalvonAuthManager_Initialize() == 0u && Probe() == 0u;
    const bool ownClosed = PalvonAuthManager_Uninitialize() == 0u;
    std::exit(inheritedFails && ownWorks && ownClosed ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
  struct stat info {};
  EXPECT_EQ(stat((base + "Read").c_str(), &info), 0);
  for (int i = 0; i < 20; ++i) EXPECT_EQ(Probe(), 0u);
  EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
}

extern "C" int __lsan_is_turned_off() { return g_inForkedChild ? 1 : 0; }
