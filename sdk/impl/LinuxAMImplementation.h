#ifndef PALVON_SDK_IMPL_LINUXAMIMPLEMENTATION_H
#define PALVON_SDK_IMPL_LINUXAMIMPLEMENTATION_H

#include "PalvonAuthManager.h"

namespace PalvonAuthManagerSDK {

/**
 * API level 1 operations. Each builds one request, sends it through the call
 * channel and copies the reply's values out; all state lives in the service.
 */
class LinuxAMImplementation {
 public:
  LinuxAMImplementation() = default;
  virtual ~LinuxAMImplementation();
  LinuxAMImplementation(const LinuxAMImplementation&) = delete;
  LinuxAMImplementation& operator=(const LinuxAMImplementation&) = delete;

  /** Tells the service this client starts (message 1). */
  virtual AMResult Initialize();
  /** Tells the service this client ends (message 3) and releases the call channel. */
  virtual AMResult Uninitialize();
};

}  // namespace PalvonAuthManagerSDK

#endif
