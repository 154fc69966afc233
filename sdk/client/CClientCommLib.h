#ifndef PALVON_SDK_CLIENT_CCLIENTCOMMLIB_H
#define PALVON_SDK_CLIENT_CCLIENTCOMMLIB_H

#include <boost/shared_ptr.hpp>
#include <memory>
#include <mutex>

#include "PalvonAuthManager.h"
#include "ipc/IIPC.h"
#include "message/LinuxDictionary.h"

namespace PalvonAuthManagerSDK {

/**
 * The process's synchronous call channel to the service: one request out,
 * one reply back, under a lock held for the whole exchange, so replies pair
 * with requests by order alone.
 */
class CClientCommLib {
 public:
  /** Creates the pipe pair <pipe directory>/<pipeName>{Read,Write} and opens it. */
  explicit CClientCommLib(const char* pipeName);
  /** Takes an already built channel (used by tests). */
  explicit CClientCommLib(std::unique_ptr<IIPC> ipc);
  virtual ~CClientCommLib();
  CClientCommLib(const CClientCommLib&) = delete;
  CClientCommLib& operator=(const CClientCommLib&) = delete;

  /** Writes the request; 0 on success, 65528 otherwise. */
  AMResult SendMessage(LinuxDictionary& request);
  /** Waits for one message and stores it as the last reply; false on a pipe failure. */
  bool GetMessage();
  /** GetMessage(), then copies the reply's values and envelope into `out`. */
  bool GetReply(LinuxDictionary& out);
  /**
   * Sends the request and returns the reply. When the wait fails with a pipe
   * error, the request's own values come back (so "return" is absent).
   * Throws std::exception when the request cannot be written.
   */
  LinuxDictionary MakeCall(LinuxDictionary& request);
  /** Looks up "AMResult" in the last reply (diagnostic hook). */
  void PrintResponse();
  /** Closes the pipe descriptors; a waiting read ends with a pipe error. */
  void Close();

  IIPC* Channel() const { return ipc_.get(); }
  const MessageCommon& Envelope() const { return envelope_; }

 private:
  boost::shared_ptr<void> unused_;
  std::unique_ptr<IIPC> ipc_;
  std::mutex callLock_;
  MessageCommon envelope_;
  boost::shared_ptr<LinuxDictionary> reply_;
};

/** The process's one call channel, set by library initialisation. */
extern boost::shared_ptr<CClientCommLib> g_ClientCommPtr;
/** Defined beside g_ClientCommPtr; the library never takes it. */
extern std::mutex g_ClientCommPtr_mutex;

}  // namespace PalvonAuthManagerSDK

#endif
