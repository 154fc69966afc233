#include "ipc/Registration.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/shared_ptr.hpp>
#include <cerrno>
#include <cstring>

#include "PalvonAuthManagerTracer.h"
#include "client/CClientCommLib.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/PipeDirectory.h"
#include "message/MessageTypes.h"
#include "util/CSDKUtils.h"

namespace PalvonAuthManagerSDK {

namespace {

std::wstring Wide(const std::string& text) { return CSDKUtils::WidenBytes(text); }

std::string ErrorText(int error) {
  char text[256];
  return strerror_r(error, text, sizeof text);
}

}  // namespace

bool ManufactureIPCInfrastructure() {
  const uint32_t pid = CurrentProcessId();
  const std::string name = ClientChannelName(pid);
  CTracer::Msg(L"GUID: %ls ", Wide(name).c_str());
  g_ClientCommPtr.reset(new CClientCommLib(name.c_str()));
  return ClientIPCRegistration(static_cast<int>(pid));
}

bool ClientIPCRegistration(int /*processId*/) {
  const MessageCommon record(msg::kRegistration, CurrentProcessId(), kMessagePrefixSize);
  uint8_t bytes[kMessagePrefixSize];
  std::memcpy(bytes, &record.messageType, 4);
  std::memcpy(bytes + 4, &record.processId, 4);
  std::memcpy(bytes + 8, &record.bodyLength, 4);

  const std::string path = CLinuxIPC::getUserTmpDir() + "/" + kRegistrationPipeName;
  const std::wstring widePath = Wide(path);
  if (mkfifo(path.c_str(), 0600) != 0 && errno != EEXIST) {
    CTracer::Err(L"Failed to create the Registration pipe : %ls with error %ls", widePath.c_str(),
                 Wide(ErrorText(errno)).c_str());
    return false;
  }
  CTracer::Msg(L"Successfully created Registration pipe: %ls ", widePath.c_str());
  if (chmod(path.c_str(), 0666) != 0) {
    CTracer::Err(L"Failed to change permission of Registration pipe : %ls with error ", widePath.c_str());
  } else {
    CTracer::Msg(L"Successfully changed permission of Registration pipe: %ls ", widePath.c_str());
  }

  // Blocks until the service has the pipe open for reading.
  int fd;
  do {
    fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
  } while (fd == -1 && errno == EINTR);
  if (fd == -1) {
    CTracer::Err(L"Client: IPC error opening registration pipe for write : %ls ", widePath.c_str());
    return false;
  }
  CTracer::Msg(L"Client: Opened fifo : %ls ", widePath.c_str());
  bool ok = true;
  if (write(fd, bytes, sizeof bytes) == -1) {
    CTracer::Err(L"Client: IPC error writing to registration pipe : %ls ", widePath.c_str());
    ok = false;
  }
  close(fd);
  return ok;
}

}  // namespace PalvonAuthManagerSDK
