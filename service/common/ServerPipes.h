#ifndef PALVON_SERVICE_COMMON_SERVERPIPES_H
#define PALVON_SERVICE_COMMON_SERVERPIPES_H

// The service's side of the pipes: the registration pipe every client
// announces itself on, and the pipe pair of one registered client.

#include <cstdint>
#include <string>
#include <vector>

#include "message/LinuxDictionary.h"

namespace pam_service {

/** Largest request body the service accepts from a client. */
constexpr uint32_t kMaxRequestBodyLength = 64u * 1024u * 1024u;

/** A 12-byte registration record as read from the registration pipe. */
struct RegistrationRecord {
  uint32_t messageType = 0;
  uint32_t processId = 0;
  uint32_t bodyLength = 0;
  /** True when the record has the registration type and length 12. */
  bool WellFormed() const;
};

/** Owns a file descriptor. */
class Fd {
 public:
  Fd() = default;
  explicit Fd(int fd) : fd_(fd) {}
  ~Fd();
  Fd(Fd&& other) noexcept : fd_(other.Release()) {}
  Fd& operator=(Fd&& other) noexcept;
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int Get() const { return fd_; }
  bool Valid() const { return fd_ >= 0; }
  int Release();
  void Reset(int fd = -1);

 private:
  int fd_ = -1;
};

/**
 * The registration pipe in a pipe directory. It is opened read-write so that
 * it never reports end-of-file while no client has it open.
 */
class RegistrationPipe {
 public:
  explicit RegistrationPipe(std::string directory);
  /** Creates the FIFO (mode 0666) if needed and opens it; false with errno set on failure. */
  bool Open();
  int Fd() const { return fd_.Get(); }
  const std::string& Path() const { return path_; }
  /**
   * Reads whatever is available without blocking and returns the complete
   * records; a partial record is kept for the next call.
   */
  std::vector<RegistrationRecord> ReadRecords();
  /**
   * Like ReadRecords, but returns only well-formed records and skips bytes
   * that cannot belong to one, so that junk written into the pipe does not
   * shift the records that follow it. Clients write each record with one
   * write of 12 bytes, which a pipe delivers whole; a buffered tail that
   * cannot start a record is therefore junk as well. `discarded` receives
   * the number of bytes skipped by this call.
   */
  std::vector<RegistrationRecord> ReadValidRecords(size_t& discarded);

 private:
  std::string path_;
  class Fd fd_;
  std::vector<uint8_t> pending_;
};

/** Outcome of reading from a client's request pipe. */
enum class ReadStatus { kFrame, kNeedMore, kClosed, kError };

/**
 * The pipe pair of one client: requests arrive on <base>Write, replies go to
 * <base>Read, with <base> = <directory>/.AuthManager<pid>.
 */
class ClientPipes {
 public:
  ClientPipes(const std::string& directory, uint32_t processId);
  /** Opens both pipes without blocking; false when the client's pipes are missing. */
  bool Open();
  uint32_t ProcessId() const { return processId_; }
  int RequestFd() const { return requestFd_.Get(); }
  const std::string& RequestPath() const { return requestPath_; }
  const std::string& ReplyPath() const { return replyPath_; }

  /**
   * Reads what is available and, once a whole frame is buffered, hands it
   * out (raw bytes and decoded). kClosed means the client closed its end.
   */
  ReadStatus ReadFrame(std::vector<uint8_t>& raw, PalvonAuthManagerSDK::LinuxDictionary& decoded);
  /** Waits up to timeoutMs for a whole frame. */
  ReadStatus WaitFrame(std::vector<uint8_t>& raw, PalvonAuthManagerSDK::LinuxDictionary& decoded, int timeoutMs);
  /**
   * Writes all bytes, waiting while the pipe is full; false on error or
   * time-out, and also as soon as `cancelFd` (when not -1) becomes readable.
   */
  bool WriteAll(const uint8_t* data, size_t length, int timeoutMs, int cancelFd = -1);
  /** Encodes and writes a reply. */
  bool SendReply(PalvonAuthManagerSDK::LinuxDictionary& reply, int timeoutMs, int cancelFd = -1);

 private:
  uint32_t processId_;
  std::string requestPath_;
  std::string replyPath_;
  class Fd requestFd_;
  class Fd replyFd_;
  std::vector<uint8_t> pending_;
};

/** Builds a reply message answering `request`: same type and process id, "return" = code. */
PalvonAuthManagerSDK::LinuxDictionary MakeReply(const PalvonAuthManagerSDK::LinuxDictionary& request, uint32_t code);

/** Ignores SIGPIPE so that writing to a vanished client is an error, not a signal. */
void IgnoreSigpipe();

}  // namespace pam_service

#endif
