#include "CommandLine.h"

#include <cmath>
#include <cstdlib>
#include <sstream>

#include "Errors.h"

namespace palvonauth {

namespace {

std::string SubcommandNames(const CLI::App& app) {
  std::string names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    names += (names.empty() ? "" : ", ") + command->get_name();
  }
  return names;
}

}  // namespace

CLI::Validator Seconds(bool zeroAllowed) {
  return CLI::Validator(
      [zeroAllowed](std::string& value) {
        char* end = nullptr;
        const double seconds = std::strtod(value.c_str(), &end);
        const bool valid = !value.empty() && *end == '\0' && std::isfinite(seconds) && seconds <= 1e9 &&
                           (zeroAllowed ? seconds >= 0 : seconds > 0);
        if (valid) return std::string();
        return std::string("must be a number of seconds ") + (zeroAllowed ? "from 0" : "above 0") +
               " to 1000000000, not '" + value + "'";
      },
      "SECONDS");
}

void FormatUsageErrors(CLI::App& app) {
  app.failure_message([](const CLI::App* failed, const CLI::Error& error) {
    std::string text;
    std::istringstream lines(error.what());
    for (std::string line; std::getline(lines, line);) text += "palvonauth: " + line + "\n";
    std::string help = "palvonauth help";
    const std::vector<CLI::App*> chosen = failed->get_subcommands();
    if (!chosen.empty() && chosen.front()->get_name() != "help") help += " " + chosen.front()->get_name();
    return text + "palvonauth: see '" + help + "'\n";
  });
}

int ReportParseError(const CLI::App& app, const CLI::ParseError& error) {
  if (error.get_exit_code() == 0) return app.exit(error);
  // Without a subcommand the parser only says that one is required; the
  // words it could not place tell what was meant.
  if (dynamic_cast<const CLI::RequiredError*>(&error) != nullptr && app.get_subcommands().empty()) {
    const std::vector<std::string> rest = app.remaining();
    for (const std::string& word : rest) {
      if (!word.empty() && word[0] != '-') {
        (void)app.exit(CLI::ValidationError(UnknownSubcommand(app, word)));
        return kExitUsage;
      }
    }
    if (!rest.empty()) {
      (void)app.exit(CLI::ExtrasError(rest));
    } else {
      (void)app.exit(CLI::ValidationError("a subcommand is required; the subcommands are " + SubcommandNames(app)));
    }
    return kExitUsage;
  }
  (void)app.exit(error);
  return kExitUsage;
}

std::string UnknownSubcommand(const CLI::App& app, const std::string& name) {
  return "unknown subcommand '" + name + "'\nthe subcommands are " + SubcommandNames(app);
}

}  // namespace palvonauth
