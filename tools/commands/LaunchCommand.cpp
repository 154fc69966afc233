// `launch`: hand a remote-session launch file to the service.
#include <memory>
#include <optional>
#include <vector>

#include "commands/Commands.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

void AddLaunchCommand(CLI::App& app, Tool& tool) {
  CLI::App* command =
      app.add_subcommand("launch",
                         "Hand a launch file to the service and print the launch status; arguments after -- go to the "
                         "session engine unchanged");
  auto url = std::make_shared<std::optional<std::string>>();
  auto args = std::make_shared<std::vector<std::string>>();
  command->add_option("--url", *url, "Location of the launch file (not sent when omitted)");
  command->add_option("ARGS", *args, "Arguments for the session engine (UTF-8, sent byte for byte)");
  command->callback([&tool, url, args] {
    tool.run = [&tool, url, args](Output& out) {
      LibrarySession session(tool.options, out);
      // The library takes the texts as they are: the terminal's UTF-8 is
      // already the form it sends.
      std::vector<AMUTF8Char*> argv;
      argv.reserve(args->size() + 1);
      for (std::string& arg : *args) argv.push_back(arg.data());
      argv.push_back(nullptr);
      AMUint status = 0;
      Check("PalvonAuthManager_LaunchRZPFile",
            PalvonAuthManager_LaunchRZPFile(*url ? (*url)->c_str() : nullptr, argv.data(), &status));
      out.Number("status", status);
      out.Number("arguments", args->size());
      session.Close();
      return kExitOk;
    };
  });
}

}  // namespace palvonauth
