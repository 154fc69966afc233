// `connect`: one connection, a sequence of calls on it, in the order given.
#include <memory>
#include <vector>

#include "commands/Commands.h"
#include "commands/ConnectionCalls.h"

namespace palvonauth {

namespace {

enum class CallKind {
  kVersion,
  kLogonStatus,
  kServerType,
  kTrampoline,
  kLogOff,
  kLogOffAuthService,
  kLogOffGateway,
  kClearCredentials,
  kCancelCalls,
  kWindow,
};

struct PlannedCall {
  CallKind kind = CallKind::kVersion;
  std::string name;
  std::string argument;
  WindowGeometry window;
};

struct CallName {
  const char* name;
  CallKind kind;
  bool takesArgument;
};

constexpr CallName kCalls[] = {
    {"version", CallKind::kVersion, false},
    {"logon-status", CallKind::kLogonStatus, true},
    {"server-type", CallKind::kServerType, true},
    {"trampoline", CallKind::kTrampoline, true},
    {"logoff", CallKind::kLogOff, false},
    {"logoff-auth-service", CallKind::kLogOffAuthService, true},
    {"logoff-gateway", CallKind::kLogOffGateway, true},
    {"clear-credentials", CallKind::kClearCredentials, false},
    {"cancel-calls", CallKind::kCancelCalls, false},
    {"window", CallKind::kWindow, true},
};

// Parses NAME or NAME=ARGUMENT; returns an error text, empty when valid.
std::string ParseCall(const std::string& text, PlannedCall& call) {
  const size_t equals = text.find('=');
  call.name = text.substr(0, equals);
  const bool hasArgument = equals != std::string::npos;
  call.argument = hasArgument ? text.substr(equals + 1) : std::string();
  for (const CallName& known : kCalls) {
    if (call.name != known.name) continue;
    call.kind = known.kind;
    if (known.takesArgument && (!hasArgument || call.argument.empty())) {
      return "call '" + call.name + "' needs an argument: " + call.name + "=VALUE";
    }
    if (!known.takesArgument && hasArgument) return "call '" + call.name + "' takes no argument";
    if (known.kind == CallKind::kWindow && !ParseWindow(call.argument, call.window)) {
      return "window needs LEFT,BOTTOM,WIDTH,HEIGHT[,NAME] with 32-bit integers";
    }
    return std::string();
  }
  return "unknown call '" + call.name + "'";
}

void RunCall(Output& out, ConnectionHandle connection, const PlannedCall& call) {
  switch (call.kind) {
    case CallKind::kVersion:
      CallGetVersion(out, connection);
      break;
    case CallKind::kLogonStatus:
      CallGetLogonStatus(out, connection, call.argument);
      break;
    case CallKind::kServerType:
      CallDetermineServerType(out, connection, call.argument);
      break;
    case CallKind::kTrampoline:
      CallGenerateTrampolineUrl(out, connection, call.argument, std::nullopt, 0);
      break;
    case CallKind::kLogOff:
      CallLogOff(out, connection);
      break;
    case CallKind::kLogOffAuthService:
      CallLogOffAuthService(out, connection, call.argument);
      break;
    case CallKind::kLogOffGateway: {
      GatewayOptions gateway;
      gateway.logonPoint = call.argument;
      CallLogOffGateway(out, connection, gateway);
      break;
    }
    case CallKind::kClearCredentials:
      CallClearAllCredentials(out, connection);
      break;
    case CallKind::kCancelCalls:
      CallCancelAllCalls(out, connection);
      break;
    case CallKind::kWindow:
      CallSetClientWindow(out, connection, call.window);
      break;
  }
}

}  // namespace

void AddConnectCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand(
      "connect", "Create a connection and run a sequence of calls on it, in order; stops at the first failing call");
  auto calls = std::make_shared<std::vector<std::string>>();
  command
      ->add_option("-c,--call", *calls,
                   "A call: version, logon-status=URL, server-type=URL, trampoline=URL, logoff, "
                   "logoff-auth-service=URL, logoff-gateway=URL, clear-credentials, cancel-calls, "
                   "window=LEFT,BOTTOM,WIDTH,HEIGHT[,NAME]; repeatable")
      ->allow_extra_args(false)
      ->check([](const std::string& text) {
        PlannedCall call;
        return ParseCall(text, call);
      });
  command->callback([&tool, calls] {
    tool.run = [&tool, calls](Output& out) {
      std::vector<PlannedCall> planned(calls->size());
      for (size_t i = 0; i < calls->size(); ++i) (void)ParseCall((*calls)[i], planned[i]);
      LibrarySession session(tool.options, out);
      Connection connection(tool.options);
      out.Number("connection", connection.Handle());
      out.BeginArray("calls");
      for (const PlannedCall& call : planned) {
        out.BeginObject("");
        out.String("call", call.name);
        RunCall(out, connection.Handle(), call);
        out.EndObject();
      }
      out.EndArray();
      connection.Close();
      session.Close();
      return kExitOk;
    };
  });
}

}  // namespace palvonauth
