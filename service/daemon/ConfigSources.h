#ifndef PALVONAUTHD_CONFIGSOURCES_H
#define PALVONAUTHD_CONFIGSOURCES_H

// Where the configuration comes from: the embedded default, then a file,
// then command-line flags. The same layering is done at start and on every
// reload, so flags always win over the file.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "daemon/Config.h"

namespace palvonauthd {

/** Settings given as command-line flags. */
struct ConfigOverrides {
  std::optional<uint32_t> sdkVersion;
  std::optional<std::string> versionText;
  std::optional<uint32_t> busy;
  std::optional<uint32_t> delayMs;
  /** Operation names or numbers; empty leaves the file's list. */
  std::vector<std::string> faultOperations;
  /** "OPERATION=CODE" each. */
  std::vector<std::string> answers;
  std::optional<std::string> launcher;
  std::optional<std::string> launchLog;
  std::optional<std::string> userAgent;
  bool insecure = false;
  bool verbose = false;

  /** Puts them over `config`; an unknown operation or a malformed answer is a ConfigError. */
  void ApplyTo(Config& config) const;
};

/** The configuration file read when none is named: $XDG_CONFIG_HOME or ~/.config, palvonauthd/palvonauthd.toml. */
std::string DefaultConfigPath();

/**
 * The whole configuration: the embedded default, the file `path` (when
 * empty, the default file if there is one) and `overrides` on top. Throws
 * ConfigError; `used` receives the file that was read, empty for none.
 */
Config LoadConfig(const std::string& path, const ConfigOverrides& overrides, std::string& used);

}  // namespace palvonauthd

#endif
