#ifndef PALVON_SERVICE_COMMON_SERVERPIPES_H
#define PALVON_SERVICE_COMMON_SERVERPIPES_H

// The service's side of the pipes: the registration pipe every client
// announces itself on, and the pipe pair of one registered client.

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "message/LinuxDictionary.h"
#include "protocol/FrameCodec.h"

namespace pam_service {

/** Largest request body the service accepts from a client. */
constexpr uint32_t kMaxRequestBodyLength = PalvonAuthManagerSDK::wire::kMaxBodyLength;

/** A registration record as read from the registration pipe: an envelope without a body. */
struct RegistrationRecord : PalvonAuthManagerSDK::wire::Envelope {
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
  int Release();
  void Reset(int fd = -1);

 private:
  int fd_ = -1;
};

/** Identity of an opened file (device and inode, as fstat reported them). */
struct FileId {
  dev_t device = 0;
  ino_t inode = 0;
};

/** Identity of the file behind a descriptor; all zero when it cannot be read. */
FileId IdOf(int fd);

/**
 * Words for an errno left by opening one of the pipes (OpenOwnedFifo,
 * MakeOwnedFifo): a link, a file of the wrong kind or owner, or the system's
 * own message.
 */
std::string PipeProblem(int error);

/**
 * The registration pipe in a pipe directory. It is opened read-write so that
 * it never reports end-of-file while no client has it open.
 */
class RegistrationPipe {
 public:
  explicit RegistrationPipe(std::string directory);
  /**
   * Creates the FIFO if needed (never through a link, never over another
   * user's file), opens it and gives it mode 0666 through the descriptor.
   * False with errno set on failure (see PipeProblem).
   */
  bool Open();
  int Fd() const { return fd_.Get(); }
  const std::string& Path() const { return path_; }
  /**
   * Reads what is available without blocking (at most a few kilobytes per
   * call, so a writer that never stops cannot make the buffer grow) and
   * returns the complete records; a partial record is kept for the next call.
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
 * Cuts the byte stream of a request pipe into frames: the 12-byte prefix
 * first, then exactly the body it announces. It never reads past the end of
 * the current frame, refuses a declared body over kMaxRequestBodyLength
 * before reading any of it, and grows its buffer only as bytes arrive, so a
 * client costs at most one frame of memory.
 */
class FrameReader {
 public:
  /**
   * Reads from the non-blocking `fd` (at most about a megabyte per call) and
   * hands out the frame once it is complete. kClosed: end-of-file; kError:
   * a read error or an oversized frame (and every call after that).
   */
  ReadStatus Read(int fd, std::vector<uint8_t>& raw, PalvonAuthManagerSDK::LinuxDictionary& decoded);
  /** True while part of a frame (prefix or body) has been read. */
  bool InFrame() const { return have_ > 0; }
  /** When the last bytes arrived. */
  std::chrono::steady_clock::time_point LastProgress() const { return lastProgress_; }
  /** Body length announced by the prefix of an oversized frame (0 otherwise). */
  uint32_t RefusedLength() const { return refusedLength_; }

 private:
  std::vector<uint8_t> frame_;
  size_t have_ = 0;
  /** Length of the current frame as far as it is known: the prefix, then prefix + body. */
  size_t wanted_ = PalvonAuthManagerSDK::wire::kEnvelopeSize;
  bool failed_ = false;
  uint32_t refusedLength_ = 0;
  std::chrono::steady_clock::time_point lastProgress_;
};

/** The paths of a client's pipes and the files that were opened under them. */
struct PipeFiles {
  std::string requestPath;
  std::string replyPath;
  FileId request;
  FileId reply;
  /** True while both paths still name the very files that were opened. */
  bool SameOnDisk() const;
  /** True while at least one path still names the file that was opened under it. */
  bool AnyOnDisk() const;
  /** Removes each path that still names the FIFO opened under it; returns how many were removed. */
  int RemoveIfSame() const;
};

/**
 * The pipe pair of one client: requests arrive on <base>Write, replies go to
 * <base>Read, with <base> = <directory>/.AuthManager<pid>.
 */
class ClientPipes {
 public:
  ClientPipes(const std::string& directory, uint32_t processId);
  /**
   * Opens both pipes without blocking, only when they are FIFOs of this
   * user and not links. False with errno set when they are missing, of the
   * wrong kind or cannot be opened; Problem() then names the path and why.
   */
  bool Open();
  uint32_t ProcessId() const { return processId_; }
  int RequestFd() const { return requestFd_.Get(); }
  /** Paths and identities of the opened pipes (identities valid after Open). */
  const PipeFiles& Files() const { return files_; }
  const std::string& Problem() const { return problem_; }
  /** The framing state of the request pipe. */
  const FrameReader& Reader() const { return reader_; }

  /** Reads what is available of the next frame and hands it out once complete (see FrameReader). */
  ReadStatus ReadFrame(std::vector<uint8_t>& raw, PalvonAuthManagerSDK::LinuxDictionary& decoded);
  /**
   * Writes all bytes, waiting while the pipe is full; false on error or
   * time-out, and also as soon as `cancelFd` (when not -1) becomes readable.
   */
  bool WriteAll(const uint8_t* data, size_t length, int timeoutMs, int cancelFd = -1);
  /** Encodes and writes a reply. */
  bool SendReply(PalvonAuthManagerSDK::LinuxDictionary& reply, int timeoutMs, int cancelFd = -1);

 private:
  uint32_t processId_;
  PipeFiles files_;
  std::string problem_;
  class Fd requestFd_;
  class Fd replyFd_;
  FrameReader reader_;
};

/** Builds a reply message answering `request`: same type and process id, "return" = code. */
PalvonAuthManagerSDK::LinuxDictionary MakeReply(const PalvonAuthManagerSDK::LinuxDictionary& request, uint32_t code);

/** Ignores SIGPIPE so that writing to a vanished client is an error, not a signal. */
void IgnoreSigpipe();

}  // namespace pam_service

#endif
