#ifndef PALVON_SDK_IPC_OWNEDFILES_H
#define PALVON_SDK_IPC_OWNEDFILES_H

// Opening the pipe folder and the files in it on a machine shared with other
// users: links are never followed, and a file is used only when it is of the
// expected kind and belongs to the user running this process.

#include <sys/types.h>

#include <string>

namespace PalvonAuthManagerSDK {

/**
 * Checks that `path` is a real directory (not a link) owned by the current
 * user that neither group nor others may write. A directory of the user that
 * group or others may only read or enter is narrowed to mode 0700. On
 * failure returns false and puts the reason into `why`.
 */
bool CheckPrivateDirectory(const std::string& path, std::string& why);

/**
 * Opens a FIFO with O_NOFOLLOW (plus `flags`, O_CLOEXEC added) and checks
 * with fstat that it is a FIFO owned by the current user. Returns the
 * descriptor, or -1 with errno set (ELOOP for a link, EPERM for a file that
 * is not a FIFO of the user; the open's own errno otherwise).
 */
int OpenOwnedFifo(const std::string& path, int flags);

/**
 * Creates `path` as a FIFO of mode 0600 unless a FIFO of the user is there
 * already; anything else under that name (a link, a file, another user's
 * FIFO) is an error (EEXIST). Returns false with errno set on failure.
 */
bool MakeOwnedFifo(const std::string& path);

/**
 * Adds read and write for everyone to the mode of an open file, through its
 * descriptor. False when the file cannot be changed.
 */
bool WidenPermission(int fd);

/** True when the descriptor is a FIFO owned by the current user. */
bool IsOwnedFifo(int fd);

/**
 * Removes `path` when it is still the FIFO identified by `device` and
 * `inode` (as fstat reported it when it was opened); leaves anything else.
 */
bool RemoveFifoIfSame(const std::string& path, dev_t device, ino_t inode);

}  // namespace PalvonAuthManagerSDK

#endif
