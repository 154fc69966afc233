// VPN authentication contexts through the exported functions: the requests of
// CreateVpnAuthContext, DestroyVpnAuthContext and GetVpnAuthorizationInfo,
// the records handed out and their release.
#include <cwchar>

#include "api/SignatureTexts.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::CallTrace;
using l1test::ErrLine;
using l1test::ExpectRequest;
using l1test::MsgLine;
using pam_test::Reply;

namespace {

using VpnTest = l1test::Level1Test;

TEST_F(VpnTest, CreateVpnAuthContextSendsGatewayWithoutRewriteRuleOrNullTexts) {
  Service().Script(msg::kCreateVpnAuthContext, {Reply::Return(0).UInt(L"vpnauthcontexthandle", 77)});
  const AM_GATEWAY_INFO gateway = {L"Gateway Ost", L"https://gw.example/logon", 3, 4, 99};
  const AM_GATEWAY_INFO noTexts = {nullptr, nullptr, 0, 0xFFFFFFFFu, 1};
  const AM_GATEWAY_INFO onlyUrl = {nullptr, L"u", 1, 2, 3};
  VpnAuthContextHandle context = 0;
  EXPECT_EQ(PalvonAuthManager_CreateVpnAuthContext(12, &gateway, 0x80000001u, &context), 0u);
  EXPECT_EQ(context, 77u);
  EXPECT_EQ(PalvonAuthManager_CreateVpnAuthContext(1, &noTexts, 0, &context), 0u);
  EXPECT_EQ(PalvonAuthManager_CreateVpnAuthContext(2, &onlyUrl, 5, &context), 0u);

  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 3u);
  ExpectRequest(sent[0], msg::kCreateVpnAuthContext,
                {{L"AuthManagerHandle", 12},
                 {L"amGatewayEdition", 3},
                 {L"amGatewayAuthType", 4},
                 {L"authenticationFlags", 0x80000001u}},
                {{L"friendlyName", L"Gateway Ost"}, {L"logonPointUrl", L"https://gw.example/logon"}});
  ExpectRequest(sent[1], msg::kCreateVpnAuthContext,
                {{L"AuthManagerHandle", 1},
                 {L"amGatewayEdition", 0},
                 {L"amGatewayAuthType", 0xFFFFFFFFu},
                 {L"authenticationFlags", 0}},
                {});
  ExpectRequest(
      sent[2], msg::kCreateVpnAuthContext,
      {{L"AuthManagerHandle", 2}, {L"amGatewayEdition", 1}, {L"amGatewayAuthType", 2}, {L"authenticationFlags", 5}},
      {{L"logonPointUrl", L"u"}});
}

TEST_F(VpnTest, CreateVpnAuthContextHandleIsWrittenOnlyOnSuccessWithTheKey) {
  const AM_GATEWAY_INFO gateway = {L"g", L"u", 1, 2, 3};
  // No key, a failure code, and the connection key instead of the context key.
  Service().Script(msg::kCreateVpnAuthContext, {Reply::Return(0), Reply::Return(42).UInt(L"vpnauthcontexthandle", 1),
                                                Reply::Return(0).UInt(L"AuthManagerHandle", 1)});
  VpnAuthContextHandle context = 0x5555;
  for (const AMResult expected : {0u, 42u, 0u}) {
    EXPECT_EQ(PalvonAuthManager_CreateVpnAuthContext(1, &gateway, 0, &context), expected);
    EXPECT_EQ(context, 0x5555u);
  }
}

TEST_F(VpnTest, DestroyVpnAuthContextSendsOnlyTheContextHandle) {
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_DestroyVpnAuthContext(0xFFFFFFFFu), 0u);
  ExpectOnlyRequest(msg::kDestroyVpnAuthContext, {{L"vpnauthcontexthandle", 0xFFFFFFFFu}}, {});
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kDestroyVpnAuthContext, sig::l1::kDestroyVpnAuthContext, 0));
}

TEST_F(VpnTest, GetVpnAuthorizationInfoHandsOutIndependentCopies) {
  Service().Script(msg::kGetVpnAuthorizationInfo,
                   {Reply::Return(0)
                        .UInt(L"amAuthenticationResult", 6)
                        .Wide(L"vpnauthorizationstr", L"token-\u00e9-1")
                        .Wide(L"vpnsessionlogonpointurl", L"https://vpn/logon"),
                    Reply::Return(0).Wide(L"vpnauthorizationstr", L"other").Wide(L"vpnsessionlogonpointurl", L"other"),
                    Reply::Return(0).Wide(L"vpnauthorizationstr", L"").Wide(L"vpnsessionlogonpointurl", L"")});
  AM_VPN_AUTHORIZATION_INFO* info = nullptr;
  ASSERT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(88, &info), 0u);
  ASSERT_NE(info, nullptr);
  ExpectOnlyRequest(msg::kGetVpnAuthorizationInfo, {{L"vpnauthcontexthandle", 88}}, {});

  // A second exchange replaces the channel's last reply; the record's texts
  // are copies of their own.
  AM_VPN_AUTHORIZATION_INFO* second = nullptr;
  ASSERT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(88, &second), 0u);
  ASSERT_NE(second, nullptr);
  EXPECT_NE(second, info);
  EXPECT_EQ(info->amAuthenticationResult, 6u);
  EXPECT_STREQ(info->vpnauthorizationstr, L"token-\u00e9-1");
  EXPECT_STREQ(info->vpnsessionlogonpointurl, L"https://vpn/logon");
  // Without "amAuthenticationResult" the field keeps the zero of the allocation.
  EXPECT_EQ(second->amAuthenticationResult, 0u);
  EXPECT_STREQ(second->vpnauthorizationstr, L"other");
  EXPECT_NE(second->vpnauthorizationstr, second->vpnsessionlogonpointurl);

  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_FreeVpnAuthorizationInfo(info), 0u);
  EXPECT_EQ(PalvonAuthManager_FreeVpnAuthorizationInfo(second), 0u);
  EXPECT_EQ(PalvonAuthManager_FreeVpnAuthorizationInfo(nullptr), 0u);
  // Releasing writes only the export's entry line and sends nothing.
  const std::vector<std::string> expected(3, MsgLine(sig::api::kFreeVpnAuthorizationInfo));
  EXPECT_EQ(TraceSince(mark), expected);
  EXPECT_EQ(Sent().size(), 2u);

  // Empty texts are copied as empty texts, not left null.
  ASSERT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(1, &info), 0u);
  ASSERT_NE(info->vpnauthorizationstr, nullptr);
  ASSERT_NE(info->vpnsessionlogonpointurl, nullptr);
  EXPECT_EQ(std::wcslen(info->vpnauthorizationstr), 0u);
  EXPECT_EQ(std::wcslen(info->vpnsessionlogonpointurl), 0u);
  EXPECT_EQ(PalvonAuthManager_FreeVpnAuthorizationInfo(info), 0u);
}

TEST_F(VpnTest, GetVpnAuthorizationInfoWithMissingTextsOrFailureCode) {
  Service().Script(msg::kGetVpnAuthorizationInfo,
                   {Reply::Return(0).UInt(L"amAuthenticationResult", 2).Wide(L"vpnauthorizationstr", L"auth"),
                    Reply::Return(0).Wide(L"vpnsessionlogonpointurl", L"u")});
  // Either text missing: no record is handed out.
  AM_VPN_AUTHORIZATION_INFO* info = nullptr;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(5, &info), 0xFFF8u);
  EXPECT_EQ(info, nullptr);
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kGetVpnAuthorizationInfo, sig::l1::kGetVpnAuthorizationInfo, 65528,
                                        {ErrLine("Unexpected exception chaught.")}));
  EXPECT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(5, &info), 0xFFF8u);
  EXPECT_EQ(info, nullptr);

  // A failure code leaves the caller's pointer alone.
  Service().Script(msg::kGetVpnAuthorizationInfo,
                   {Reply::Return(9).Wide(L"vpnauthorizationstr", L"a").Wide(L"vpnsessionlogonpointurl", L"b")});
  AM_VPN_AUTHORIZATION_INFO placeholder{};
  info = &placeholder;
  EXPECT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(5, &info), 9u);
  EXPECT_EQ(info, &placeholder);
}

}  // namespace
