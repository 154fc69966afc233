#ifndef PALVON_SDK_API_GLOBALSTATE_H
#define PALVON_SDK_API_GLOBALSTATE_H

#include <atomic>
#include <cstdint>

namespace PalvonAuthManagerSDK {

class LinuxAMImplementation;
class LinuxAMImplementationV2;

/**
 * Process-wide state of the public layer. The implementation pointers are
 * written only under the init mutex and read by the exports without a lock;
 * atomics make those reads well defined.
 */
struct GlobalState {
  std::atomic<LinuxAMImplementation*> level1{nullptr};
  std::atomic<LinuxAMImplementationV2*> level2{nullptr};
  std::atomic<uint32_t> apiLevel{0};
  int initCount = 0;  // guarded by the init mutex
};

GlobalState& Globals();

}  // namespace PalvonAuthManagerSDK

#endif
