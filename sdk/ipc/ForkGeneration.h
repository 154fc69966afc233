#ifndef PALVON_SDK_IPC_FORKGENERATION_H
#define PALVON_SDK_IPC_FORKGENERATION_H

namespace PalvonAuthManagerSDK {

/**
 * Counts the forks this process descends from since the library was first
 * used: a child of fork() sees a higher number than its parent had, so an
 * object that remembers the number it was made under knows whether it was
 * inherited. The first call installs the fork handler.
 */
unsigned ForkGeneration();

}  // namespace PalvonAuthManagerSDK

#endif
