#ifndef PALVON_SDK_IMPL_LINUXAMIMPLEMENTATIONV2_H
#define PALVON_SDK_IMPL_LINUXAMIMPLEMENTATIONV2_H

#include "PalvonAuthManager.h"

namespace PalvonAuthManagerSDK {

/** API level 2 operations: HTTP requests performed by the service, launch-file hand-off. */
class LinuxAMImplementationV2 {
 public:
  LinuxAMImplementationV2() = default;
  virtual ~LinuxAMImplementationV2();
  LinuxAMImplementationV2(const LinuxAMImplementationV2&) = delete;
  LinuxAMImplementationV2& operator=(const LinuxAMImplementationV2&) = delete;
};

}  // namespace PalvonAuthManagerSDK

#endif
