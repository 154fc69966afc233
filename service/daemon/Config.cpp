#include "daemon/Config.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <toml++/toml.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <limits>

#include "daemon/OperationNames.h"
#include "daemon/TextFormat.h"

namespace palvonauthd {

const std::set<std::string> kTrampolinePlaceholders = {"gateway", "url", "ref", "flags", "connection"};
const std::set<std::string> kGatewayPlaceholders = {"friendlyName", "logonPointUrl", "edition", "authType",
                                                    "rewriteRule",  "flags",         "token",   "context"};

namespace {

/** A configuration file is a few kilobytes; anything near this is not one. */
constexpr off_t kMaxConfigFileBytes = 1 << 20;

constexpr const char kDefaultConfig[] =
    R"toml(# palvonauthd configuration. Every key is optional in a configuration file:
# a key that is left out keeps the value shown here.

[service]
sdk_version = 2                   # answered to the version query; clients use API level min(this, 2)
version_text = "palvonauthd 1.0.0 (reference service)"
reply_timeout_ms = 30000          # give up on a client that does not read its replies
frame_timeout_ms = 5000           # end a client that stops in the middle of a request this long
max_clients = 64                  # clients served at the same time; more registrations are refused
verbose = false                   # log every request and reply (same as -v)

[servers]
default_type = 1                  # server type of URLs that match no rule

# URL prefix -> server type. Type 2 describes a gateway. The first matching rule wins.
[[servers.rule]]
prefix = "https://gateway.example.com/"
type = 2
friendly_name = "Example gateway"
logon_point_url = "https://gateway.example.com/logon/"
edition = 1
auth_type = 1

[discovery]
data = '<gateway name="{friendlyName}" logonPoint="{logonPointUrl}" edition="{edition}" authType="{authType}" rewriteRule="{rewriteRule}" flags="{flags}"/>'
authentication_result = 0

[trampoline]
template = "{gateway}/trampoline?target={url}&ref={ref}"
default_gateway = "https://gateway.example.com/logon"
authentication_result = 0

[vpn]
authorization = "vpn-{token}"
session_logon_point_url = "{logonPointUrl}"
authentication_result = 0

[http]
user_agent = "palvonauthd/1.0"
connect_timeout_s = 10
timeout_s = 60                    # wait for the headers, and longest silence in a body; when the client sets none
max_response_bytes = 0            # 0: bodies of any size
body_buffer_bytes = 4194304       # body bytes held per transfer until the client reads them
follow_redirects = false
verify_tls = true
ca_file = ""                      # empty: the system's trusted certificates

[launch]
command = []                      # launcher program and its first arguments; empty: only record
log_file = "~/.RZPClient/logs/launches.log"

[faults]
busy = 0                          # answer "busy" this many times before each answer
delay_ms = 0                      # wait this long before each answer
operations = []                   # limit busy and delay to these operations; empty: all
answers = {}                      # operation = result code, answered instead of performing it
)toml";

// Where a configuration text came from, for error messages.
struct Source {
  std::string name;
};

[[noreturn]] void Fail(const Source& source, const toml::source_region& where, const std::string& problem) {
  throw ConfigError(source.name, where.begin.line, where.begin.column, problem);
}

std::string Describe(toml::node_type type) {
  switch (type) {
    case toml::node_type::string:
      return "a string";
    case toml::node_type::integer:
      return "an integer";
    case toml::node_type::floating_point:
      return "a floating-point number";
    case toml::node_type::boolean:
      return "a boolean";
    case toml::node_type::array:
      return "an array";
    case toml::node_type::table:
      return "a table";
    default:
      return "a date or time";
  }
}

std::string KeyPath(const std::string& table, const std::string& key) {
  return table.empty() ? key : table + "." + key;
}

// Reads the values of one table, rejecting unknown keys.
class TableReader {
 public:
  TableReader(const Source& source, const toml::table& table, std::string path)
      : source_(source), table_(table), path_(std::move(path)) {
    for (auto&& [key, node] : table_) {
      (void)node;
      pending_.insert(std::string(key.str()));
    }
  }

  // Throws for keys nobody asked for.
  void Finish() const {
    for (auto&& [key, node] : table_) {
      if (pending_.count(std::string(key.str())) == 0) continue;
      (void)node;
      Fail(source_, key.source(), "unknown key '" + KeyPath(path_, std::string(key.str())) + "'");
    }
  }

  const toml::node* Find(const std::string& key) {
    pending_.erase(key);
    return table_.get(key);
  }

  void String(const std::string& key, std::string& out) {
    if (const auto* node = Find(key)) {
      if (!node->is_string()) Mistyped(*node, key, "a string");
      out = node->as_string()->get();
    }
  }

  // A string that is a "{name}" template with the given placeholders.
  void Template(const std::string& key, std::string& out, const std::set<std::string>& allowed) {
    if (const auto* node = Find(key)) {
      if (!node->is_string()) Mistyped(*node, key, "a string");
      const std::string text = node->as_string()->get();
      if (auto problem = CheckTemplate(text, allowed))
        Fail(source_, node->source(), "'" + KeyPath(path_, key) + "': " + *problem);
      out = text;
    }
  }

  void Bool(const std::string& key, bool& out) {
    if (const auto* node = Find(key)) {
      if (!node->is_boolean()) Mistyped(*node, key, "a boolean");
      out = node->as_boolean()->get();
    }
  }

  void UInt32(const std::string& key, uint32_t& out, uint32_t minimum = 0) {
    if (const auto* node = Find(key)) {
      const uint32_t value = ToUInt32(*node, key);
      if (value < minimum) {
        Fail(source_, node->source(),
             "'" + KeyPath(path_, key) + "' must be at least " + std::to_string(minimum) + ", not " +
                 std::to_string(value));
      }
      out = value;
    }
  }

  void UInt64(const std::string& key, uint64_t& out, uint64_t minimum) {
    if (const auto* node = Find(key)) {
      if (!node->is_integer()) Mistyped(*node, key, "an integer");
      const int64_t value = node->as_integer()->get();
      if (value < 0 || static_cast<uint64_t>(value) < minimum) {
        Fail(source_, node->source(),
             "'" + KeyPath(path_, key) + "' must be at least " + std::to_string(minimum) + ", not " +
                 std::to_string(value));
      }
      out = static_cast<uint64_t>(value);
    }
  }

  void StringArray(const std::string& key, std::vector<std::string>& out) {
    if (const auto* node = Find(key)) {
      const auto* array = node->as_array();
      if (array == nullptr) Mistyped(*node, key, "an array of strings");
      std::vector<std::string> values;
      for (const auto& element : *array) {
        if (!element.is_string()) Mistyped(element, key, "an array of strings");
        values.push_back(element.as_string()->get());
      }
      out = std::move(values);
    }
  }

  uint32_t ToUInt32(const toml::node& node, const std::string& key) const {
    if (!node.is_integer()) Mistyped(node, key, "an integer");
    const int64_t value = node.as_integer()->get();
    if (value < 0 || value > std::numeric_limits<uint32_t>::max()) {
      Fail(source_, node.source(),
           "'" + KeyPath(path_, key) + "' must be between 0 and 4294967295, not " + std::to_string(value));
    }
    return static_cast<uint32_t>(value);
  }

  [[noreturn]] void Mistyped(const toml::node& node, const std::string& key, const std::string& wanted) const {
    Fail(source_, node.source(), "'" + KeyPath(path_, key) + "' must be " + wanted + ", not " + Describe(node.type()));
  }

  const Source& source() const { return source_; }
  const std::string& path() const { return path_; }

 private:
  const Source& source_;
  const toml::table& table_;
  std::string path_;
  std::set<std::string> pending_;
};

// Reads a sub-table, if present, with `read`.
void WithTable(TableReader& parent, const std::string& key, const std::function<void(TableReader&)>& read) {
  const auto* node = parent.Find(key);
  if (node == nullptr) return;
  const auto* table = node->as_table();
  if (table == nullptr) parent.Mistyped(*node, key, "a table");
  TableReader reader(parent.source(), *table, KeyPath(parent.path(), key));
  read(reader);
  reader.Finish();
}

uint32_t OperationOf(const Source& source, const toml::source_region& where, const std::string& text,
                     const std::string& path) {
  const auto type = ParseOperation(text);
  if (!type) Fail(source, where, "unknown operation '" + text + "' in '" + path + "'");
  return *type;
}

void ReadRules(TableReader& servers, Config& config) {
  const auto* node = servers.Find("rule");
  if (node == nullptr) return;
  const auto* array = node->as_array();
  if (array == nullptr) servers.Mistyped(*node, "rule", "an array of tables ([[servers.rule]])");
  std::vector<ServerRule> rules;
  for (const auto& element : *array) {
    const auto* table = element.as_table();
    if (table == nullptr) servers.Mistyped(element, "rule", "an array of tables ([[servers.rule]])");
    TableReader reader(servers.source(), *table, "servers.rule");
    ServerRule rule;
    if (reader.Find("prefix") == nullptr) Fail(servers.source(), table->source(), "'servers.rule' needs a 'prefix'");
    reader.String("prefix", rule.prefix);
    reader.UInt32("type", rule.serverType);
    reader.String("friendly_name", rule.friendlyName);
    reader.String("logon_point_url", rule.logonPointUrl);
    reader.UInt32("edition", rule.edition);
    reader.UInt32("auth_type", rule.authType);
    reader.Finish();
    if (rule.serverType == 2 && (rule.friendlyName.empty() || rule.logonPointUrl.empty())) {
      Fail(servers.source(), table->source(),
           "the rule for '" + rule.prefix + "' has type 2 (gateway) and needs 'friendly_name' and 'logon_point_url'");
    }
    rules.push_back(std::move(rule));
  }
  config.serverRules = std::move(rules);
}

void ReadFaults(TableReader& faults, Config& config) {
  faults.UInt32("busy", config.busyCount);
  faults.UInt32("delay_ms", config.delayMs);
  if (const auto* node = faults.Find("operations")) {
    const auto* array = node->as_array();
    if (array == nullptr) faults.Mistyped(*node, "operations", "an array of operation names or numbers");
    std::set<uint32_t> operations;
    for (const auto& element : *array) {
      if (element.is_string()) {
        operations.insert(
            OperationOf(faults.source(), element.source(), element.as_string()->get(), "faults.operations"));
      } else if (element.is_integer()) {
        operations.insert(faults.ToUInt32(element, "operations"));
      } else {
        faults.Mistyped(element, "operations", "an array of operation names or numbers");
      }
    }
    config.faultOperations = std::move(operations);
  }
  if (const auto* node = faults.Find("answers")) {
    const auto* table = node->as_table();
    if (table == nullptr) faults.Mistyped(*node, "answers", "a table of operation = result code");
    std::map<uint32_t, uint32_t> answers;
    TableReader reader(faults.source(), *table, "faults.answers");
    for (auto&& [key, value] : *table) {
      const std::string name(key.str());
      const uint32_t type = OperationOf(faults.source(), key.source(), name, "faults.answers");
      answers[type] = reader.ToUInt32(value, name);
      (void)reader.Find(name);
    }
    config.forcedAnswers = std::move(answers);
  }
}

void Apply(Config& config, const toml::table& root, const Source& source) {
  TableReader top(source, root, "");
  WithTable(top, "service", [&](TableReader& t) {
    t.UInt32("sdk_version", config.sdkVersion);
    t.String("version_text", config.versionText);
    t.UInt32("reply_timeout_ms", config.replyTimeoutMs);
    t.UInt32("frame_timeout_ms", config.frameTimeoutMs, 1);
    t.UInt32("max_clients", config.maxClients, 1);
    t.Bool("verbose", config.verbose);
  });
  WithTable(top, "servers", [&](TableReader& t) {
    t.UInt32("default_type", config.defaultServerType);
    ReadRules(t, config);
  });
  WithTable(top, "discovery", [&](TableReader& t) {
    t.Template("data", config.discoveryData, kGatewayPlaceholders);
    t.UInt32("authentication_result", config.discoveryResult);
  });
  WithTable(top, "trampoline", [&](TableReader& t) {
    t.Template("template", config.trampolineTemplate, kTrampolinePlaceholders);
    t.String("default_gateway", config.defaultGateway);
    t.UInt32("authentication_result", config.trampolineResult);
  });
  WithTable(top, "vpn", [&](TableReader& t) {
    t.Template("authorization", config.vpnAuthorization, kGatewayPlaceholders);
    t.Template("session_logon_point_url", config.vpnSessionLogonPointUrl, kGatewayPlaceholders);
    t.UInt32("authentication_result", config.vpnResult);
  });
  WithTable(top, "http", [&](TableReader& t) {
    t.String("user_agent", config.userAgent);
    t.UInt32("connect_timeout_s", config.connectTimeoutSeconds);
    t.UInt32("timeout_s", config.timeoutSeconds);
    t.UInt64("max_response_bytes", config.maxResponseBytes, 0);
    t.UInt64("body_buffer_bytes", config.bodyBufferBytes, 4096);
    t.Bool("follow_redirects", config.followRedirects);
    t.Bool("verify_tls", config.verifyTls);
    t.String("ca_file", config.caFile);
  });
  WithTable(top, "launch", [&](TableReader& t) {
    t.StringArray("command", config.launchCommand);
    t.String("log_file", config.launchLog);
  });
  WithTable(top, "faults", [&](TableReader& t) { ReadFaults(t, config); });
  top.Finish();
}

}  // namespace

ConfigError::ConfigError(const std::string& source, uint32_t line, uint32_t column, const std::string& problem)
    : std::runtime_error(source + (line > 0 ? ":" + std::to_string(line) + ":" + std::to_string(column) : "") + ": " +
                         problem) {}

const char* DefaultConfigText() { return kDefaultConfig; }

void ApplyConfigText(Config& config, const std::string& text, const std::string& sourceName) {
  const Source source{sourceName};
  toml::table root;
  try {
    root = toml::parse(text, sourceName);
  } catch (const toml::parse_error& error) {
    throw ConfigError(sourceName, error.source().begin.line, error.source().begin.column,
                      std::string(error.description()));
  }
  Config updated = config;
  Apply(updated, root, source);
  config = std::move(updated);
}

void ApplyConfigFile(Config& config, const std::string& path) {
  // The file may name a launcher that runs as this user: it has to be a
  // regular file that no one else controls, reached without a link.
  const int fd = open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
  if (fd < 0) {
    throw ConfigError(path, 0, 0,
                      errno == ELOOP ? "cannot read: it is a symbolic link (name the file it points to)"
                                     : std::string("cannot read: ") + std::strerror(errno));
  }
  std::string problem, text;
  struct stat status {};
  if (fstat(fd, &status) != 0) {
    problem = std::string("cannot read: ") + std::strerror(errno);
  } else if (!S_ISREG(status.st_mode)) {
    problem = "cannot read: it is not a regular file";
  } else if (status.st_uid != geteuid() && status.st_uid != 0) {
    problem = "not used: it belongs to user " + std::to_string(status.st_uid);
  } else if ((status.st_mode & S_IWOTH) != 0) {
    problem = "not used: anyone may write to it";
  } else if (status.st_size > kMaxConfigFileBytes) {
    problem = "not used: larger than " + std::to_string(kMaxConfigFileBytes) + " bytes";
  }
  char buffer[8192];
  while (problem.empty()) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) problem = std::string("cannot read: ") + std::strerror(errno);
    if (got > 0) text.append(buffer, static_cast<size_t>(got));
    if (text.size() > static_cast<size_t>(kMaxConfigFileBytes)) problem = "not used: it keeps growing";
  }
  close(fd);
  if (!problem.empty()) throw ConfigError(path, 0, 0, problem);
  ApplyConfigText(config, text, path);
}

const ServerRule* Config::RuleFor(const std::string& url) const {
  for (const auto& rule : serverRules) {
    if (url.rfind(rule.prefix, 0) == 0) return &rule;
  }
  return nullptr;
}

Config DefaultConfig() {
  Config config;
  ApplyConfigText(config, kDefaultConfig, "<embedded default>");
  return config;
}

std::string ExpandHome(const std::string& path) {
  if (path == "~" || path.rfind("~/", 0) == 0) {
    const char* home = std::getenv("HOME");
    return std::string(home != nullptr ? home : "") + path.substr(1);
  }
  return path;
}

}  // namespace palvonauthd
