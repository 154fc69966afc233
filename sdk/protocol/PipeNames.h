#ifndef PALVON_SDK_PROTOCOL_PIPENAMES_H
#define PALVON_SDK_PROTOCOL_PIPENAMES_H

// Names and places of the files a client and its service share: the pipe
// folder candidates, the pipes in it, and the folder of the trace files.

#include <cstdint>
#include <string>
#include <vector>

namespace PalvonAuthManagerSDK {

/** Name of the service's registration pipe inside the pipe folder. */
// "Listner" is the name every service and client uses; kept on purpose.
constexpr const char* kRegistrationPipeName = ".AuthManagerListnerPipe";
/** Suffixes of a client's reply pipe (client reads) and request pipe (client writes). */
constexpr const char* kReplyPipeSuffix = "Read";
constexpr const char* kRequestPipeSuffix = "Write";

/** Base name of a client's pipes: ".AuthManager" + process id. */
std::string ClientChannelName(uint32_t processId);

/** $HOME/.RZPClient: the folder of the client's files in a home directory. */
std::string ClientDataFolder(const std::string& home);
/** $HOME/.RZPClient/logs: where the library writes its trace files. */
std::string TraceFolder(const std::string& home);
/** Trace files are named <kTraceFilePrefix><time>-<pid>-<address>.txt. */
constexpr const char* kTraceFilePrefix = "AuthManagerSDK-";
constexpr const char* kTraceFileSuffix = ".txt";

/**
 * The pipe folders to try, first choice first, each with the folders to
 * create on the way: $HOME/.RZPClient then $HOME/.RZPClient/.tmp (when the
 * home is not empty), then /tmp/<user> (when the user name is a plain
 * name). Each candidate's last entry is the pipe folder itself.
 */
std::vector<std::vector<std::string>> PipeFolderCandidates(const std::string& home, const std::string& user);

}  // namespace PalvonAuthManagerSDK

#endif
