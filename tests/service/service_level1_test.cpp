// API level 1 against the real palvonauthd: connections, logon state,
// trampoline URLs, server types, gateway discovery, VPN contexts, version
// text and client window, all through the library's public exports.
#include <gtest/gtest.h>
#include <unistd.h>

#include <regex>
#include <string>

#include "PalvonAuthManager.h"
#include "service/ServiceClient.h"
#include "service/ServiceHarness.h"
#include "support/TestService.h"

using namespace PalvonAuthManagerSDK;
using pam_test::Daemon;
using pam_test::Take;

namespace {

class Level1 : public ::testing::Test {
 protected:
  void Start(std::vector<std::string> args = {}, const std::string& config = "") {
    daemon_ = std::make_unique<Daemon>(std::move(args), config);
    ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
    ASSERT_EQ(PalvonAuthManager_CreateConnection(L"tests", nullptr, nullptr, &connection_), 0u);
  }
  void TearDown() override {
    if (IsInitialised()) {
      EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
    }
  }
  AMLogonStatus Status(const wchar_t* url) {
    AMLogonStatus status = 77;
    EXPECT_EQ(PalvonAuthManager_GetLogonStatus(connection_, url, &status), 0u);
    return status;
  }
  std::wstring Trampoline(const wchar_t* url, const wchar_t* reference = nullptr) {
    AMChar* text = nullptr;
    AMAuthenticationResult result = 77;
    EXPECT_EQ(PalvonAuthManager_GenerateTrampolineUrl(connection_, url, 0x10, reference, &text, &result), 0u);
    EXPECT_EQ(result, 0u);
    return Take(text);
  }
  // DetermineServerType's answer; gateway fields only when a name is expected.
  void ExpectServer(const wchar_t* url, AMUint type, const wchar_t* name = nullptr, const wchar_t* logonPoint = nullptr,
                    AMUint edition = 0, AMUint authType = 0) {
    SCOPED_TRACE(pam_test::Utf8(url));
    AM_SERVER_INFO* info = nullptr;
    ASSERT_EQ(PalvonAuthManager_DetermineServerType(connection_, url, &info), 0u);
    ASSERT_NE(info, nullptr);
    EXPECT_EQ(info->serverType, type);
    if (name == nullptr) {
      EXPECT_EQ(info->gatewayInfo, nullptr);
    } else if (info->gatewayInfo == nullptr) {
      ADD_FAILURE() << "no gateway info";
    } else {
      EXPECT_STREQ(info->gatewayInfo->friendlyName, name);
      EXPECT_STREQ(info->gatewayInfo->logonPointUrl, logonPoint);
      EXPECT_EQ(info->gatewayInfo->amGatewayEdition, edition);
      EXPECT_EQ(info->gatewayInfo->amGatewayAuthType, authType);
    }
    PalvonAuthManager_FreeServerInfo(info);
  }

  std::unique_ptr<Daemon> daemon_;
  ConnectionHandle connection_ = 0;
};

const wchar_t kGatewayApp[] = L"https://gateway.example.com/app?x=1&y=2";
const wchar_t kOtherApp[] = L"https://apps.example.org/mail";

}  // namespace

TEST_F(Level1, InitialiseNegotiatesTheConfiguredSdkVersion) {
  for (const AMUint version : {2u, 1u}) {
    SCOPED_TRACE(version);
    Daemon daemon({"--sdk-version", std::to_string(version)});
    const ConnectionHandle connection = pam_test::InitialiseAndConnect();
    AMUint level = 0;
    EXPECT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
    EXPECT_EQ(level, version);
    AMHttpHandle http = 0;
    EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(connection, &http), version == 1 ? 0xFFF5u : 0u);
    EXPECT_EQ(PalvonAuthManager_Uninitialize(), 0u);
    EXPECT_TRUE(daemon.WaitForLog("client " + std::to_string(getpid()) + " uninitialised"));
  }
}

TEST_F(Level1, ConnectionsGetDistinctHandlesAndUnknownHandlesAreRejectedEverywhere) {
  Start();
  ConnectionHandle second = 0;
  ASSERT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &second), 0u);
  EXPECT_NE(connection_, 0u);
  EXPECT_NE(second, 0u);
  EXPECT_NE(second, connection_);
  EXPECT_EQ(PalvonAuthManager_ClearAllCredentials(second), 0u);
  EXPECT_EQ(PalvonAuthManager_CancelAllCalls(second), 0u);
  EXPECT_EQ(PalvonAuthManager_LogOff(second), 0u);
  ASSERT_EQ(PalvonAuthManager_DestroyConnection(second), 0u);

  // Every operation taking a connection handle rejects the destroyed one.
  const ConnectionHandle gone = second;
  AM_GATEWAY_INFO gateway = {L"GW", L"https://gw.example.net/logon", 1, 2, 0};
  AMWindowInfo window = {0, 0, 10, 10, nullptr, nullptr, nullptr};
  AMChar* text = nullptr;
  AMAuthenticationResult result = 0;
  AMLogonStatus status = 0;
  VpnAuthContextHandle context = 0;
  AM_SERVER_INFO* info = nullptr;
  AMHttpHandle http = 0;
  EXPECT_EQ(PalvonAuthManager_DestroyConnection(gone), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_ClearAllCredentials(gone), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_CancelAllCalls(gone), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_LogOff(gone), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_LogOffGateway(gone, &gateway), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_LogOffAuthService(gone, kOtherApp), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(gone, kOtherApp, &status), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_GenerateTrampolineUrl(gone, kOtherApp, 0, nullptr, &text, &result), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_CreateVpnAuthContext(gone, &gateway, 0, &context), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_GetVersion(gone, &text), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(gone, &window), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_DetermineServerType(gone, kOtherApp, &info), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_RetrieveGatewayDiscoveryData(gone, &gateway, 0, &text, &result), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_CreateAMHttpRequest(gone, &http), 0xFFFAu);
  EXPECT_EQ(text, nullptr);
  EXPECT_EQ(info, nullptr);
  EXPECT_EQ(http, 0u);

  // The other connection is untouched.
  EXPECT_EQ(PalvonAuthManager_CancelAllCalls(connection_), 0u);
}

TEST_F(Level1, TrampolineUrlFollowsTheTemplateAndLogsTheServiceOn) {
  Start();
  EXPECT_EQ(Status(kGatewayApp), 0u);
  // A URL under a gateway rule uses the rule's logon point as the gateway;
  // the URLs are percent-encoded.
  EXPECT_EQ(
      Trampoline(kGatewayApp, L"https://ref.example.com/a b"),
      L"https://gateway.example.com/logon/trampoline?target=https%3A%2F%2Fgateway.example.com%2Fapp%3Fx%3D1%26y%3D2"
      L"&ref=https%3A%2F%2Fref.example.com%2Fa%20b");
  EXPECT_EQ(Status(kGatewayApp), 1u);
  EXPECT_EQ(Status(kOtherApp), 0u);
  // Other URLs go through the default gateway; no reference gives an empty ref.
  EXPECT_EQ(Trampoline(kOtherApp),
            L"https://gateway.example.com/logon/trampoline?target=https%3A%2F%2Fapps.example.org%2Fmail&ref=");
  EXPECT_EQ(Status(kOtherApp), 1u);

  EXPECT_EQ(PalvonAuthManager_LogOffAuthService(connection_, kOtherApp), 0u);
  EXPECT_EQ(Status(kOtherApp), 0u);
  EXPECT_EQ(Status(kGatewayApp), 1u);

  // Log-off from the rule's gateway by name leaves the default gateway's services.
  Trampoline(kOtherApp);
  AM_GATEWAY_INFO gateway = {L"Example gateway", nullptr, 0, 0, 0};
  EXPECT_EQ(PalvonAuthManager_LogOffGateway(connection_, &gateway), 0u);
  EXPECT_EQ(Status(kGatewayApp), 0u);
  EXPECT_EQ(Status(kOtherApp), 1u);
  // ... and by logon point URL, trailing slash or not.
  AM_GATEWAY_INFO byUrl = {nullptr, L"https://gateway.example.com/logon/", 0, 0, 0};
  EXPECT_EQ(PalvonAuthManager_LogOffGateway(connection_, &byUrl), 0u);
  EXPECT_EQ(Status(kOtherApp), 0u);

  Trampoline(kOtherApp);
  // Logon state belongs to its connection.
  ConnectionHandle other = 0;
  ASSERT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &other), 0u);
  AMLogonStatus otherStatus = 77;
  EXPECT_EQ(PalvonAuthManager_GetLogonStatus(other, kOtherApp, &otherStatus), 0u);
  EXPECT_EQ(otherStatus, 0u);
  EXPECT_EQ(PalvonAuthManager_LogOff(connection_), 0u);
  EXPECT_EQ(Status(kOtherApp), 0u);
  Trampoline(kOtherApp);
  EXPECT_EQ(PalvonAuthManager_ClearAllCredentials(connection_), 0u);
  EXPECT_EQ(Status(kOtherApp), 0u);
}

TEST_F(Level1, ConfiguredTrampolineTemplateAndRules) {
  Start({}, R"(
[servers]
default_type = 0

[[servers.rule]]
prefix = "https://portal.corp.test/"
type = 2
friendly_name = "Corp & Co"
logon_point_url = "https://portal.corp.test/lp/"
edition = 3
auth_type = 7

[[servers.rule]]
prefix = "https://files.corp.test/"
type = 5

[trampoline]
template = "{gateway}/go/{connection}?u={url}&f={flags}{{x}}"
authentication_result = 4
)");
  AMChar* text = nullptr;
  AMAuthenticationResult result = 77;
  ASSERT_EQ(PalvonAuthManager_GenerateTrampolineUrl(connection_, L"https://portal.corp.test/x", 0x10, nullptr, &text,
                                                    &result),
            0u);
  EXPECT_EQ(Take(text), L"https://portal.corp.test/lp/go/" + std::to_wstring(connection_) +
                            L"?u=https%3A%2F%2Fportal.corp.test%2Fx&f=16{x}");
  EXPECT_EQ(result, 4u);

  ExpectServer(L"https://portal.corp.test/x", 2, L"Corp & Co", L"https://portal.corp.test/lp/", 3, 7);
  ExpectServer(L"https://files.corp.test/share", 5);
  ExpectServer(L"https://elsewhere.test/", 0);
}

TEST_F(Level1, DefaultServerRulesAndGatewayDiscovery) {
  Start();
  ExpectServer(kGatewayApp, 2, L"Example gateway", L"https://gateway.example.com/logon/", 1, 1);
  ExpectServer(kOtherApp, 1);

  AM_GATEWAY_INFO gateway = {L"A&B <gw>", L"https://gw.example.net/logon", 2, 3, 4};
  AMChar* data = nullptr;
  AMAuthenticationResult result = 77;
  ASSERT_EQ(PalvonAuthManager_RetrieveGatewayDiscoveryData(connection_, &gateway, 9, &data, &result), 0u);
  EXPECT_EQ(Take(data),
            L"<gateway name=\"A&amp;B &lt;gw&gt;\" logonPoint=\"https://gw.example.net/logon\" "
            L"edition=\"2\" authType=\"3\" rewriteRule=\"4\" flags=\"9\"/>");
  EXPECT_EQ(result, 0u);
}

TEST_F(Level1, VpnContextsHandOutAuthorizationUntilDestroyed) {
  Start();
  AM_GATEWAY_INFO gateway = {L"GW", L"https://gw.example.net/logon", 1, 2, 0};
  VpnAuthContextHandle first = 0;
  VpnAuthContextHandle second = 0;
  ASSERT_EQ(PalvonAuthManager_CreateVpnAuthContext(connection_, &gateway, 0, &first), 0u);
  ASSERT_EQ(PalvonAuthManager_CreateVpnAuthContext(connection_, &gateway, 0, &second), 0u);
  EXPECT_NE(first, 0u);
  EXPECT_NE(first, second);

  AM_VPN_AUTHORIZATION_INFO* one = nullptr;
  AM_VPN_AUTHORIZATION_INFO* two = nullptr;
  ASSERT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(first, &one), 0u);
  ASSERT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(second, &two), 0u);
  EXPECT_EQ(one->amAuthenticationResult, 0u);
  EXPECT_TRUE(std::regex_match(std::wstring(one->vpnauthorizationstr), std::wregex(L"vpn-[0-9a-f]{32}")));
  EXPECT_STRNE(one->vpnauthorizationstr, two->vpnauthorizationstr);
  EXPECT_STREQ(one->vpnsessionlogonpointurl, L"https://gw.example.net/logon");
  PalvonAuthManager_FreeVpnAuthorizationInfo(one);
  PalvonAuthManager_FreeVpnAuthorizationInfo(two);

  EXPECT_EQ(PalvonAuthManager_DestroyVpnAuthContext(first), 0u);
  AM_VPN_AUTHORIZATION_INFO* gone = nullptr;
  EXPECT_EQ(PalvonAuthManager_GetVpnAuthorizationInfo(first, &gone), 0xFFFAu);
  EXPECT_EQ(PalvonAuthManager_DestroyVpnAuthContext(first), 0xFFFAu);
  // Destroying the connection takes its remaining contexts along.
  ASSERT_EQ(PalvonAuthManager_DestroyConnection(connection_), 0u);
  EXPECT_EQ(PalvonAuthManager_DestroyVpnAuthContext(second), 0xFFFAu);
}

TEST_F(Level1, VersionTextClientWindowAndEveryRequestAndReplyAreLogged) {
  Start({"-v", "--version-text", "Reference build 7"});
  EXPECT_EQ(pam_test::VersionText(connection_), L"Reference build 7");
  AMWindowInfo window = {300, -5, 640, 480, L"Main wïndow", L"0x2a", nullptr};
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(connection_, &window), 0u);
  EXPECT_TRUE(
      daemon_->WaitForLog("window: name=\"Main wïndow\" id=\"0x2a\" amName=- left=-5 bottom=300 width=640 "
                          "height=480"))
      << daemon_->LogText();
  const std::string pid = std::to_string(getpid());
  const std::string handle = std::to_string(connection_);
  const std::string log = daemon_->LogText();
  for (const std::string& line :
       {"client " + pid + " <- GetServerSDKVersion (83) {}",
        "client " + pid + " <- CreateConnection (5) {connectionName=L\"tests\"",
        "client " + pid + " -> CreateConnection return=0 {AuthManagerHandle=" + handle + ", return=0}",
        "<- GetVersion (59) {AuthManagerHandle=" + handle + "}",
        "client " + pid + " -> GetVersion return=0 {version=L\"Reference build 7"}) {
    EXPECT_NE(log.find(line), std::string::npos) << line << "\n" << log;
  }
}

TEST_F(Level1, ReinitialisingStartsAFreshSession) {
  Start();
  const ConnectionHandle old = connection_;
  ASSERT_EQ(PalvonAuthManager_Uninitialize(), 0u);
  EXPECT_TRUE(daemon_->WaitForLog("uninitialised, released 1 connection(s)")) << daemon_->LogText();
  ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
  EXPECT_EQ(PalvonAuthManager_DestroyConnection(old), 0xFFFAu);
  ConnectionHandle fresh = 0;
  EXPECT_EQ(PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &fresh), 0u);
  EXPECT_NE(fresh, old);
  EXPECT_EQ(daemon_->CountInLog("client " + std::to_string(getpid()) + " registered\n"), 2u);
}
