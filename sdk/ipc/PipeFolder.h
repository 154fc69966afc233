#ifndef PALVON_SDK_IPC_PIPEFOLDER_H
#define PALVON_SDK_IPC_PIPEFOLDER_H

#include <functional>
#include <string>

#include "protocol/PipeNames.h"

namespace PalvonAuthManagerSDK {

/** What the pipe-folder search has to say while it looks. */
enum class PipeFolderNote {
  kFallback,  // the home folder cannot be used; the search falls back to /tmp/<user>
  kProblem,   // a candidate, or every candidate, was refused
};
using PipeFolderReport = std::function<void(PipeFolderNote note, const std::string& line)>;

/**
 * The per-user pipe folder shared by the service and all its clients, the
 * first usable candidate of PipeFolderCandidates (HOME, else the password
 * entry's home; USER, else its login name), created on the way with mode
 * 0700. A folder is used only when it is private to the user (see
 * OwnedFiles.h). Returns "" when no candidate is usable; `report` hears
 * every refusal.
 */
std::string FindPipeFolder(const PipeFolderReport& report);

/**
 * Adds read and write permission for owner, group and others, through a
 * descriptor opened without following links; false if the file cannot be
 * opened or changed.
 */
bool ChangePermission(const char* path);

}  // namespace PalvonAuthManagerSDK

#endif
