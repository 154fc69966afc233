// `vpn`: make a VPN authentication context for a gateway, fetch its
// authorization and destroy the context again.
#include <memory>

#include "commands/Commands.h"
#include "commands/Gateway.h"
#include "commands/LibraryText.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

namespace {

class VpnContext {
 public:
  VpnContext(ConnectionHandle connection, const GatewayRecord& gateway, uint32_t flags) {
    Check("PalvonAuthManager_CreateVpnAuthContext",
          PalvonAuthManager_CreateVpnAuthContext(connection, gateway.Get(), flags, &handle_));
    open_ = true;
  }
  ~VpnContext() {
    if (open_) (void)PalvonAuthManager_DestroyVpnAuthContext(handle_);
  }
  VpnContext(const VpnContext&) = delete;
  VpnContext& operator=(const VpnContext&) = delete;
  VpnAuthContextHandle Handle() const { return handle_; }
  void Close() {
    open_ = false;
    Check("PalvonAuthManager_DestroyVpnAuthContext", PalvonAuthManager_DestroyVpnAuthContext(handle_));
  }

 private:
  VpnAuthContextHandle handle_ = 0;
  bool open_ = false;
};

}  // namespace

void AddVpnCommand(CLI::App& app, Tool& tool) {
  CLI::App* command = app.add_subcommand(
      "vpn", "Create a VPN authentication context for a gateway, print its authorization, destroy it");
  auto gateway = std::make_shared<GatewayOptions>();
  auto flags = std::make_shared<uint32_t>(0);
  command->add_option("LOGON-POINT-URL", gateway->logonPoint, "Logon point URL of the gateway (not sent when omitted)");
  AddGatewayOptions(command, *gateway, false);
  command->add_option("--flags", *flags, "Authentication flags, passed unchanged")->capture_default_str();
  command->callback([&tool, gateway, flags] {
    tool.run = [&tool, gateway, flags](Output& out) {
      LibrarySession session(tool.options, out);
      Connection connection(tool.options);
      out.Number("connection", connection.Handle());
      const GatewayRecord record(*gateway);
      VpnContext context(connection.Handle(), record, *flags);
      out.Number("context", context.Handle());
      AM_VPN_AUTHORIZATION_INFO* raw = nullptr;
      const AMResult result = PalvonAuthManager_GetVpnAuthorizationInfo(context.Handle(), &raw);
      // A record handed out before a failure is cleared, so it is released
      // either way but read only on success.
      std::unique_ptr<AM_VPN_AUTHORIZATION_INFO, AMResult (*)(AM_VPN_AUTHORIZATION_INFO*)> info(
          raw, PalvonAuthManager_FreeVpnAuthorizationInfo);
      Check("PalvonAuthManager_GetVpnAuthorizationInfo", result);
      if (info) {
        out.Number("authenticationResult", info->amAuthenticationResult);
        out.String("authorization", ToUtf8OrEmpty(info->vpnauthorizationstr));
        out.String("sessionLogonPointUrl", ToUtf8OrEmpty(info->vpnsessionlogonpointurl));
      }
      info.reset();
      context.Close();
      connection.Close();
      session.Close();
      return kExitOk;
    };
  });
}

}  // namespace palvonauth
