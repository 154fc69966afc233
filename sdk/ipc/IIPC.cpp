#include "ipc/IIPC.h"

namespace PalvonAuthManagerSDK {

bool IIPC::Listen(unsigned int /*backlog*/) { return false; }
bool IIPC::Connect(unsigned int /*timeout*/, bool /*retry*/) { return false; }
bool IIPC::Read(unsigned char** /*buffer*/, int* /*length*/, unsigned int /*timeout*/) { return false; }
bool IIPC::Write(LinuxDictionary& /*message*/) { return false; }
void IIPC::Close() {}
void IIPC::CloseFd() {}
void IIPC::Free(unsigned char* /*buffer*/) {}

}  // namespace PalvonAuthManagerSDK
