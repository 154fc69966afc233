#include "commands/Gateway.h"

#include "util/Utf8.h"

namespace palvonauth {

void AddGatewayOptions(CLI::App* command, GatewayOptions& gateway, bool withRewriteRule) {
  command->add_option("--name", gateway.name, "Friendly name of the gateway (not sent when omitted)");
  command->add_option("--edition", gateway.edition, "Gateway edition, passed to the service unchanged")
      ->capture_default_str();
  command->add_option("--auth-type", gateway.authType, "Gateway authentication type, passed unchanged")
      ->capture_default_str();
  if (withRewriteRule) {
    command->add_option("--rewrite-rule", gateway.rewriteRule, "Gateway rewrite rule, passed unchanged")
        ->capture_default_str();
  }
}

GatewayRecord::GatewayRecord(const GatewayOptions& gateway) {
  if (gateway.name) {
    name_ = PalvonAuthManagerSDK::FromUtf8(*gateway.name);
    info_.friendlyName = name_.c_str();
  }
  if (gateway.logonPoint) {
    logonPoint_ = PalvonAuthManagerSDK::FromUtf8(*gateway.logonPoint);
    info_.logonPointUrl = logonPoint_.c_str();
  }
  info_.amGatewayEdition = gateway.edition;
  info_.amGatewayAuthType = gateway.authType;
  info_.amGatewayReWriteRule = gateway.rewriteRule;
}

}  // namespace palvonauth
