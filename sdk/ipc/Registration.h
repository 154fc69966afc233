#ifndef PALVON_SDK_IPC_REGISTRATION_H
#define PALVON_SDK_IPC_REGISTRATION_H

namespace PalvonAuthManagerSDK {

/**
 * Creates the process's call channel (g_ClientCommPtr) with its pipe pair and
 * registers the process with the service. Blocks until a service has the
 * registration pipe open.
 */
bool ManufactureIPCInfrastructure();

/**
 * Writes the 12-byte registration record of this process into the service's
 * registration pipe. The argument is not used: the record always carries
 * this process's id.
 */
bool ClientIPCRegistration(int processId);

}  // namespace PalvonAuthManagerSDK

#endif
