#ifndef PALVONAUTH_TOOLS_COMMANDS_GATEWAY_H
#define PALVONAUTH_TOOLS_COMMANDS_GATEWAY_H

// Command-line description of a gateway (AM_GATEWAY_INFO), shared by the
// subcommands that take one.

#include <CLI/CLI.hpp>

#include <cstdint>
#include <optional>
#include <string>

#include "PalvonAuthManager.h"

namespace palvonauth {

struct GatewayOptions {
  std::optional<std::string> name;
  std::optional<std::string> logonPoint;
  uint32_t edition = 0;
  uint32_t authType = 0;
  uint32_t rewriteRule = 0;
};

/**
 * Adds --name, --edition, --auth-type (and --rewrite-rule when asked) to a
 * subcommand. The logon point is added by the caller, as an option or a
 * positional argument.
 */
void AddGatewayOptions(CLI::App* command, GatewayOptions& gateway, bool withRewriteRule);

/** The library's record for the options; the texts live as long as this object. */
class GatewayRecord {
 public:
  explicit GatewayRecord(const GatewayOptions& gateway);
  GatewayRecord(const GatewayRecord&) = delete;
  GatewayRecord& operator=(const GatewayRecord&) = delete;
  const PalvonAuthManagerSDK::AM_GATEWAY_INFO* Get() const { return &info_; }

 private:
  std::wstring name_;
  std::wstring logonPoint_;
  PalvonAuthManagerSDK::AM_GATEWAY_INFO info_{};
};

}  // namespace palvonauth

#endif
