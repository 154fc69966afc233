// palvonauth against the scriptable test service: every subcommand except
// http (palvonauth_http_test.cpp), in text and JSON form, with the requests
// the service received, exit codes and failure reports.
#include <dirent.h>
#include <gtest/gtest.h>

#include "ToolTestSupport.h"
#include "message/MessageTypes.h"

using namespace pam_test;
namespace msg = PalvonAuthManagerSDK::msg;

namespace {

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

// A service whose connections get handle 7.
struct ToolService {
  TestService service;
  Answers answers{service};
  ToolService() { answers.Always(msg::kCreateConnection, Reply::Return(0).UInt(L"AuthManagerHandle", 7)); }
};

std::vector<std::string> ListFolder(const std::string& path) {
  std::vector<std::string> names;
  if (DIR* dir = opendir(path.c_str())) {
    while (const dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(dir);
  }
  return names;
}

}  // namespace

TEST(ToolApiLevel, PrintsTheNegotiatedLevel) {
  TestService service;
  ChildResult text = RunTool({"api-level"});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_EQ(text.out, "apiLevel: 2\nhttp: true\n");

  service.SetVersion(1);
  ChildResult json = RunTool({"--json", "api-level"});
  EXPECT_EQ(json.exitCode, 0) << json.err;
  const Json document = ParseOutput(json);
  EXPECT_EQ(document["apiLevel"].UInt(), 1u);
  EXPECT_FALSE(document["http"].boolean);
  // Both runs initialised and uninitialised; no connection was needed.
  EXPECT_EQ(service.RequestsOfType(msg::kUninitialize).size(), 2u);
  EXPECT_TRUE(OperationTypes(service).empty());
}

TEST(ToolVersion, NonAsciiVersionTextIsPrintedAsUtf8) {
  ToolService s;
  s.answers.Always(msg::kGetVersion,
                   Reply::Return(0).Wide(L"version", L"3.1 \u00E9\u20AC\U0001F600 \"quoted\"\t\\end"));
  ChildResult text = RunTool({"version"});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_EQ(text.out, "connection: 7\nversion: 3.1 \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 \"quoted\"\t\\end\n");

  ChildResult json = RunTool({"--json", "version"});
  EXPECT_EQ(json.exitCode, 0) << json.err;
  const Json document = ParseOutput(json);
  EXPECT_EQ(document["version"].Str(), "3.1 \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 \"quoted\"\t\\end");
  EXPECT_EQ(document["connection"].UInt(), 7u);

  // Each run: create, ask on that connection, destroy that connection.
  EXPECT_EQ(OperationTypes(s.service),
            (std::vector<uint32_t>{msg::kCreateConnection, msg::kGetVersion, msg::kDestroyConnection,
                                   msg::kCreateConnection, msg::kGetVersion, msg::kDestroyConnection}));
  for (const auto& request : s.service.RequestsOfType(msg::kGetVersion)) {
    EXPECT_EQ(UIntOf(request, L"AuthManagerHandle"), 7u);
  }
  for (const auto& request : s.service.RequestsOfType(msg::kDestroyConnection)) {
    EXPECT_EQ(UIntOf(request, L"AuthManagerHandle"), 7u);
  }
  const auto creates = s.service.RequestsOfType(msg::kCreateConnection);
  EXPECT_FALSE(HasKey(creates[0], L"connectionName"));
}

TEST(ToolVersion, ConnectionNameIsSentWhenGiven) {
  ToolService s;
  s.answers.Always(msg::kGetVersion, Reply::Return(0).Wide(L"version", L"1"));
  ChildResult result = RunTool({"--connection-name", "n\u00E4me", "version"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kCreateConnection), L"connectionName"), L"n\u00E4me");
}

TEST(ToolFailures, ResultCodeIsPrintedWithNameAndMeaning) {
  ToolService s;
  s.answers.Always(msg::kGetVersion, Reply::Return(65530));
  ChildResult text = RunTool({"version"});
  EXPECT_EQ(text.exitCode, 1);
  EXPECT_TRUE(Contains(text.err,
                       "PalvonAuthManager_GetVersion failed with result 65530 (0xFFFA, "
                       "AM_RESULT_INVALID_HANDLE: invalid handle)"))
      << text.err;
  // Text mode keeps stdout for results only.
  EXPECT_EQ(text.out, "connection: 7\n");

  ChildResult json = RunTool({"version", "--json"});
  EXPECT_EQ(json.exitCode, 1);
  const Json document = ParseOutput(json);
  const Json& error = document["error"];
  EXPECT_EQ(error["function"].Str(), "PalvonAuthManager_GetVersion");
  EXPECT_EQ(error["result"].UInt(), 65530u);
  EXPECT_EQ(error["hex"].Str(), "0xFFFA");
  EXPECT_EQ(error["name"].Str(), "AM_RESULT_INVALID_HANDLE");
  EXPECT_EQ(error["meaning"].Str(), "invalid handle");
  // The connection is still destroyed and the library uninitialised.
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyConnection).size(), 2u);
  EXPECT_EQ(s.service.RequestsOfType(msg::kUninitialize).size(), 2u);
}

TEST(ToolFailures, UnknownCodesAreServiceDefined) {
  ToolService s;
  s.answers.Always(msg::kGetLogonStatus, Reply::Return(4242));
  ChildResult result = RunTool({"--json", "logon-status", "https://a.example/"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Contains(result.err, "4242 (0x1092, SERVICE_DEFINED: service-defined code)")) << result.err;
  EXPECT_EQ(ParseOutput(result)["error"]["meaning"].Str(), "service-defined code");
}

TEST(ToolFailures, RefusedInitialisationIsReported) {
  TestService service;
  service.Script(msg::kInitialize, {Reply::Return(65533)});
  ChildResult result = RunTool({"api-level"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Contains(result.err,
                       "PalvonAuthManager_Initialize failed with result 65533 (0xFFFD, "
                       "AM_RESULT_NOT_INITIALIZED: not initialised)"))
      << result.err;
}

TEST(ToolConnect, RunsEveryCallInOrderOnOneConnection) {
  ToolService s;
  s.answers.Always(msg::kGetVersion, Reply::Return(0).Wide(L"version", L"9.9"));
  s.answers.Always(msg::kGetLogonStatus, Reply::Return(0).UInt(L"logonStatus", 3));
  s.answers.Always(msg::kDetermineServerType, Reply::Return(0).UInt(L"serverType", 1));
  s.answers.Always(msg::kGenerateTrampolineUrl, Reply::Return(0).Wide(L"trampolineUrl", L"https://t/"));
  ChildResult result = RunTool({"--json", "connect",
                                "--call", "version",
                                "--call", "logon-status=https://l/",
                                "-c",     "server-type=https://s/",
                                "-c",     "clear-credentials",
                                "-c",     "cancel-calls",
                                "-c",     "window=10,-20,300,400,Main, window",
                                "-c",     "logoff-auth-service=https://a/",
                                "-c",     "logoff-gateway=https://g/",
                                "-c",     "trampoline=https://x/",
                                "-c",     "logoff"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(OperationTypes(s.service),
            (std::vector<uint32_t>{msg::kCreateConnection, msg::kGetVersion, msg::kGetLogonStatus,
                                   msg::kDetermineServerType, msg::kClearAllCredentials, msg::kCancelAllCalls,
                                   msg::kSetClientWindow, msg::kLogOffAuthService, msg::kLogOffGateway,
                                   msg::kGenerateTrampolineUrl, msg::kLogOff, msg::kDestroyConnection}));
  for (const auto& request : s.service.Requests()) {
    if (request.type == msg::kCreateConnection || request.type == msg::kGetServerSDKVersion ||
        request.type == msg::kInitialize || request.type == msg::kUninitialize) {
      continue;
    }
    EXPECT_EQ(UIntOf(request, L"AuthManagerHandle"), 7u) << "type " << request.type;
  }
  const Request window = OnlyRequest(s.service, msg::kSetClientWindow);
  EXPECT_EQ(UIntOf(window, L"winleft"), 10u);
  EXPECT_EQ(UIntOf(window, L"winbottom"), static_cast<uint32_t>(-20));
  EXPECT_EQ(UIntOf(window, L"winwidth"), 300u);
  EXPECT_EQ(UIntOf(window, L"winheight"), 400u);
  EXPECT_EQ(WideOf(window, L"winname"), L"Main, window");
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kLogOffGateway), L"logonPointUrl"), L"https://g/");

  const Json document = ParseOutput(result);
  const Json& calls = document["calls"];
  ASSERT_EQ(calls.items.size(), 10u);
  EXPECT_EQ(calls[0]["call"].Str(), "version");
  EXPECT_EQ(calls[0]["version"].Str(), "9.9");
  EXPECT_EQ(calls[1]["logonStatus"].UInt(), 3u);
  EXPECT_EQ(calls[2]["serverType"].UInt(), 1u);
  EXPECT_EQ(calls[5]["window"]["bottom"].number, -20);
  EXPECT_EQ(calls[8]["trampolineUrl"].Str(), "https://t/");
  EXPECT_EQ(calls[9]["call"].Str(), "logoff");
}

TEST(ToolConnect, StopsAtTheFirstFailureAndStillDestroysTheConnection) {
  ToolService s;
  s.answers.Always(msg::kGetLogonStatus, Reply::Return(65528));
  ChildResult text = RunTool({"connect", "-c", "logon-status=https://l/", "-c", "version"});
  EXPECT_EQ(text.exitCode, 1);
  EXPECT_EQ(text.out, "connection: 7\ncalls:\n  - call: logon-status\n");
  EXPECT_TRUE(Contains(text.err, "AM_RESULT_COMMUNICATION_FAILURE: communication failure")) << text.err;
  EXPECT_EQ(OperationTypes(s.service),
            (std::vector<uint32_t>{msg::kCreateConnection, msg::kGetLogonStatus, msg::kDestroyConnection}));

  ChildResult json = RunTool({"--json", "connect", "-c", "logon-status=https://l/", "-c", "version"});
  const Json document = ParseOutput(json);
  EXPECT_EQ(document["calls"].items.size(), 1u);
  EXPECT_EQ(document["error"]["function"].Str(), "PalvonAuthManager_GetLogonStatus");
  EXPECT_EQ(document["error"]["result"].UInt(), 65528u);
}

TEST(ToolConnect, MalformedCallsAreUsageErrorsBeforeAnyContact) {
  TestService service;
  for (const std::vector<std::string>& args : {std::vector<std::string>{"connect", "-c", "nonsense"},
                                               {"connect", "-c", "logon-status"},
                                               {"connect", "-c", "version=1"},
                                               {"connect", "-c", "window=1,2,3"},
                                               {"connect", "-c", "window=1,2,3,x"},
                                               {"connect", "-c", "window=1,2,3,99999999999"}}) {
    ChildResult result = RunTool(args);
    EXPECT_EQ(result.exitCode, 2) << args.back();
    EXPECT_FALSE(result.err.empty());
  }
  EXPECT_TRUE(service.Registrations().empty());
}

TEST(ToolServerType, GatewayDescriptionIsPrinted) {
  ToolService s;
  s.answers.Always(msg::kDetermineServerType, Reply::Return(0)
                                                  .UInt(L"serverType", 2)
                                                  .Wide(L"friendlyName", L"Gate \u00DF")
                                                  .Wide(L"logonPointUrl", L"https://gw/lp")
                                                  .UInt(L"amGatewayEdition", 4)
                                                  .UInt(L"amGatewayAuthType", 5));
  ChildResult text = RunTool({"server-type", "https://srv/"});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_EQ(text.out,
            "connection: 7\nurl: https://srv/\nserverType: 2\ngateway: true\ngatewayInfo:\n"
            "  friendlyName: Gate \xC3\x9F\n  logonPointUrl: https://gw/lp\n  edition: 4\n  authType: 5\n");
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kDetermineServerType), L"serviceUrl"), L"https://srv/");
}

TEST(ToolServerType, OtherTypesHaveNoGatewayAndBrokenRepliesFail) {
  ToolService s;
  s.service.Script(msg::kDetermineServerType,
                   {Reply::Return(0).UInt(L"serverType", 1),
                    // A gateway without its texts: the library reports a communication failure.
                    Reply::Return(0).UInt(L"serverType", 2)});
  const Json document = ParseOutput(RunTool({"--json", "server-type", "https://srv/"}));
  EXPECT_EQ(document["serverType"].UInt(), 1u);
  EXPECT_FALSE(document["gateway"].boolean);
  EXPECT_FALSE(document.Has("gatewayInfo"));

  ChildResult broken = RunTool({"server-type", "https://srv/"});
  EXPECT_EQ(broken.exitCode, 1);
  EXPECT_TRUE(Contains(broken.err, "65528")) << broken.err;
}

TEST(ToolDiscover, SendsTheWholeGatewayAndPrintsTheData) {
  ToolService s;
  s.answers.Always(msg::kRetrieveGatewayDiscoveryData,
                   Reply::Return(0).Wide(L"discoveryData", L"<d a=\"1\"/>\n").UInt(L"amAuthenticationResult", 6));
  ChildResult result = RunTool({"--json", "discover", "--name", "GW", "--logon-point", "https://gw/", "--edition", "3",
                                "--auth-type", "0x10", "--rewrite-rule", "9", "--flags", "4294967295"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  const Request request = OnlyRequest(s.service, msg::kRetrieveGatewayDiscoveryData);
  EXPECT_EQ(WideOf(request, L"friendlyName"), L"GW");
  EXPECT_EQ(WideOf(request, L"logonPointUrl"), L"https://gw/");
  EXPECT_EQ(UIntOf(request, L"amGatewayEdition"), 3u);
  EXPECT_EQ(UIntOf(request, L"amGatewayAuthType"), 16u);
  EXPECT_EQ(UIntOf(request, L"amGatewayReWriteRule"), 9u);
  EXPECT_EQ(UIntOf(request, L"authenticationFlags"), 4294967295u);
  const Json document = ParseOutput(result);
  EXPECT_EQ(document["discoveryData"].Str(), "<d a=\"1\"/>\n");
  EXPECT_EQ(document["authenticationResult"].UInt(), 6u);
}

TEST(ToolDiscover, OmittedTextsAreNotSentAndOutOfRangeNumbersAreRejected) {
  ToolService s;
  s.answers.Always(msg::kRetrieveGatewayDiscoveryData, Reply::Return(0).Wide(L"discoveryData", L""));
  ChildResult result = RunTool({"discover"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  const Request request = OnlyRequest(s.service, msg::kRetrieveGatewayDiscoveryData);
  EXPECT_FALSE(HasKey(request, L"friendlyName"));
  EXPECT_FALSE(HasKey(request, L"logonPointUrl"));
  EXPECT_EQ(UIntOf(request, L"amGatewayEdition"), 0u);

  EXPECT_EQ(RunTool({"discover", "--flags", "4294967296"}).exitCode, 2);
  EXPECT_EQ(RunTool({"discover", "--edition", "-1"}).exitCode, 2);
}

TEST(ToolLogonStatus, NonAsciiUrlArrivesAsUtf32) {
  ToolService s;
  s.answers.Always(msg::kGetLogonStatus, Reply::Return(0).UInt(L"logonStatus", 1));
  ChildResult result = RunTool({"logon-status",
                                "https://b\xC3\xBC"
                                "cher.example/\xE2\x82\xAC?\xF0\x9F\x98\x80"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kGetLogonStatus), L"serviceUrl"),
            L"https://b\u00FCcher.example/\u20AC?\U0001F600");
  EXPECT_TRUE(Contains(result.out, "logonStatus: 1\n")) << result.out;
  // Bytes that are no UTF-8 reach the service as U+FFFD, never as raw bytes.
  RunTool({"logon-status", "x\xFFy"});
  EXPECT_EQ(WideOf(s.service.RequestsOfType(msg::kGetLogonStatus).back(), L"serviceUrl"), L"x\uFFFDy");
}

TEST(ToolLogoff, ConnectionGatewayAndAuthServiceForms) {
  ToolService s;
  EXPECT_EQ(RunTool({"logoff"}).exitCode, 0);
  const Json gateway = ParseOutput(
      RunTool({"--json", "logoff", "--gateway", "https://gw/", "--name", "G", "--edition", "2", "--auth-type", "3"}));
  EXPECT_EQ(gateway["loggedOff"].Str(), "gateway");
  const Json service = ParseOutput(RunTool({"--json", "logoff", "--auth-service", "https://as/"}));
  EXPECT_EQ(service["loggedOff"].Str(), "auth-service");
  EXPECT_EQ(OperationTypes(s.service),
            (std::vector<uint32_t>{msg::kCreateConnection, msg::kLogOff, msg::kDestroyConnection,
                                   msg::kCreateConnection, msg::kLogOffGateway, msg::kDestroyConnection,
                                   msg::kCreateConnection, msg::kLogOffAuthService, msg::kDestroyConnection}));
  const Request request = OnlyRequest(s.service, msg::kLogOffGateway);
  EXPECT_EQ(WideOf(request, L"logonPointUrl"), L"https://gw/");
  EXPECT_EQ(WideOf(request, L"friendlyName"), L"G");
  EXPECT_EQ(UIntOf(request, L"amGatewayEdition"), 2u);
  EXPECT_EQ(UIntOf(request, L"amGatewayAuthType"), 3u);
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kLogOffAuthService), L"serviceUrl"), L"https://as/");
  // Both targets at once is a usage error.
  EXPECT_EQ(RunTool({"logoff", "--gateway", "a", "--auth-service", "b"}).exitCode, 2);
}

TEST(ToolTrampoline, ReferenceUrlAndFlagsAreSentOnlyWhenGiven) {
  ToolService s;
  s.answers.Always(msg::kGenerateTrampolineUrl,
                   Reply::Return(0).Wide(L"trampolineUrl", L"https://t/?\u00E9").UInt(L"amAuthenticationResult", 2));
  ChildResult text = RunTool({"trampoline", "https://svc/", "--ref", "https://ref/", "--flags", "12"});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_EQ(text.out, "connection: 7\ntrampolineUrl: https://t/?\xC3\xA9\nauthenticationResult: 2\n");
  ChildResult plain = RunTool({"trampoline", "https://svc/"});
  EXPECT_EQ(plain.exitCode, 0) << plain.err;
  const auto requests = s.service.RequestsOfType(msg::kGenerateTrampolineUrl);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(WideOf(requests[0], L"serviceUrl"), L"https://svc/");
  EXPECT_EQ(WideOf(requests[0], L"optionaleReferenceUrl"), L"https://ref/");
  EXPECT_EQ(UIntOf(requests[0], L"authenticationFlags"), 12u);
  EXPECT_FALSE(HasKey(requests[1], L"optionaleReferenceUrl"));
  EXPECT_EQ(UIntOf(requests[1], L"authenticationFlags"), 0u);
}

TEST(ToolVpn, CreatesFetchesAndDestroysTheContext) {
  ToolService s;
  s.answers.Always(msg::kCreateVpnAuthContext, Reply::Return(0).UInt(L"vpnauthcontexthandle", 33));
  s.answers.Always(msg::kGetVpnAuthorizationInfo, Reply::Return(0)
                                                      .UInt(L"amAuthenticationResult", 1)
                                                      .Wide(L"vpnauthorizationstr", L"token \u2713")
                                                      .Wide(L"vpnsessionlogonpointurl", L"https://vpn/"));
  ChildResult json =
      RunTool({"--json", "vpn", "https://gw/", "--name", "GW", "--edition", "1", "--auth-type", "2", "--flags", "8"});
  EXPECT_EQ(json.exitCode, 0) << json.err;
  EXPECT_EQ(OperationTypes(s.service),
            (std::vector<uint32_t>{msg::kCreateConnection, msg::kCreateVpnAuthContext, msg::kGetVpnAuthorizationInfo,
                                   msg::kDestroyVpnAuthContext, msg::kDestroyConnection}));
  const Request create = OnlyRequest(s.service, msg::kCreateVpnAuthContext);
  EXPECT_EQ(UIntOf(create, L"AuthManagerHandle"), 7u);
  EXPECT_EQ(WideOf(create, L"logonPointUrl"), L"https://gw/");
  EXPECT_EQ(WideOf(create, L"friendlyName"), L"GW");
  EXPECT_EQ(UIntOf(create, L"authenticationFlags"), 8u);
  EXPECT_FALSE(HasKey(create, L"amGatewayReWriteRule"));
  EXPECT_EQ(UIntOf(OnlyRequest(s.service, msg::kGetVpnAuthorizationInfo), L"vpnauthcontexthandle"), 33u);
  EXPECT_EQ(UIntOf(OnlyRequest(s.service, msg::kDestroyVpnAuthContext), L"vpnauthcontexthandle"), 33u);
  const Json document = ParseOutput(json);
  EXPECT_EQ(document["context"].UInt(), 33u);
  EXPECT_EQ(document["authenticationResult"].UInt(), 1u);
  EXPECT_EQ(document["authorization"].Str(), "token \xE2\x9C\x93");
  EXPECT_EQ(document["sessionLogonPointUrl"].Str(), "https://vpn/");
}

TEST(ToolVpn, FailedFetchStillDestroysTheContext) {
  ToolService s;
  s.answers.Always(msg::kCreateVpnAuthContext, Reply::Return(0).UInt(L"vpnauthcontexthandle", 33));
  // Success without the texts: a partly filled record, released by the tool.
  s.answers.Always(msg::kGetVpnAuthorizationInfo, Reply::Return(0).UInt(L"amAuthenticationResult", 1));
  ChildResult result = RunTool({"vpn", "https://gw/"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Contains(result.err, "PalvonAuthManager_GetVpnAuthorizationInfo failed with result 65528")) << result.err;
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyVpnAuthContext).size(), 1u);
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyConnection).size(), 1u);
}

TEST(ToolLaunch, ArgumentsAreSentByteForByte) {
  TestService service;
  Answers answers(service);
  answers.Always(msg::kLaunchRZPFile, Reply::Return(0).UInt(L"currentStatus", 5));
  ChildResult text = RunTool({"launch", "--url", "https://l/f.rzp", "--", "-a", "\xC3\xBC", "--json", ""});
  EXPECT_EQ(text.exitCode, 0) << text.err;
  EXPECT_EQ(text.out, "status: 5\narguments: 4\n");
  const Request request = OnlyRequest(service, msg::kLaunchRZPFile);
  EXPECT_EQ(UIntOf(request, L"NumberOfArgs"), 4u);
  EXPECT_EQ(NarrowOf(request, L"LaunchURL"), "https://l/f.rzp");
  EXPECT_EQ(NarrowOf(request, L"TrelkArg0"), "-a");
  EXPECT_EQ(NarrowOf(request, L"TrelkArg1"), "\xC3\xBC");
  EXPECT_EQ(NarrowOf(request, L"TrelkArg2"), "--json");
  EXPECT_EQ(NarrowOf(request, L"TrelkArg3"), "");
  // No connection is involved.
  EXPECT_EQ(OperationTypes(service), std::vector<uint32_t>{msg::kLaunchRZPFile});
}

TEST(ToolLaunch, WithoutUrlAndAtLevelOne) {
  TestService service;
  Answers answers(service);
  answers.Always(msg::kLaunchRZPFile, Reply::Return(0).UInt(L"currentStatus", 0));
  const Json document = ParseOutput(RunTool({"--json", "launch"}));
  EXPECT_EQ(document["status"].UInt(), 0u);
  EXPECT_EQ(document["arguments"].UInt(), 0u);
  const Request request = OnlyRequest(service, msg::kLaunchRZPFile);
  EXPECT_FALSE(HasKey(request, L"LaunchURL"));
  EXPECT_EQ(UIntOf(request, L"NumberOfArgs"), 0u);

  Answers levelOne(service, 1);
  ChildResult result = RunTool({"launch", "--", "x"});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_TRUE(Contains(result.err,
                       "65525 (0xFFF5, AM_RESULT_NOT_IMPLEMENTED: not implemented / not available at "
                       "this API level)"))
      << result.err;
}

TEST(ToolTrace, TraceFileIsWrittenAndItsPathPrinted) {
  TestService service;
  ChildResult result = RunTool({"--trace", "--json", "api-level"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  ASSERT_EQ(service.Registrations().size(), 1u);
  const std::string pid = std::to_string(service.Registrations()[0]);
  const Json document = ParseOutput(result);
  const std::string path = document["traceFile"].Str();
  EXPECT_EQ(path.rfind(Home() + "/.RZPClient/logs/AuthManagerSDK-", 0), 0u) << path;
  EXPECT_TRUE(Contains(path, "-" + pid + "-")) << path;
  EXPECT_TRUE(Contains(result.err, "trace written to " + path)) << result.err;
  const std::string trace = ReadWholeFile(path);
  EXPECT_TRUE(Contains(trace, "Authentication Manager Static SDK")) << trace;
  EXPECT_TRUE(Contains(trace, "PalvonAuthManager_GetApiLevel")) << trace;
  EXPECT_TRUE(Contains(trace, "Uninitialize Ends")) << trace;
}

TEST(ToolTrace, NoTraceWithoutTheSwitch) {
  TestService service;
  ChildResult result = RunTool({"api-level"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  EXPECT_TRUE(ListFolder(Home() + "/.RZPClient/logs").empty());
  EXPECT_TRUE(result.err.empty()) << result.err;
}

TEST(ToolHelp, EverySubcommandHasHelp) {
  for (const char* command : {"api-level", "version", "connect", "server-type", "discover", "logon-status", "logoff",
                              "trampoline", "vpn", "http", "launch"}) {
    ChildResult result = RunChild({ToolPath(), command, "--help"});
    EXPECT_EQ(result.exitCode, 0) << command;
    EXPECT_TRUE(Contains(result.out, std::string("Usage: palvonauth ") + command)) << result.out;
  }
  ChildResult top = RunChild({ToolPath(), "--help"});
  EXPECT_EQ(top.exitCode, 0);
  EXPECT_TRUE(Contains(top.out, "Exit codes:")) << top.out;
}

TEST(ToolUsage, ParseErrorsExitWithTwo) {
  EXPECT_EQ(RunChild({ToolPath()}).exitCode, 2);
  EXPECT_EQ(RunChild({ToolPath(), "no-such-command"}).exitCode, 2);
  EXPECT_EQ(RunChild({ToolPath(), "server-type"}).exitCode, 2);
  EXPECT_EQ(RunChild({ToolPath(), "--wait", "-1", "api-level"}).exitCode, 2);
  EXPECT_EQ(RunChild({ToolPath(), "version", "--no-such-option"}).exitCode, 2);
}

TEST(ToolNoService, GivesUpAfterTheWaitAndRemovesItsPipes) {
  ChildResult text = RunChild({ToolPath(), "--wait", "0.3", "version"});
  EXPECT_EQ(text.exitCode, 3);
  EXPECT_TRUE(Contains(text.err, "no authentication-manager service took the registration within 0.3 s")) << text.err;
  EXPECT_TRUE(text.out.empty());

  ChildResult json = RunChild({ToolPath(), "--json", "--wait", "0.3", "api-level"});
  EXPECT_EQ(json.exitCode, 3);
  EXPECT_EQ(ParseOutput(json)["error"]["exitCode"].UInt(), 3u);
  // Only the registration pipe is left: the tool removed its own pair.
  EXPECT_EQ(ListFolder(Home() + "/.RZPClient/.tmp"), std::vector<std::string>{".AuthManagerListnerPipe"});
}
