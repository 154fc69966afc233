// Connections through the exported functions: the exact requests of
// CreateConnection, DestroyConnection, ClearAllCredentials, CancelAllCalls and
// LogOff, and what the caller gets back.
#include "api/SignatureTexts.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::CallTrace;
using l1test::ExpectRequest;
using pam_test::Reply;

namespace {

using ConnectionsTest = l1test::Level1Test;

bool g_callbackCalled = false;

void StatusCallback(uint32_t, void*, uint32_t, int32_t) { g_callbackCalled = true; }

TEST_F(ConnectionsTest, CreateConnectionSendsNameAndEmptyCallbackKeysButNeverTheCallback) {
  Service().Script(msg::kCreateConnection, {Reply::Return(0).UInt(L"AuthManagerHandle", 31),
                                            Reply::Return(0).UInt(L"AuthManagerHandle", 0xFFFFFFFFu)});
  int context = 0;
  ConnectionHandle handle = 0;
  const std::wstring name = L"Büro \u20AC \U0001F511 main";
  EXPECT_EQ(PalvonAuthManager_CreateConnection(name.c_str(), &StatusCallback, &context, &handle), 0u);
  EXPECT_EQ(handle, 31u);
  // Without a name the key is left out; an empty name is sent as such.
  EXPECT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &handle), 0u);
  EXPECT_EQ(handle, 0xFFFFFFFFu);
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"", nullptr, nullptr, &handle), 0u);

  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 3u);
  ExpectRequest(sent[0], msg::kCreateConnection, {},
                {{L"connectionName", name}, {L"statusCallbackFunction", L""}, {L"statusCallbackContext", L""}});
  ExpectRequest(sent[1], msg::kCreateConnection, {},
                {{L"statusCallbackFunction", L""}, {L"statusCallbackContext", L""}});
  ExpectRequest(sent[2], msg::kCreateConnection, {},
                {{L"connectionName", L""}, {L"statusCallbackFunction", L""}, {L"statusCallbackContext", L""}});
  EXPECT_FALSE(g_callbackCalled);
}

TEST_F(ConnectionsTest, CreateConnectionHandleIsWrittenOnlyOnSuccessWithTheKey) {
  // Success without the key, a failure code with a handle, and the handle
  // under the wrong value type: the caller's variable stays as it was.
  Service().Script(msg::kCreateConnection,
                   {Reply::Return(0).UInt(L"AnotherKey", 9), Reply::Return(7).UInt(L"AuthManagerHandle", 9),
                    Reply::Return(0).Int(L"AuthManagerHandle", 9)});
  ConnectionHandle handle = 0xABCD;
  for (const AMResult expected : {0u, 7u, 0u}) {
    EXPECT_EQ(PalvonAuthManager_CreateConnection(L"a", nullptr, nullptr, &handle), expected);
    EXPECT_EQ(handle, 0xABCDu);
  }
}

struct ConnectionAction {
  const char* name;
  uint32_t type;
  AMResult (*call)(ConnectionHandle);
  const char* exportSignature;
  const char* operationSignature;
};

const ConnectionAction kActions[] = {
    {"DestroyConnection", msg::kDestroyConnection, &PalvonAuthManager_DestroyConnection, sig::api::kDestroyConnection,
     sig::l1::kDestroyConnection},
    {"ClearAllCredentials", msg::kClearAllCredentials, &PalvonAuthManager_ClearAllCredentials,
     sig::api::kClearAllCredentials, sig::l1::kClearAllCredentials},
    {"CancelAllCalls", msg::kCancelAllCalls, &PalvonAuthManager_CancelAllCalls, sig::api::kCancelAllCalls,
     sig::l1::kCancelAllCalls},
    {"LogOff", msg::kLogOff, &PalvonAuthManager_LogOff, sig::api::kLogOff, sig::l1::kLogOff},
};

TEST_F(ConnectionsTest, ConnectionActionsSendOnlyTheHandleAndReturnTheServiceCode) {
  for (const ConnectionAction& action : kActions) {
    SCOPED_TRACE(action.name);
    for (const ConnectionHandle handle : {0u, 17u, 0xFFFFFFFFu}) {
      const size_t before = Sent().size();
      const size_t mark = TraceMark();
      EXPECT_EQ(action.call(handle), 0u);
      const auto sent = Sent();
      ASSERT_EQ(sent.size(), before + 1);
      ExpectRequest(sent.back(), action.type, {{L"AuthManagerHandle", handle}}, {});
      EXPECT_EQ(TraceSince(mark), CallTrace(action.exportSignature, action.operationSignature, 0));
    }
    Service().Script(action.type, {Reply::Return(0xFFFEu)});
    EXPECT_EQ(action.call(3), 0xFFFEu);
  }
}

}  // namespace
