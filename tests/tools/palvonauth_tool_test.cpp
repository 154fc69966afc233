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
  EXPECT_RUN(RunTool({"api-level"}), 0, "apiLevel: 2\nhttp: true\n");
  service.SetVersion(1);
  EXPECT_RUN(RunTool({"--json", "api-level"}), 0, "{\"apiLevel\":1,\"http\":false}\n");
  // Both runs initialised and uninitialised; no connection was needed.
  EXPECT_EQ(service.RequestsOfType(msg::kUninitialize).size(), 2u);
  EXPECT_TRUE(OperationTypes(service).empty());
}

TEST(ToolVersion, NonAsciiVersionTextIsPrintedAsUtf8) {
  ToolService s;
  s.answers.Always(msg::kGetVersion,
                   Reply::Return(0).Wide(L"version", L"3.1 \u00E9\u20AC\U0001F600 \"quoted\"\t\\end"));
  EXPECT_RUN(RunTool({"version"}), 0,
             "connection: 7\nversion: 3.1 \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 \"quoted\"\t\\end\n");
  EXPECT_RUN(RunTool({"--json", "version"}), 0,
             "{\"connection\":7,\"version\":\"3.1 \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 \\\"quoted\\\"\\t\\\\end\"}\n");

  // Each run: create, ask on that connection, destroy that connection.
  EXPECT_EQ(OperationTypes(s.service),
            (std::vector<uint32_t>{msg::kCreateConnection, msg::kGetVersion, msg::kDestroyConnection,
                                   msg::kCreateConnection, msg::kGetVersion, msg::kDestroyConnection}));
  for (uint32_t type : {msg::kGetVersion, msg::kDestroyConnection}) {
    for (const auto& request : s.service.RequestsOfType(type)) EXPECT_EQ(UIntOf(request, L"AuthManagerHandle"), 7u);
  }
  EXPECT_FALSE(HasKey(s.service.RequestsOfType(msg::kCreateConnection)[0], L"connectionName"));

  EXPECT_EQ(RunTool({"--connection-name", "n\u00E4me", "version"}).exitCode, 0);
  EXPECT_EQ(WideOf(s.service.RequestsOfType(msg::kCreateConnection).back(), L"connectionName"), L"n\u00E4me");
}

TEST(ToolFailures, ResultCodeIsPrintedWithNameAndMeaning) {
  ToolService s;
  s.answers.Always(msg::kGetVersion, Reply::Return(65530));
  // Text mode keeps stdout for results only.
  ChildResult text = RunTool({"version"});
  EXPECT_RUN(text, 1, "connection: 7\n");
  EXPECT_TRUE(Contains(text.err,
                       "PalvonAuthManager_GetVersion failed with result 65530 (0xFFFA, "
                       "AM_RESULT_INVALID_HANDLE: invalid handle)"))
      << text.err;
  EXPECT_RUN(RunTool({"version", "--json"}), 1,
             "{\"connection\":7,\"error\":{\"function\":\"PalvonAuthManager_GetVersion\",\"result\":65530,"
             "\"hex\":\"0xFFFA\",\"name\":\"AM_RESULT_INVALID_HANDLE\",\"meaning\":\"invalid handle\"}}\n");
  // The connection is still destroyed and the library uninitialised.
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyConnection).size(), 2u);
  EXPECT_EQ(s.service.RequestsOfType(msg::kUninitialize).size(), 2u);

  // Codes outside the table are the service's own.
  s.answers.Always(msg::kGetLogonStatus, Reply::Return(4242));
  ChildResult unknown = RunTool({"--json", "logon-status", "https://a.example/"});
  EXPECT_RUN(unknown, 1,
             "{\"connection\":7,\"error\":{\"function\":\"PalvonAuthManager_GetLogonStatus\",\"result\":4242,"
             "\"hex\":\"0x1092\",\"name\":\"SERVICE_DEFINED\",\"meaning\":\"service-defined code\"}}\n");
  EXPECT_TRUE(Contains(unknown.err, "4242 (0x1092, SERVICE_DEFINED: service-defined code)")) << unknown.err;
}

TEST(ToolFailures, RefusedInitialisationIsReported) {
  TestService service;
  service.Script(msg::kInitialize, {Reply::Return(65533)});
  EXPECT_FAILS(RunTool({"api-level"}), 1,
               "PalvonAuthManager_Initialize failed with result 65533 (0xFFFD, "
               "AM_RESULT_NOT_INITIALIZED: not initialised)");
}

TEST(ToolConnect, RunsEveryCallInOrderOnOneConnection) {
  ToolService s;
  s.answers.Always(msg::kGetVersion, Reply::Return(0).Wide(L"version", L"9.9"));
  s.answers.Always(msg::kGetLogonStatus, Reply::Return(0).UInt(L"logonStatus", 3));
  s.answers.Always(msg::kDetermineServerType, Reply::Return(0).UInt(L"serverType", 1));
  s.answers.Always(msg::kGenerateTrampolineUrl, Reply::Return(0).Wide(L"trampolineUrl", L"https://t/"));
  // clang-format off
  EXPECT_RUN(RunTool({"--json", "connect", "--call", "version", "--call", "logon-status=https://l/",
                      "-c", "server-type=https://s/", "-c", "clear-credentials", "-c", "cancel-calls",
                      "-c", "window=10,-20,300,400,Main, window", "-c", "logoff-auth-service=https://a/",
                      "-c", "logoff-gateway=https://g/", "-c", "trampoline=https://x/", "-c", "logoff"}),
             // clang-format on
             0,
             "{\"connection\":7,\"calls\":[{\"call\":\"version\",\"version\":\"9.9\"},"
             "{\"call\":\"logon-status\",\"url\":\"https://l/\",\"logonStatus\":3},"
             "{\"call\":\"server-type\",\"url\":\"https://s/\",\"serverType\":1,\"gateway\":false},"
             "{\"call\":\"clear-credentials\",\"credentialsCleared\":true},"
             "{\"call\":\"cancel-calls\",\"callsCancelled\":true},"
             "{\"call\":\"window\",\"window\":{\"left\":10,\"bottom\":-20,\"width\":300,\"height\":400,"
             "\"name\":\"Main, window\"}},"
             "{\"call\":\"logoff-auth-service\",\"loggedOff\":\"auth-service\",\"url\":\"https://a/\"},"
             "{\"call\":\"logoff-gateway\",\"loggedOff\":\"gateway\",\"url\":\"https://g/\"},"
             "{\"call\":\"trampoline\",\"trampolineUrl\":\"https://t/\",\"authenticationResult\":0},"
             "{\"call\":\"logoff\",\"loggedOff\":\"connection\"}]}\n");
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
}

TEST(ToolConnect, StopsAtTheFirstFailureAndStillDestroysTheConnection) {
  ToolService s;
  s.answers.Always(msg::kGetLogonStatus, Reply::Return(65528));
  ChildResult text = RunTool({"connect", "-c", "logon-status=https://l/", "-c", "version"});
  EXPECT_RUN(text, 1, "connection: 7\ncalls:\n  - call: logon-status\n");
  EXPECT_TRUE(Contains(text.err, "AM_RESULT_COMMUNICATION_FAILURE: communication failure")) << text.err;
  EXPECT_EQ(OperationTypes(s.service),
            (std::vector<uint32_t>{msg::kCreateConnection, msg::kGetLogonStatus, msg::kDestroyConnection}));
  EXPECT_RUN(RunTool({"--json", "connect", "-c", "logon-status=https://l/", "-c", "version"}), 1,
             "{\"connection\":7,\"calls\":[{\"call\":\"logon-status\"}],\"error\":{\"function\":"
             "\"PalvonAuthManager_GetLogonStatus\",\"result\":65528,\"hex\":\"0xFFF8\",\"name\":"
             "\"AM_RESULT_COMMUNICATION_FAILURE\",\"meaning\":\"communication failure\"}}\n");
}

TEST(ToolUsage, ParseErrorsExitWithTwoBeforeAnyContact) {
  TestService service;
  // clang-format off
  for (const std::vector<std::string>& args : {std::vector<std::string>{}, {"no-such-command"}, {"server-type"},
       {"--wait", "-1", "api-level"}, {"version", "--no-such-option"}, {"connect", "-c", "nonsense"},
       {"connect", "-c", "logon-status"}, {"connect", "-c", "version=1"}, {"connect", "-c", "window=1,2,3"},
       {"connect", "-c", "window=1,2,3,x"}, {"connect", "-c", "window=1,2,3,99999999999"},
       {"discover", "--flags", "4294967296"}, {"discover", "--edition", "-1"},
       {"logoff", "--gateway", "a", "--auth-service", "b"}}) {
    // clang-format on
    std::vector<std::string> argv = {ToolPath()};
    argv.insert(argv.end(), args.begin(), args.end());
    ChildResult result = RunChild(argv);
    EXPECT_EQ(result.exitCode, 2) << testing::PrintToString(args);
    EXPECT_FALSE(result.err.empty()) << testing::PrintToString(args);
  }
  EXPECT_TRUE(service.Registrations().empty());
}

TEST(ToolServerType, GatewayDescriptionIsPrintedOtherTypesHaveNoneAndBrokenRepliesFail) {
  ToolService s;
  s.service.Script(msg::kDetermineServerType, {Reply::Return(0)
                                                   .UInt(L"serverType", 2)
                                                   .Wide(L"friendlyName", L"Gate \u00DF")
                                                   .Wide(L"logonPointUrl", L"https://gw/lp")
                                                   .UInt(L"amGatewayEdition", 4)
                                                   .UInt(L"amGatewayAuthType", 5),
                                               Reply::Return(0).UInt(L"serverType", 1),
                                               // A gateway without its texts: a communication failure.
                                               Reply::Return(0).UInt(L"serverType", 2)});
  EXPECT_RUN(RunTool({"server-type", "https://srv/"}), 0,
             "connection: 7\nurl: https://srv/\nserverType: 2\ngateway: true\ngatewayInfo:\n"
             "  friendlyName: Gate \xC3\x9F\n  logonPointUrl: https://gw/lp\n  edition: 4\n  authType: 5\n");
  EXPECT_EQ(WideOf(s.service.RequestsOfType(msg::kDetermineServerType)[0], L"serviceUrl"), L"https://srv/");
  EXPECT_RUN(RunTool({"--json", "server-type", "https://srv/"}), 0,
             "{\"connection\":7,\"url\":\"https://srv/\",\"serverType\":1,\"gateway\":false}\n");
  EXPECT_FAILS(RunTool({"server-type", "https://srv/"}), 1, "65528");
}

TEST(ToolDiscover, SendsTheWholeGatewayOrOnlyWhatIsGiven) {
  ToolService s;
  s.service.Script(msg::kRetrieveGatewayDiscoveryData,
                   {Reply::Return(0).Wide(L"discoveryData", L"<d a=\"1\"/>\n").UInt(L"amAuthenticationResult", 6),
                    Reply::Return(0).Wide(L"discoveryData", L"")});
  EXPECT_RUN(RunTool({"--json", "discover", "--name", "GW", "--logon-point", "https://gw/", "--edition", "3",
                      "--auth-type", "0x10", "--rewrite-rule", "9", "--flags", "4294967295"}),
             0, "{\"connection\":7,\"discoveryData\":\"<d a=\\\"1\\\"/>\\n\",\"authenticationResult\":6}\n");
  EXPECT_EQ(RunTool({"discover"}).exitCode, 0);
  const auto requests = s.service.RequestsOfType(msg::kRetrieveGatewayDiscoveryData);
  ASSERT_EQ(requests.size(), 2u);
  EXPECT_EQ(WideOf(requests[0], L"friendlyName"), L"GW");
  EXPECT_EQ(WideOf(requests[0], L"logonPointUrl"), L"https://gw/");
  EXPECT_EQ(UIntOf(requests[0], L"amGatewayEdition"), 3u);
  EXPECT_EQ(UIntOf(requests[0], L"amGatewayAuthType"), 16u);
  EXPECT_EQ(UIntOf(requests[0], L"amGatewayReWriteRule"), 9u);
  EXPECT_EQ(UIntOf(requests[0], L"authenticationFlags"), 4294967295u);
  // Omitted texts are not sent at all.
  EXPECT_FALSE(HasKey(requests[1], L"friendlyName"));
  EXPECT_FALSE(HasKey(requests[1], L"logonPointUrl"));
  EXPECT_EQ(UIntOf(requests[1], L"amGatewayEdition"), 0u);
}

TEST(ToolLogonStatus, NonAsciiUrlArrivesAsUtf32) {
  ToolService s;
  s.answers.Always(msg::kGetLogonStatus, Reply::Return(0).UInt(L"logonStatus", 1));
  const std::string url =
      "https://b\xC3\xBC"
      "cher.example/\xE2\x82\xAC?\xF0\x9F\x98\x80";
  EXPECT_RUN(RunTool({"logon-status", url}), 0, "connection: 7\nurl: " + url + "\nlogonStatus: 1\n");
  EXPECT_EQ(WideOf(OnlyRequest(s.service, msg::kGetLogonStatus), L"serviceUrl"),
            L"https://b\u00FCcher.example/\u20AC?\U0001F600");
  // Bytes that are no UTF-8 reach the service as U+FFFD, never as raw bytes.
  RunTool({"logon-status", "x\xFFy"});
  EXPECT_EQ(WideOf(s.service.RequestsOfType(msg::kGetLogonStatus).back(), L"serviceUrl"), L"x\uFFFDy");
}

TEST(ToolLogoff, ConnectionGatewayAndAuthServiceForms) {
  ToolService s;
  EXPECT_EQ(RunTool({"logoff"}).exitCode, 0);
  EXPECT_RUN(
      RunTool({"--json", "logoff", "--gateway", "https://gw/", "--name", "G", "--edition", "2", "--auth-type", "3"}), 0,
      "{\"connection\":7,\"loggedOff\":\"gateway\",\"url\":\"https://gw/\"}\n");
  EXPECT_RUN(RunTool({"--json", "logoff", "--auth-service", "https://as/"}), 0,
             "{\"connection\":7,\"loggedOff\":\"auth-service\",\"url\":\"https://as/\"}\n");
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
}

TEST(ToolTrampoline, ReferenceUrlAndFlagsAreSentOnlyWhenGiven) {
  ToolService s;
  s.answers.Always(msg::kGenerateTrampolineUrl,
                   Reply::Return(0).Wide(L"trampolineUrl", L"https://t/?\u00E9").UInt(L"amAuthenticationResult", 2));
  EXPECT_RUN(RunTool({"trampoline", "https://svc/", "--ref", "https://ref/", "--flags", "12"}), 0,
             "connection: 7\ntrampolineUrl: https://t/?\xC3\xA9\nauthenticationResult: 2\n");
  EXPECT_EQ(RunTool({"trampoline", "https://svc/"}).exitCode, 0);
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
  EXPECT_RUN(
      RunTool({"--json", "vpn", "https://gw/", "--name", "GW", "--edition", "1", "--auth-type", "2", "--flags", "8"}),
      0,
      "{\"connection\":7,\"context\":33,\"authenticationResult\":1,\"authorization\":\"token \xE2\x9C\x93\","
      "\"sessionLogonPointUrl\":\"https://vpn/\"}\n");
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
}

TEST(ToolVpn, FailedFetchStillDestroysTheContext) {
  ToolService s;
  s.answers.Always(msg::kCreateVpnAuthContext, Reply::Return(0).UInt(L"vpnauthcontexthandle", 33));
  // Success without the texts: the fetch fails, the context still goes.
  s.answers.Always(msg::kGetVpnAuthorizationInfo, Reply::Return(0).UInt(L"amAuthenticationResult", 1));
  EXPECT_FAILS(RunTool({"vpn", "https://gw/"}), 1,
               "PalvonAuthManager_GetVpnAuthorizationInfo failed with result 65528");
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyVpnAuthContext).size(), 1u);
  EXPECT_EQ(s.service.RequestsOfType(msg::kDestroyConnection).size(), 1u);
}

TEST(ToolLaunch, ArgumentsAreSentByteForByte) {
  TestService service;
  Answers answers(service);
  answers.Always(msg::kLaunchRZPFile, Reply::Return(0).UInt(L"currentStatus", 5));
  EXPECT_RUN(RunTool({"launch", "--url", "https://l/f.rzp", "--", "-a", "\xC3\xBC", "--json", ""}), 0,
             "status: 5\narguments: 4\n");
  EXPECT_RUN(RunTool({"--json", "launch"}), 0, "{\"status\":5,\"arguments\":0}\n");
  // No connection is involved.
  EXPECT_EQ(OperationTypes(service), (std::vector<uint32_t>{msg::kLaunchRZPFile, msg::kLaunchRZPFile}));
  const auto requests = service.RequestsOfType(msg::kLaunchRZPFile);
  EXPECT_EQ(UIntOf(requests[0], L"NumberOfArgs"), 4u);
  EXPECT_EQ(NarrowOf(requests[0], L"LaunchURL"), "https://l/f.rzp");
  EXPECT_EQ(NarrowOf(requests[0], L"TrelkArg0"), "-a");
  EXPECT_EQ(NarrowOf(requests[0], L"TrelkArg1"), "\xC3\xBC");
  EXPECT_EQ(NarrowOf(requests[0], L"TrelkArg2"), "--json");
  EXPECT_EQ(NarrowOf(requests[0], L"TrelkArg3"), "");
  EXPECT_FALSE(HasKey(requests[1], L"LaunchURL"));
  EXPECT_EQ(UIntOf(requests[1], L"NumberOfArgs"), 0u);

  Answers levelOne(service, 1);
  EXPECT_FAILS(RunTool({"launch", "--", "x"}), 1,
               "65525 (0xFFF5, AM_RESULT_NOT_IMPLEMENTED: not implemented / not available at "
               "this API level)");
}

TEST(ToolTrace, TraceFileIsWrittenAndItsPathPrintedOnlyWithTheSwitch) {
  TestService service;
  ChildResult plain = RunTool({"api-level"});
  EXPECT_EQ(plain.exitCode, 0) << plain.err;
  EXPECT_TRUE(ListFolder(Home() + "/.RZPClient/logs").empty());
  EXPECT_TRUE(plain.err.empty()) << plain.err;

  ChildResult result = RunTool({"--trace", "--json", "api-level"});
  EXPECT_EQ(result.exitCode, 0) << result.err;
  ASSERT_EQ(service.Registrations().size(), 2u);
  const std::string pid = std::to_string(service.Registrations()[1]);
  const std::string path = JsonString(result.out, "traceFile");
  EXPECT_EQ(result.out, "{\"apiLevel\":2,\"http\":true,\"traceFile\":\"" + path + "\"}\n");
  EXPECT_EQ(path.rfind(Home() + "/.RZPClient/logs/AuthManagerSDK-", 0), 0u) << path;
  EXPECT_TRUE(Contains(path, "-" + pid + "-")) << path;
  EXPECT_TRUE(Contains(result.err, "trace written to " + path)) << result.err;
  const std::string trace = ReadWholeFile(path);
  for (const char* part : {"Authentication Manager Static SDK", "PalvonAuthManager_GetApiLevel", "Uninitialize Ends"}) {
    EXPECT_TRUE(Contains(trace, part)) << trace;
  }
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

TEST(ToolNoService, GivesUpAfterTheWaitAndRemovesItsPipes) {
  ChildResult text = RunChild({ToolPath(), "--wait", "0.3", "version"});
  EXPECT_RUN(text, 3, "");
  EXPECT_TRUE(Contains(text.err, "no authentication-manager service took the registration within 0.3 s")) << text.err;
  ChildResult json = RunChild({ToolPath(), "--json", "--wait", "0.3", "api-level"});
  EXPECT_EQ(json.exitCode, 3);
  EXPECT_TRUE(Contains(json.out, ",\"exitCode\":3}}\n")) << json.out;
  // Only the registration pipe is left: the tool removed its own pair.
  EXPECT_EQ(ListFolder(Home() + "/.RZPClient/.tmp"), std::vector<std::string>{".AuthManagerListnerPipe"});
}
