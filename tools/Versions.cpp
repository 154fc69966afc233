#include "Versions.h"

#include <dlfcn.h>

#include <climits>
#include <cstdlib>

#include "PalvonAuthManager.h"

namespace palvonauth {

namespace {

// The file the dynamic linker loaded the library from, with links resolved:
// its name carries the full version (libpalvonauthmanager.so.1.0.0), where
// the name the tool asked for carries only the interface's (.so.1).
std::string LoadedLibraryFile() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&PalvonAuthManagerSDK::PalvonAuthManager_Initialize), &info) == 0 ||
      info.dli_fname == nullptr) {
    return std::string();
  }
  char resolved[PATH_MAX];
  return realpath(info.dli_fname, resolved) != nullptr ? resolved : info.dli_fname;
}

}  // namespace

std::string VersionText() {
  std::string text = std::string("palvonauth ") + PALVONAUTH_VERSION + "\n";
  const std::string file = LoadedLibraryFile();
  const std::string marker = "libpalvonauthmanager.so.";
  const size_t at = file.rfind(marker);
  if (file.empty()) {
    text += "libpalvonauthmanager (not found among the loaded files)";
  } else if (at == std::string::npos || file.find('/', at) != std::string::npos) {
    text += "libpalvonauthmanager, version unknown (" + file + ")";
  } else {
    text += "libpalvonauthmanager " + file.substr(at + marker.size()) + " (" + file + ")";
  }
  return text;
}

}  // namespace palvonauth
