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
   * Sends the request and returns the reply. Throws std::exception when the
   * request cannot be written, and std::runtime_error when no reply could be
   * read (a pipe error, or the service has gone): an exchange without a reply
   * never passes for one.
   */
  LinuxDictionary MakeCall(LinuxDictionary& request);
  /** Looks up "AMResult" in the last reply (diagnostic hook). */
  void PrintResponse();
  /** Closes the pipe descriptors; a waiting read ends with a pipe error. */
  void Close();
  /**
   * Hands the channel the write end of the registration pipe (always taken
   * over, closed when it cannot be used), so that it notices the service's
   * exit.
   */
  void WatchService(int registrationFd);

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
/** Guards every read and replacement of g_ClientCommPtr. */
extern std::mutex g_ClientCommPtr_mutex;

/** A reference to the current call channel (empty when there is none). */
boost::shared_ptr<CClientCommLib> CurrentChannel();
/** Replaces the current call channel; the old one dies with its last user. */
void ReplaceChannel(boost::shared_ptr<CClientCommLib> channel);

}  // namespace PalvonAuthManagerSDK

#endif
