#include "protocol/PipeNames.h"

namespace PalvonAuthManagerSDK {

std::string ClientChannelName(uint32_t processId) { return ".AuthManager" + std::to_string(processId); }

std::string ClientDataFolder(const std::string& home) { return home + "/.RZPClient"; }

std::string TraceFolder(const std::string& home) { return ClientDataFolder(home) + "/logs"; }

std::vector<std::vector<std::string>> PipeFolderCandidates(const std::string& home, const std::string& user) {
  std::vector<std::vector<std::string>> candidates;
  // An empty HOME is no home at all (never "/").
  if (!home.empty()) candidates.push_back({ClientDataFolder(home), ClientDataFolder(home) + "/.tmp"});
  // "/tmp" itself is shared with every user and never a candidate.
  if (!user.empty() && user.find('/') == std::string::npos && user != "." && user != "..") {
    candidates.push_back({"/tmp/" + user});
  }
  return candidates;
}

}  // namespace PalvonAuthManagerSDK
