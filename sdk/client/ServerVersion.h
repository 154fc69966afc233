#ifndef PALVON_SDK_CLIENT_SERVERVERSION_H
#define PALVON_SDK_CLIENT_SERVERVERSION_H

#include "PalvonAuthManager.h"

namespace PalvonAuthManagerSDK {

/** Asks the service for the SDK version it speaks (message 83). */
AMResult GetServerSDKVersion(AMUint* version);

}  // namespace PalvonAuthManagerSDK

#endif
