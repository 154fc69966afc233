#include "daemon/ConfigSources.h"

#include <sys/stat.h>

#include <cstdlib>

#include "daemon/OperationNames.h"

namespace palvonauthd {

void ConfigOverrides::ApplyTo(Config& config) const {
  if (sdkVersion) config.sdkVersion = *sdkVersion;
  if (versionText) config.versionText = *versionText;
  if (busy) config.busyCount = *busy;
  if (delayMs) config.delayMs = *delayMs;
  if (launcher) config.launchCommand = {*launcher};
  if (launchLog) config.launchLog = *launchLog;
  if (userAgent) config.userAgent = *userAgent;
  if (insecure) config.verifyTls = false;
  if (verbose) config.verbose = true;
  if (!faultOperations.empty()) {
    config.faultOperations.clear();
    for (const auto& name : faultOperations) {
      const auto type = ParseOperation(name);
      if (!type) throw ConfigError("--fault-ops", 0, 0, "unknown operation '" + name + "'");
      config.faultOperations.insert(*type);
    }
  }
  for (const auto& answer : answers) {
    const size_t equals = answer.find('=');
    const auto type = equals != std::string::npos ? ParseOperation(answer.substr(0, equals)) : std::nullopt;
    const auto code = equals != std::string::npos ? ParseNumber(answer.substr(equals + 1)) : std::nullopt;
    if (!type || !code) throw ConfigError("--answer", 0, 0, "'" + answer + "' is not OPERATION=CODE");
    config.forcedAnswers[*type] = *code;
  }
}

std::string DefaultConfigPath() {
  const char* xdg = std::getenv("XDG_CONFIG_HOME");
  if (xdg != nullptr && *xdg != '\0') return std::string(xdg) + "/palvonauthd/palvonauthd.toml";
  const char* home = std::getenv("HOME");
  return std::string(home != nullptr ? home : "") + "/.config/palvonauthd/palvonauthd.toml";
}

Config LoadConfig(const std::string& path, const ConfigOverrides& overrides, std::string& used) {
  Config config = DefaultConfig();
  used = path;
  // The default file is optional: read when it is there at all (a link or
  // a file that cannot be read is then an error like any other).
  struct stat status {};
  if (used.empty() && lstat(DefaultConfigPath().c_str(), &status) == 0) used = DefaultConfigPath();
  if (!used.empty()) ApplyConfigFile(config, used);
  overrides.ApplyTo(config);
  return config;
}

}  // namespace palvonauthd
