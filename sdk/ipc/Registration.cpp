#include "ipc/Registration.h"

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/shared_ptr.hpp>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <ctime>

#include "PalvonAuthManagerTracer.h"
#include "client/CClientCommLib.h"
#include "ipc/CLinuxIPC.h"
#include "ipc/OwnedFiles.h"
#include "ipc/PipeFolder.h"
#include "protocol/FrameCodec.h"
#include "protocol/Operations.h"
#include "util/CSDKUtils.h"

namespace PalvonAuthManagerSDK {

namespace {

std::wstring Wide(const std::string& text) { return CSDKUtils::WidenBytes(text); }

std::string ErrorText(int error) {
  char text[256];
  return strerror_r(error, text, sizeof text);
}

// Writes with SIGPIPE blocked for the calling thread, so that a reader that
// vanishes between our open and our write costs an EPIPE, never the host
// application's life. A SIGPIPE raised by this write is taken back.
ssize_t WriteWithoutSigpipe(int fd, const void* data, size_t length) {
  sigset_t pipeOnly;
  sigset_t previous;
  sigemptyset(&pipeOnly);
  sigaddset(&pipeOnly, SIGPIPE);
  if (pthread_sigmask(SIG_BLOCK, &pipeOnly, &previous) != 0) return -1;
  sigset_t pending;
  sigemptyset(&pending);
  const bool alreadyPending = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
  ssize_t written;
  do {
    written = write(fd, data, length);
  } while (written < 0 && errno == EINTR);
  const int error = errno;
  if (written < 0 && error == EPIPE && !alreadyPending) {
    const struct timespec now {};
    while (sigtimedwait(&pipeOnly, nullptr, &now) == -1 && errno == EINTR) {
    }
  }
  (void)pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  errno = error;
  return written;
}

// Blocks until some process has the registration pipe open for reading.
bool WaitForReader(const std::string& path) {
  const int fd = OpenOwnedFifo(path, O_WRONLY);
  if (fd < 0) return false;
  close(fd);
  return true;
}

// Waits until the service has read what this process wrote into the
// registration pipe. While the pipe has no reader the record stays in it (the
// descriptor is still open), and a reader that opened the pipe and went away
// without reading does not make it lost: the wait goes on until a reader
// empties the pipe.
bool WaitUntilTaken(int fd, const std::string& path) {
  bool readerGone = false;
  for (;;) {
    int unread = 0;
    if (ioctl(fd, FIONREAD, &unread) != 0) return false;
    if (unread == 0) return true;
    if (readerGone && !WaitForReader(path)) return false;
    struct pollfd wait {
      fd, 0, 0
    };
    // POLLERR: no reader now (checked again for what it read before leaving).
    readerGone = poll(&wait, 1, 10) > 0 && (wait.revents & POLLERR) != 0;
  }
}

}  // namespace

bool ManufactureIPCInfrastructure() {
  const uint32_t pid = CurrentProcessId();
  const std::string name = ClientChannelName(pid);
  CTracer::Msg(L"GUID: %ls ", Wide(name).c_str());
  ReplaceChannel(boost::shared_ptr<CClientCommLib>(new CClientCommLib(name.c_str())));
  return ClientIPCRegistration(static_cast<int>(pid));
}

bool ClientIPCRegistration(int /*processId*/) {
  const MessageCommon record(msg::kRegistration, CurrentProcessId(), kMessagePrefixSize);
  uint8_t bytes[kMessagePrefixSize];
  wire::WriteEnvelope(bytes, wire::Envelope{record.messageType, record.processId, record.bodyLength});

  const std::string directory = CLinuxIPC::getUserTmpDir();
  const std::string path = directory.empty() ? std::string() : directory + "/" + kRegistrationPipeName;
  const std::wstring widePath = Wide(path);
  if (path.empty() || !MakeOwnedFifo(path)) {
    CTracer::Err(L"Failed to create the Registration pipe : %ls with error %ls", widePath.c_str(),
                 Wide(path.empty() ? "no private pipe folder" : ErrorText(errno)).c_str());
    return false;
  }
  CTracer::Msg(L"Successfully created Registration pipe: %ls ", widePath.c_str());
  // The mode changes through a descriptor of the FIFO itself (a read-only
  // open of a FIFO never blocks with O_NONBLOCK).
  const int modeFd = OpenOwnedFifo(path, O_RDONLY | O_NONBLOCK);
  if (modeFd < 0 || fchmod(modeFd, 0666) != 0) {
    CTracer::Err(L"Failed to change permission of Registration pipe : %ls with error ", widePath.c_str());
  } else {
    CTracer::Msg(L"Successfully changed permission of Registration pipe: %ls ", widePath.c_str());
  }
  if (modeFd >= 0) close(modeFd);

  for (;;) {
    // Blocks until the service has the pipe open for reading.
    const int fd = OpenOwnedFifo(path, O_WRONLY);
    if (fd == -1) {
      CTracer::Err(L"Client: IPC error opening registration pipe for write : %ls ", widePath.c_str());
      return false;
    }
    CTracer::Msg(L"Client: Opened fifo : %ls ", widePath.c_str());
    if (WriteWithoutSigpipe(fd, bytes, sizeof bytes) == -1) {
      const bool readerLeft = errno == EPIPE;
      close(fd);
      // The reader left between the open and the write: wait for the next.
      if (readerLeft) continue;
      CTracer::Err(L"Client: IPC error writing to registration pipe : %ls ", widePath.c_str());
      return false;
    }
    if (!WaitUntilTaken(fd, path)) {
      close(fd);
      CTracer::Err(L"Client: IPC error writing to registration pipe : %ls ", widePath.c_str());
      return false;
    }
    // The descriptor stays open for the channel's life: it is how the
    // channel learns that the service went away.
    const boost::shared_ptr<CClientCommLib> channel = CurrentChannel();
    if (channel) {
      channel->WatchService(fd);
    } else {
      close(fd);
    }
    return true;
  }
}

}  // namespace PalvonAuthManagerSDK
