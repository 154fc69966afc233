// Subcommands that make one level-1 call on a fresh connection, and
// api-level, which needs no connection at all.
#include <memory>

#include "commands/Commands.h"
#include "commands/ConnectionCalls.h"

namespace palvonauth {

namespace {

// Runs `body` on a new connection inside an initialised library, reporting
// the connection handle first unless the answer is a single value that does
// not depend on it.
template <typename Body>
int WithConnection(const Tool& tool, Output& out, Body body, bool reportConnection = true) {
  LibrarySession session(tool.options, out);
  Connection connection(tool.options);
  if (reportConnection) out.Number("connection", connection.Handle());
  body(connection.Handle());
  connection.Close();
  session.Close();
  return kExitOk;
}

}  // namespace

void AddApiLevelCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand("api-level", "Print the API level negotiated with the service");
  command->callback([&tool] {
    tool.run = [&tool](Output& out) {
      LibrarySession session(tool.options, out);
      const AMUint level = session.ApiLevel();
      out.Number("apiLevel", level);
      out.Bool("http", level >= 2);
      session.Close();
      return kExitOk;
    };
  });
}

void AddVersionCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand("version", "Print the service's version text (asked on a connection)");
  command->callback([&tool] {
    tool.run = [&tool](Output& out) {
      return WithConnection(tool, out, [&](ConnectionHandle c) { CallGetVersion(out, c); }, false);
    };
  });
}

void AddServerTypeCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand("server-type", "Ask the service for the type of a server");
  auto url = std::make_shared<std::string>();
  command->add_option("URL", *url, "Server URL")->required();
  command->callback([&tool, url] {
    tool.run = [&tool, url](Output& out) {
      return WithConnection(tool, out, [&](ConnectionHandle c) { CallDetermineServerType(out, c, *url); });
    };
  });
}

void AddDiscoverCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand("discover", "Fetch a gateway's discovery data");
  auto gateway = std::make_shared<GatewayOptions>();
  auto flags = std::make_shared<uint32_t>(0);
  command->add_option("--logon-point", gateway->logonPoint, "Logon point URL of the gateway (not sent when omitted)");
  AddGatewayOptions(command, *gateway, true);
  command->add_option("--flags", *flags, "Authentication flags, passed unchanged")->capture_default_str();
  command->callback([&tool, gateway, flags] {
    tool.run = [&tool, gateway, flags](Output& out) {
      return WithConnection(tool, out,
                            [&](ConnectionHandle c) { CallRetrieveGatewayDiscoveryData(out, c, *gateway, *flags); });
    };
  });
}

void AddLogonStatusCommand(CLI::App& app, Tool& tool) {
  CLI::App* command =
      app.add_subcommand("logon-status", "Ask whether the user is logged on to an authentication service");
  auto url = std::make_shared<std::string>();
  command->add_option("URL", *url, "Authentication service URL")->required();
  command->callback([&tool, url] {
    tool.run = [&tool, url](Output& out) {
      return WithConnection(tool, out, [&](ConnectionHandle c) { CallGetLogonStatus(out, c, *url); });
    };
  });
}

void AddLogoffCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand(
      "logoff", "Log off: everything on the connection, a gateway (--gateway) or an authentication service");
  auto gateway = std::make_shared<GatewayOptions>();
  auto authService = std::make_shared<std::string>();
  CLI::Option* gatewayOption =
      command->add_option("--gateway", gateway->logonPoint, "Log off the gateway with this logon point URL");
  CLI::Option* serviceOption =
      command->add_option("--auth-service", *authService, "Log off the authentication service at this URL");
  gatewayOption->excludes(serviceOption);
  AddGatewayOptions(command, *gateway, false);
  command->callback([&tool, gateway, authService, gatewayOption, serviceOption] {
    const bool byGateway = gatewayOption->count() > 0;
    const bool byService = serviceOption->count() > 0;
    tool.run = [&tool, gateway, authService, byGateway, byService](Output& out) {
      return WithConnection(tool, out, [&](ConnectionHandle c) {
        if (byGateway) {
          CallLogOffGateway(out, c, *gateway);
        } else if (byService) {
          CallLogOffAuthService(out, c, *authService);
        } else {
          CallLogOff(out, c);
        }
      });
    };
  });
}

void AddTrampolineCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand("trampoline", "Generate a trampoline URL for a service URL");
  auto url = std::make_shared<std::string>();
  auto reference = std::make_shared<std::optional<std::string>>();
  auto flags = std::make_shared<uint32_t>(0);
  command->add_option("URL", *url, "Service URL")->required();
  command->add_option("--ref", *reference, "Optional reference URL");
  command->add_option("--flags", *flags, "Authentication flags, passed unchanged")->capture_default_str();
  command->callback([&tool, url, reference, flags] {
    tool.run = [&tool, url, reference, flags](Output& out) {
      return WithConnection(tool, out,
                            [&](ConnectionHandle c) { CallGenerateTrampolineUrl(out, c, *url, *reference, *flags); });
    };
  });
}

}  // namespace palvonauth
