#ifndef PALVON_SDK_IPC_PIPEDIRECTORY_H
#define PALVON_SDK_IPC_PIPEDIRECTORY_H

#include <cstdint>
#include <string>

namespace PalvonAuthManagerSDK {

/** Name of the service's registration pipe inside the pipe directory. */
// "Listner" is the name every service and client uses; kept on purpose.
constexpr const char* kRegistrationPipeName = ".AuthManagerListnerPipe";
/** Suffixes of a client's reply pipe (client reads) and request pipe (client writes). */
constexpr const char* kReplyPipeSuffix = "Read";
constexpr const char* kRequestPipeSuffix = "Write";

/** Base name of a client's pipes: ".AuthManager" + process id. */
std::string ClientChannelName(uint32_t processId);

/**
 * Adds read and write permission for owner, group and others, through a
 * descriptor opened without following links; false if the file cannot be
 * opened or changed.
 */
bool ChangePermission(const char* path);

}  // namespace PalvonAuthManagerSDK

#endif
