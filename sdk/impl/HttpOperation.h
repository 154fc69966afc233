#ifndef PALVON_SDK_IMPL_HTTPOPERATION_H
#define PALVON_SDK_IMPL_HTTPOPERATION_H

#include "impl/ServiceOperation.h"

namespace PalvonAuthManagerSDK {

/** A level-2 operation on an HTTP request handle, with its handle messages. */
ServiceOperation HttpOperation(const char* signature, uint32_t type, AMHttpHandle handle);

}  // namespace PalvonAuthManagerSDK

#endif
