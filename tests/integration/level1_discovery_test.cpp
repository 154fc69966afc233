// Server type, gateway discovery, logon status and log-off through the
// exported functions: the requests, the records and texts handed out, and
// their release.
#include "api/SignatureTexts.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::CallTrace;
using l1test::ErrLine;
using l1test::ExpectRequest;
using pam_test::Reply;

namespace {

using DiscoveryTest = l1test::Level1Test;

const AM_GATEWAY_INFO kGateway = {L"Gateway West", L"https://west/logon", 7, 8, 9};

TEST_F(DiscoveryTest, DetermineServerTypeSendsUrlAndHandsOutPlainServers) {
  // Type 1, no type at all (type 0), and type 3 whose gateway values are ignored.
  Service().Script(msg::kDetermineServerType,
                   {Reply::Return(0).UInt(L"serverType", 1), Reply::Return(0),
                    Reply::Return(0).UInt(L"serverType", 3).Wide(L"friendlyName", L"f").Wide(L"logonPointUrl", L"l")});
  for (const uint32_t type : {1u, 0u, 3u}) {
    SCOPED_TRACE(type);
    AM_SERVER_INFO* info = nullptr;
    ASSERT_EQ(PalvonAuthManager_DetermineServerType(21, type == 0 ? L"" : L"https://server/", &info), 0u);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->serverType, type);
    EXPECT_EQ(info->gatewayInfo, nullptr);
    EXPECT_EQ(PalvonAuthManager_FreeServerInfo(info), 0u);
  }
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 3u);
  ExpectRequest(sent[0], msg::kDetermineServerType, {{L"AuthManagerHandle", 21}},
                {{L"serviceUrl", L"https://server/"}});
  ExpectRequest(sent[1], msg::kDetermineServerType, {{L"AuthManagerHandle", 21}}, {{L"serviceUrl", L""}});
}

TEST_F(DiscoveryTest, DetermineServerTypeTwoDescribesTheGateway) {
  Service().Script(msg::kDetermineServerType,
                   {Reply::Return(0)
                        .UInt(L"serverType", 2)
                        .Wide(L"friendlyName", L"GW \u00fc")
                        .Wide(L"logonPointUrl", L"https://gw/lp")
                        .UInt(L"amGatewayEdition", 4)
                        .UInt(L"amGatewayAuthType", 0xFFFFFFFFu)
                        .UInt(L"amGatewayReWriteRule", 5),
                    Reply::Return(0).UInt(L"serverType", 2).Wide(L"friendlyName", L"").Wide(L"logonPointUrl", L"")});
  AM_SERVER_INFO* info = nullptr;
  ASSERT_EQ(PalvonAuthManager_DetermineServerType(3, L"https://gw/", &info), 0u);
  ASSERT_NE(info, nullptr);
  EXPECT_EQ(info->serverType, 2u);
  ASSERT_NE(info->gatewayInfo, nullptr);
  EXPECT_STREQ(info->gatewayInfo->friendlyName, L"GW \u00fc");
  EXPECT_STREQ(info->gatewayInfo->logonPointUrl, L"https://gw/lp");
  EXPECT_EQ(info->gatewayInfo->amGatewayEdition, 4u);
  EXPECT_EQ(info->gatewayInfo->amGatewayAuthType, 0xFFFFFFFFu);
  // Never filled from the reply.
  EXPECT_EQ(info->gatewayInfo->amGatewayReWriteRule, 0u);
  size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_FreeServerInfo(info), 0u);
  // The release traces its entry but no exit line.
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kFreeServerInfo, sig::l1::kFreeServerInfo, -1));

  // Empty texts are copied; missing numbers stay zero.
  ASSERT_EQ(PalvonAuthManager_DetermineServerType(3, L"u", &info), 0u);
  ASSERT_NE(info, nullptr);
  ASSERT_NE(info->gatewayInfo, nullptr);
  EXPECT_STREQ(info->gatewayInfo->friendlyName, L"");
  EXPECT_STREQ(info->gatewayInfo->logonPointUrl, L"");
  EXPECT_EQ(info->gatewayInfo->amGatewayEdition, 0u);
  EXPECT_EQ(info->gatewayInfo->amGatewayAuthType, 0u);
  EXPECT_EQ(PalvonAuthManager_FreeServerInfo(info), 0u);

  // A null record is accepted, traced the same way, and sends nothing.
  mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_FreeServerInfo(nullptr), 0u);
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kFreeServerInfo, sig::l1::kFreeServerInfo, -1));
  EXPECT_EQ(Sent().size(), 2u);
}

TEST_F(DiscoveryTest, DetermineServerTypeWithMissingTextsOrFailureCode) {
  Service().Script(msg::kDetermineServerType,
                   {Reply::Return(0).UInt(L"serverType", 2).Wide(L"logonPointUrl", L"https://gw/lp"),
                    Reply::Return(0).UInt(L"serverType", 2).Wide(L"friendlyName", L"gw").UInt(L"amGatewayEdition", 1)});
  // Either text missing: no record is handed out.
  AM_SERVER_INFO* info = nullptr;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_DetermineServerType(3, L"u", &info), 0xFFF8u);
  EXPECT_EQ(info, nullptr);
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kDetermineServerType, sig::l1::kDetermineServerType, 65528,
                                        {ErrLine("Unexpected exception chaught.")}));
  EXPECT_EQ(PalvonAuthManager_DetermineServerType(3, L"u", &info), 0xFFF8u);
  EXPECT_EQ(info, nullptr);

  // A failure code leaves the caller's pointer alone.
  Service().Script(msg::kDetermineServerType, {Reply::Return(0xFFFAu).UInt(L"serverType", 1)});
  AM_SERVER_INFO placeholder{};
  info = &placeholder;
  EXPECT_EQ(PalvonAuthManager_DetermineServerType(3, L"u", &info), 0xFFFAu);
  EXPECT_EQ(info, &placeholder);
}

TEST_F(DiscoveryTest, RetrieveGatewayDiscoveryDataSendsAllFiveGatewayFields) {
  Service().Script(msg::kRetrieveGatewayDiscoveryData,
                   {Reply::Return(0).Wide(L"discoveryData", L"<discovery/>").UInt(L"amAuthenticationResult", 11),
                    Reply::Return(0).Wide(L"discoveryData", L"d")});
  AMChar* data = nullptr;
  AMAuthenticationResult authResult = 0;
  ASSERT_EQ(PalvonAuthManager_RetrieveGatewayDiscoveryData(14, &kGateway, 0x10, &data, &authResult), 0u);
  EXPECT_STREQ(data, L"<discovery/>");
  EXPECT_EQ(authResult, 11u);
  EXPECT_EQ(PalvonAuthManager_FreeString(data), 0u);

  // Null texts are left out, the rewrite rule still travels.
  const AM_GATEWAY_INFO bare = {nullptr, nullptr, 0, 0, 0};
  authResult = 0x7777;
  ASSERT_EQ(PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &bare, 0, &data, &authResult), 0u);
  EXPECT_STREQ(data, L"d");
  // Without "amAuthenticationResult" the caller's variable is untouched.
  EXPECT_EQ(authResult, 0x7777u);
  EXPECT_EQ(PalvonAuthManager_FreeString(data), 0u);

  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 2u);
  ExpectRequest(sent[0], msg::kRetrieveGatewayDiscoveryData,
                {{L"AuthManagerHandle", 14},
                 {L"authenticationFlags", 0x10},
                 {L"amGatewayEdition", 7},
                 {L"amGatewayAuthType", 8},
                 {L"amGatewayReWriteRule", 9}},
                {{L"friendlyName", L"Gateway West"}, {L"logonPointUrl", L"https://west/logon"}});
  ExpectRequest(sent[1], msg::kRetrieveGatewayDiscoveryData,
                {{L"AuthManagerHandle", 1},
                 {L"authenticationFlags", 0},
                 {L"amGatewayEdition", 0},
                 {L"amGatewayAuthType", 0},
                 {L"amGatewayReWriteRule", 0}},
                {});
}

TEST_F(DiscoveryTest, RetrieveGatewayDiscoveryDataWithoutDataTouchesNoOutput) {
  AMChar placeholder[] = L"keep";
  AMChar* data = placeholder;
  AMAuthenticationResult authResult = 0x7777;
  Service().Script(msg::kRetrieveGatewayDiscoveryData,
                   {Reply::Return(0).UInt(L"amAuthenticationResult", 1),
                    Reply::Return(3).Wide(L"discoveryData", L"d").UInt(L"amAuthenticationResult", 1)});
  EXPECT_EQ(PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &kGateway, 0, &data, &authResult), 0xFFF8u);
  EXPECT_EQ(PalvonAuthManager_RetrieveGatewayDiscoveryData(1, &kGateway, 0, &data, &authResult), 3u);
  EXPECT_EQ(data, placeholder);
  EXPECT_EQ(authResult, 0x7777u);
}

TEST_F(DiscoveryTest, LogOffRequestsCarryGatewayWithoutRewriteRuleOrTheUrl) {
  const AM_GATEWAY_INFO onlyName = {L"n", nullptr, 1, 2, 3};
  EXPECT_EQ(PalvonAuthManager_LogOffGateway(6, &kGateway), 0u);
  EXPECT_EQ(PalvonAuthManager_LogOffGateway(6, &onlyName), 0u);
  EXPECT_EQ(PalvonAuthManager_LogOffAuthService(0xFFFFFFFFu, L"https://auth/"), 0u);
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 3u);
  ExpectRequest(sent[0], msg::kLogOffGateway,
                {{L"AuthManagerHandle", 6}, {L"amGatewayEdition", 7}, {L"amGatewayAuthType", 8}},
                {{L"friendlyName", L"Gateway West"}, {L"logonPointUrl", L"https://west/logon"}});
  ExpectRequest(sent[1], msg::kLogOffGateway,
                {{L"AuthManagerHandle", 6}, {L"amGatewayEdition", 1}, {L"amGatewayAuthType", 2}},
                {{L"friendlyName", L"n"}});
  ExpectRequest(sent[2], msg::kLogOffAuthService, {{L"AuthManagerHandle", 0xFFFFFFFFu}},
                {{L"serviceUrl", L"https://auth/"}});
}

TEST_F(DiscoveryTest, GetLogonStatusReadsTheStatusOnlyOnSuccessWithTheKey) {
  Service().Script(msg::kGetLogonStatus, {Reply::Return(0).UInt(L"logonStatus", 3), Reply::Return(0),
                                          Reply::Return(0xFFFAu).UInt(L"logonStatus", 1)});
  AMLogonStatus status = 0;
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(8, L"https://auth/", &status), 0u);
  EXPECT_EQ(status, 3u);
  ExpectRequest(Sent().at(0), msg::kGetLogonStatus, {{L"AuthManagerHandle", 8}}, {{L"serviceUrl", L"https://auth/"}});
  status = 0x4242;
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(8, L"u", &status), 0u);
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(8, L"u", &status), 0xFFFAu);
  EXPECT_EQ(status, 0x4242u);
}

}  // namespace
