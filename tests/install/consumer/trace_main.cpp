// C++ with the trace switch, an exported data member: the trace file appears in $HOME/.RZPClient/logs.
#include <PalvonAuthManager.h>
#include <PalvonAuthManagerTracer.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

namespace am = PalvonAuthManagerSDK;

int main() {
  const std::filesystem::path logs = std::filesystem::path(std::getenv("HOME")) / ".RZPClient" / "logs";
  std::filesystem::create_directories(logs);
  am::CTracer::s_tracingEnabled = true;
  am::AMUint level = 0;
  if (am::PalvonAuthManager_Initialize() != 0 || am::PalvonAuthManager_GetApiLevel(&level) != 0 ||
      am::PalvonAuthManager_Uninitialize() != 0) {
    return 1;
  }
  int traces = 0;
  for (const auto& entry : std::filesystem::directory_iterator(logs)) {
    traces += entry.path().filename().string().rfind("AuthManagerSDK-", 0) == 0 ? 1 : 0;
  }
  std::printf("api-level %u, trace files %d\n", static_cast<unsigned>(level), traces);
  return traces > 0 ? 0 : 1;
}
