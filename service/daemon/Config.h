#ifndef PALVONAUTHD_CONFIG_H
#define PALVONAUTHD_CONFIG_H

// The service's configuration: an embedded default, overridden by a TOML
// file, overridden by command-line flags (applied by main).

#include <cstdint>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "daemon/Gateway.h"

namespace palvonauthd {

/** Maps URLs starting with `prefix` to a server type and, for type 2, a gateway. */
struct ServerRule : Gateway {
  std::string prefix;
  uint32_t serverType = 1;
};

struct Config {
  // [service]
  uint32_t sdkVersion = 2;
  std::string versionText;
  uint32_t replyTimeoutMs = 30000;
  /** A client that stops in the middle of a request frame for this long is ended. */
  uint32_t frameTimeoutMs = 5000;
  /** Most clients served at the same time; further registrations are refused. */
  uint32_t maxClients = 64;
  bool verbose = false;
  // [servers]
  uint32_t defaultServerType = 1;
  std::vector<ServerRule> serverRules;
  // [discovery]
  std::string discoveryData;
  uint32_t discoveryResult = 0;
  // [trampoline]
  std::string trampolineTemplate;
  std::string defaultGateway;
  uint32_t trampolineResult = 0;
  // [vpn]
  std::string vpnAuthorization;
  std::string vpnSessionLogonPointUrl;
  uint32_t vpnResult = 0;
  // [http]
  std::string userAgent;
  uint32_t connectTimeoutSeconds = 10;
  uint32_t timeoutSeconds = 60;
  /** 0: no limit. */
  uint64_t maxResponseBytes = 0;
  uint64_t bodyBufferBytes = 4ull * 1024 * 1024;
  bool followRedirects = false;
  bool verifyTls = true;
  std::string caFile;
  // [launch]
  std::vector<std::string> launchCommand;
  std::string launchLog;
  // [faults]
  uint32_t busyCount = 0;
  uint32_t delayMs = 0;
  /** Operations that busy answers and delays apply to; empty means all. */
  std::set<uint32_t> faultOperations;
  /** Operations answered with a fixed result code instead of being performed. */
  std::map<uint32_t, uint32_t> forcedAnswers;

  /** True when busy answers and delays apply to this message type. */
  bool FaultApplies(uint32_t type) const { return faultOperations.empty() || faultOperations.count(type) != 0; }
  /** The first server rule whose prefix starts `url`, or null. */
  const ServerRule* RuleFor(const std::string& url) const;
};

/** A configuration problem, located in its source ("file:line:column: problem"). */
class ConfigError : public std::runtime_error {
 public:
  ConfigError(const std::string& source, uint32_t line, uint32_t column, const std::string& problem);
};

/** The embedded default configuration, as TOML text. */
const char* DefaultConfigText();
/** The configuration built from the embedded default alone. */
Config DefaultConfig();
/**
 * Applies TOML text on top of `config`: every key present replaces the
 * current value, arrays of rules replace the whole list. Throws ConfigError
 * naming `sourceName`, the line and the problem.
 */
void ApplyConfigText(Config& config, const std::string& text, const std::string& sourceName);
/**
 * Reads and applies a TOML file. It must be a regular file of this user (or
 * root) that others cannot write, named without a symbolic link; anything
 * else, or a file that cannot be read, is a ConfigError giving the reason.
 */
void ApplyConfigFile(Config& config, const std::string& path);
/** Replaces a leading "~/" by $HOME. */
std::string ExpandHome(const std::string& path);

/** Placeholders each template accepts. */
extern const std::set<std::string> kTrampolinePlaceholders;
extern const std::set<std::string> kGatewayPlaceholders;

}  // namespace palvonauthd

#endif
