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
 * atomics make those reads well defined. An export counts itself in
 * `inFlight` before it reads a pointer, and the last Uninitialize unpublishes
 * the objects first and deletes them only once no export is inside them.
 */
struct GlobalState {
  std::atomic<LinuxAMImplementation*> level1{nullptr};
  std::atomic<LinuxAMImplementationV2*> level2{nullptr};
  std::atomic<uint32_t> apiLevel{0};
  std::atomic<int> inFlight{0};
  int initCount = 0;         // guarded by the init mutex
  unsigned generation = 0;   // fork generation the state belongs to (init mutex)
};

GlobalState& Globals();

/** Counts an export as running through the implementation objects. */
class InFlightCall {
 public:
  InFlightCall() noexcept { Globals().inFlight.fetch_add(1); }
  ~InFlightCall() { Globals().inFlight.fetch_sub(1); }
  InFlightCall(const InFlightCall&) = delete;
  InFlightCall& operator=(const InFlightCall&) = delete;
};

}  // namespace PalvonAuthManagerSDK

#endif
