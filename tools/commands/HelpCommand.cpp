// `help [SUBCOMMAND]`: the same text as --help, for people who type the word.
#include <cstdio>
#include <memory>

#include "CommandLine.h"
#include "commands/Commands.h"

namespace palvonauth {

void AddHelpCommand(CLI::App& app, Tool&) {
  CLI::App* command = app.add_subcommand("help", "Print the help of the tool, or of SUBCOMMAND");
  auto name = std::make_shared<std::string>();
  command->add_option("SUBCOMMAND", *name, "Subcommand to describe");
  command->callback([&app, name] {
    const CLI::App* described = &app;
    std::string usage = app.get_name();
    if (!name->empty()) {
      described = nullptr;
      for (const CLI::App* candidate : app.get_subcommands([](const CLI::App*) { return true; })) {
        if (candidate->get_name() == *name) described = candidate;
      }
      if (described == nullptr) throw CLI::ValidationError(UnknownSubcommand(app, *name));
      usage += " " + *name;
    }
    // Asked of the application, the help would describe the chosen
    // subcommand: this one.
    const std::string text = described->get_formatter()->make_help(described, usage, CLI::AppFormatMode::Normal);
    std::fputs(text.c_str(), stdout);
    throw CLI::Success();
  });
}

}  // namespace palvonauth
