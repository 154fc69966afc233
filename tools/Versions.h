#ifndef PALVONAUTH_TOOLS_VERSIONS_H
#define PALVONAUTH_TOOLS_VERSIONS_H

// What `palvonauth --version` prints: the tool's version and that of the
// library this process actually loaded, found without a service.

#include <string>

namespace palvonauth {

/** "palvonauth 1.0.0\nlibpalvonauthmanager 1.0.0 (/usr/lib/libpalvonauthmanager.so.1.0.0)". */
std::string VersionText();

}  // namespace palvonauth

#endif
