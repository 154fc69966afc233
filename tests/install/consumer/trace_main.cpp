// Uses the installed library from C++ with tracing switched on, and reports
// whether the trace file appeared in $HOME/.RZPClient/logs.
#include <PalvonAuthManager.h>
#include <PalvonAuthManagerTracer.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace am = PalvonAuthManagerSDK;

int main() {
  const char* home = std::getenv("HOME");
  if (home == nullptr) return 2;
  const std::filesystem::path client = std::filesystem::path(home) / ".RZPClient";
  std::filesystem::create_directories(client);

  am::CTracer::s_tracingEnabled = true;
  if (am::PalvonAuthManager_Initialize() != am::AM_RESULT_SUCCESS) return 1;
  am::AMUint level = 0;
  const am::AMResult result = am::PalvonAuthManager_GetApiLevel(&level);
  if (am::PalvonAuthManager_Uninitialize() != am::AM_RESULT_SUCCESS || result != am::AM_RESULT_SUCCESS) return 1;

  int traces = 0;
  for (const auto& entry : std::filesystem::directory_iterator(client / "logs")) {
    if (entry.path().filename().string().rfind("AuthManagerSDK-", 0) == 0) ++traces;
  }
  std::printf("api-level %u, trace files %d\n", static_cast<unsigned>(level), traces);
  return traces > 0 ? 0 : 1;
}
