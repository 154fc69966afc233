#ifndef PALVON_SDK_IPC_CLINUXIPC_H
#define PALVON_SDK_IPC_CLINUXIPC_H

#include <sys/types.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "ipc/IIPC.h"
#include "protocol/WireFormat.h"

namespace PalvonAuthManagerSDK {

/** Largest reply body accepted from the service; a longer one is a read error. */
constexpr uint32_t kMaxReplyBodyLength = wire::kMaxBodyLength;
/** Wait budget of one read, in milliseconds, spent in 10 ms steps. */
constexpr int kReadBudgetMs = 20000;
constexpr int kReadStepMs = 10;

/**
 * The client's pipe pair: requests are written to <dir>/<name>Write, replies
 * read from <dir>/<name>Read. Both FIFOs are opened read-write so that opening
 * never blocks, whether or not the service has the other ends open; they are
 * opened without following links and used only as FIFOs of the user.
 *
 * The channel also watches the service: it keeps the write end of the
 * registration pipe the process registered through. While the service that
 * took the registration is alive it holds the read end; when it exits, the
 * kernel wakes every writer, and an edge-triggered epoll set remembers that
 * wake-up even when a new service has opened the pipe since. Every 10 ms step
 * of a wait that brought nothing looks at it: a lost service ends the wait of
 * a call within one step and fails every later call.
 */
class CLinuxIPC : public IIPC {
 public:
  /** `name` is the channel's base name; the pipes live in getUserTmpDir(). */
  explicit CLinuxIPC(const std::string& name);
  ~CLinuxIPC() override;

  bool Open() override;
  bool Listen(unsigned int backlog) override;
  bool Connect(unsigned int timeout, bool retry) override;
  using IIPC::Read;
  /**
   * Waits for one frame and returns it decoded. Throws std::runtime_error
   * ("descriptor error - closed?", "select error", "read error"), a plain
   * std::exception after 20 s without data, or the C string
   * "Can not create read pipe!".
   */
  LinuxDictionary Read() override;
  bool Write(LinuxDictionary& message) override;
  /** One write of the whole buffer; a short write is a failure. */
  bool Write(const unsigned char* buffer, unsigned int length);
  void Close() override;
  void CloseFd() override;
  void Free(unsigned char* buffer) override;

  /** Opens the reply pipe, retrying every 100 ms while its file is missing. */
  bool ConnectReadPipeUntilSuccess();

  /**
   * Takes the registration pipe's write descriptor (owned from now on) and
   * watches it for the service's exit. False when it cannot be watched.
   */
  bool WatchService(int registrationFd);
  /** True once the service that took the registration is known to be gone. */
  bool ServiceLost();
  /** True in a child of fork(): the channel belongs to the parent process. */
  bool Inherited() const;

  /**
   * The pipe folder of the user, created on demand (see FindPipeFolder); ""
   * when there is none. Problems go to standard error and the trace.
   */
  static std::string getUserTmpDir();

  const std::string& ReadPath() const { return readPath_; }
  const std::string& WritePath() const { return writePath_; }
  int ReadFd() const { return readFd_; }
  int WriteFd() const { return writeFd_; }

 private:
  // Waits until the reply pipe is readable; `budget` counts down in 10 ms steps.
  void WaitReadable(int& budget, bool midFrame);
  // Waits for room in the request pipe; false when the channel was closed or
  // the service is gone.
  bool WaitWritable();
  // Opens one of the pipes, creating it first when `create`; -1 on failure.
  int OpenPipe(const std::string& path, bool create, dev_t& device, ino_t& inode);
  // Takes exactly `length` bytes of the reply stream (what an earlier read
  // brought in first), waiting between pieces.
  void ReadFully(uint8_t* into, size_t length, bool midFrame);

  std::string readPath_;
  std::string writePath_;
  int readFd_ = -1;
  int writeFd_ = -1;
  dev_t readDevice_ = 0;
  ino_t readInode_ = 0;
  dev_t writeDevice_ = 0;
  ino_t writeInode_ = 0;
  int watchFd_ = -1;  // write end of the registration pipe
  int epollFd_ = -1;  // edge-triggered watch over watchFd_
  std::atomic<bool> serviceLost_{false};
  const unsigned generation_;
  std::atomic<bool> closed_{false};
  std::atomic<bool> released_{false};
  // Bytes read from the reply pipe but not yet handed out: a small frame
  // comes in with one read, and whatever follows it waits here for the
  // next Read. Only Read touches these (under the caller's call lock).
  std::unique_ptr<uint8_t[]> buffer_;
  size_t bufferedStart_ = 0;
  size_t bufferedEnd_ = 0;
};

}  // namespace PalvonAuthManagerSDK

#endif
