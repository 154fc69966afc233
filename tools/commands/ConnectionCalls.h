#ifndef PALVONAUTH_TOOLS_COMMANDS_CONNECTIONCALLS_H
#define PALVONAUTH_TOOLS_COMMANDS_CONNECTIONCALLS_H

// Level-1 calls on a connection, each writing its results as members of the
// current output record. Used on their own by the single-purpose
// subcommands and in sequence by `connect`. A failing call throws
// LibraryError after releasing whatever the library handed out.

#include <cstdint>
#include <optional>
#include <string>

#include "Output.h"
#include "PalvonAuthManager.h"
#include "commands/Gateway.h"

namespace palvonauth {

using PalvonAuthManagerSDK::ConnectionHandle;

void CallGetVersion(Output& out, ConnectionHandle connection);
void CallGetLogonStatus(Output& out, ConnectionHandle connection, const std::string& url);
void CallDetermineServerType(Output& out, ConnectionHandle connection, const std::string& url);
void CallGenerateTrampolineUrl(Output& out, ConnectionHandle connection, const std::string& url,
                               const std::optional<std::string>& referenceUrl, uint32_t flags);
void CallRetrieveGatewayDiscoveryData(Output& out, ConnectionHandle connection, const GatewayOptions& gateway,
                                      uint32_t flags);
void CallLogOff(Output& out, ConnectionHandle connection);
void CallLogOffGateway(Output& out, ConnectionHandle connection, const GatewayOptions& gateway);
void CallLogOffAuthService(Output& out, ConnectionHandle connection, const std::string& url);
void CallClearAllCredentials(Output& out, ConnectionHandle connection);
void CallCancelAllCalls(Output& out, ConnectionHandle connection);

/** A client window: left, bottom, width, height and an optional name. */
struct WindowGeometry {
  int32_t left = 0;
  int32_t bottom = 0;
  int32_t width = 0;
  int32_t height = 0;
  std::optional<std::string> name;
};
/** Parses "LEFT,BOTTOM,WIDTH,HEIGHT[,NAME]"; false when malformed. */
bool ParseWindow(const std::string& text, WindowGeometry& window);
void CallSetClientWindow(Output& out, ConnectionHandle connection, const WindowGeometry& window);

}  // namespace palvonauth

#endif
