#include "impl/LinuxAMImplementationV2.h"

namespace PalvonAuthManagerSDK {

LinuxAMImplementationV2::~LinuxAMImplementationV2() = default;

}  // namespace PalvonAuthManagerSDK
