// Connections through the exported functions: the exact requests of
// CreateConnection, DestroyConnection, ClearAllCredentials, CancelAllCalls and
// LogOff, and what the caller gets back.
#include <functional>

#include "api/SignatureTexts.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::ErrLine;
using l1test::ExpectRequest;
using l1test::MsgLine;
using pam_test::Reply;

namespace {

using ConnectionsTest = l1test::Level1Test;

bool g_callbackCalled = false;

void StatusCallback(uint32_t, void*, uint32_t, int32_t) { g_callbackCalled = true; }

TEST_F(ConnectionsTest, CreateConnectionSendsNameAndEmptyCallbackKeysButNeverTheCallback) {
  Service().Script(msg::kCreateConnection, {Reply::Return(0).UInt(L"AuthManagerHandle", 31)});
  int context = 0;
  ConnectionHandle handle = 0;
  const std::wstring name = L"Büro \u20AC \U0001F511 main";
  EXPECT_EQ(PalvonAuthManager_CreateConnection(name.c_str(), &StatusCallback, &context, &handle), 0u);
  EXPECT_EQ(handle, 31u);

  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 1u);
  ExpectRequest(sent[0], msg::kCreateConnection, {},
                {{L"connectionName", name}, {L"statusCallbackFunction", L""}, {L"statusCallbackContext", L""}});
  EXPECT_FALSE(g_callbackCalled);
}

TEST_F(ConnectionsTest, CreateConnectionWithoutNameLeavesTheNameKeyOut) {
  Service().Script(msg::kCreateConnection, {Reply::Return(0).UInt(L"AuthManagerHandle", 0xFFFFFFFFu)});
  ConnectionHandle handle = 5;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &handle), 0u);
  EXPECT_EQ(handle, 0xFFFFFFFFu);

  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 1u);
  ExpectRequest(sent[0], msg::kCreateConnection, {},
                {{L"statusCallbackFunction", L""}, {L"statusCallbackContext", L""}});
}

TEST_F(ConnectionsTest, CreateConnectionWithEmptyNameSendsTheEmptyName) {
  ConnectionHandle handle = 0;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"", nullptr, nullptr, &handle), 0u);
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 1u);
  ExpectRequest(sent[0], msg::kCreateConnection, {},
                {{L"connectionName", L""}, {L"statusCallbackFunction", L""}, {L"statusCallbackContext", L""}});
}

TEST_F(ConnectionsTest, CreateConnectionHandleIsWrittenOnlyOnSuccessWithTheKey) {
  // Success without the key: the caller's variable stays as it was.
  Service().Script(msg::kCreateConnection, {Reply::Return(0).UInt(L"AnotherKey", 9)});
  ConnectionHandle handle = 0xABCD;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"a", nullptr, nullptr, &handle), 0u);
  EXPECT_EQ(handle, 0xABCDu);

  // A failure code with a handle in the reply: the handle is not taken.
  Service().Script(msg::kCreateConnection, {Reply::Return(7).UInt(L"AuthManagerHandle", 9)});
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"a", nullptr, nullptr, &handle), 7u);
  EXPECT_EQ(handle, 0xABCDu);

  // The handle under the wrong value type is not an unsigned value.
  Service().Script(msg::kCreateConnection, {Reply::Return(0).Int(L"AuthManagerHandle", 9)});
  EXPECT_EQ(PalvonAuthManager_CreateConnection(L"a", nullptr, nullptr, &handle), 0u);
  EXPECT_EQ(handle, 0xABCDu);
}

TEST_F(ConnectionsTest, CreateConnectionTracesEntryAndExit) {
  Service().Script(msg::kCreateConnection, {Reply::Return(0).UInt(L"AuthManagerHandle", 4)});
  const size_t mark = TraceMark();
  ConnectionHandle handle = 0;
  ASSERT_EQ(PalvonAuthManager_CreateConnection(L"x", nullptr, nullptr, &handle), 0u);
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kCreateConnection),
      MsgLine(std::string("[+] ") + sig::l1::kCreateConnection),
      MsgLine(std::string("[-] ") + sig::l1::kCreateConnection + " : result = 0"),
  };
  EXPECT_EQ(TraceSince(mark), expected);
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

TEST_F(ConnectionsTest, ConnectionActionsSendOnlyTheHandleUnderTheirOwnType) {
  for (const ConnectionAction& action : kActions) {
    SCOPED_TRACE(action.name);
    for (const ConnectionHandle handle : {0u, 17u, 0xFFFFFFFFu}) {
      const size_t before = Sent().size();
      const size_t mark = TraceMark();
      EXPECT_EQ(action.call(handle), 0u);
      const auto sent = Sent();
      ASSERT_EQ(sent.size(), before + 1);
      ExpectRequest(sent.back(), action.type, {{L"AuthManagerHandle", handle}}, {});
      const std::vector<std::string> expected = {
          MsgLine(action.exportSignature),
          MsgLine(std::string("[+] ") + action.operationSignature),
          MsgLine(std::string("[-] ") + action.operationSignature + " : result = 0"),
      };
      EXPECT_EQ(TraceSince(mark), expected);
    }
  }
}

TEST_F(ConnectionsTest, ConnectionActionsReturnTheServiceCode) {
  for (const ConnectionAction& action : kActions) {
    SCOPED_TRACE(action.name);
    Service().Script(action.type, {Reply::Return(0xFFFEu)});
    EXPECT_EQ(action.call(3), 0xFFFEu);
    Service().Script(action.type, {Reply::Return(0xFFFAu)});
    const size_t mark = TraceMark();
    EXPECT_EQ(action.call(3), 0xFFFAu);
    const auto trace = TraceSince(mark);
    ASSERT_EQ(trace.size(), 4u);
    EXPECT_EQ(trace[2], ErrLine("Invalid connection handle 3."));
    EXPECT_EQ(trace[3], MsgLine(std::string("[-] ") + action.operationSignature + " : result = 65530"));
  }
}

}  // namespace
