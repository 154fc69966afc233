/* The public header compiled as strict C11: self-contained, warning-free and
 * usable without any C++ around it. */
#include "PalvonAuthManager.h"

/* Every public type is declared; taking a function's address checks its declaration. */
_Static_assert(0 < sizeof(AMByte) + sizeof(AMUTF8Char) + sizeof(AMUint) + sizeof(RequestContextHandle) +
                       sizeof(VpnAuthContextHandle) + sizeof(AMHttpHandle) + sizeof(AMCertificate) +
                       sizeof(AMAuthenticationFlags) + sizeof(AMAuthenticationResult) + sizeof(AMLogonStatus) +
                       sizeof(AMHttpStatus) + sizeof(AMHttpFailureReason) + sizeof(AMWindowId) +
                       sizeof(StatusChangeCallback) + sizeof(bool) + sizeof(enum AMResultCode),
               "public types");
AMResult (*pam_header_check_c11(void))(AMUint*) { return &PalvonAuthManager_GetApiLevel; }
