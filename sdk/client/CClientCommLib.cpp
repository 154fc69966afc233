#include "client/CClientCommLib.h"

#include <boost/make_shared.hpp>
#include <unistd.h>

#include <cassert>
#include <stdexcept>

#include "ipc/CLinuxIPC.h"
#include "protocol/Keys.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

boost::shared_ptr<CClientCommLib> g_ClientCommPtr;
std::mutex g_ClientCommPtr_mutex;

boost::shared_ptr<CClientCommLib> CurrentChannel() {
  std::lock_guard<std::mutex> lock(g_ClientCommPtr_mutex);
  return g_ClientCommPtr;
}

void ReplaceChannel(boost::shared_ptr<CClientCommLib> channel) {
  boost::shared_ptr<CClientCommLib> old;
  {
    std::lock_guard<std::mutex> lock(g_ClientCommPtr_mutex);
    old = g_ClientCommPtr;
    g_ClientCommPtr = std::move(channel);
  }
  // The old channel (closing its pipes) goes outside the lock.
}

CClientCommLib::CClientCommLib(const char* pipeName) {
  auto channel = std::make_unique<CLinuxIPC>(pipeName != nullptr ? pipeName : "");
  // Failures here surface on first use: a channel without descriptors fails
  // to send, and the call reports 65528.
  (void)channel->Open();
  (void)channel->Connect(0, false);
  ipc_ = std::move(channel);
}

CClientCommLib::~CClientCommLib() = default;

AMResult CClientCommLib::SendMessage(LinuxDictionary& request) {
  return ipc_ != nullptr && ipc_->Write(request) ? rc::kSuccess : rc::kCommunicationFailure;
}

bool CClientCommLib::GetMessage() {
  for (;;) {
    try {
      reply_ = boost::make_shared<LinuxDictionary>(ipc_->Read());
      envelope_.messageType = reply_->Header().messageType;
      envelope_.bodyLength = reply_->Header().bodyLength;
      return true;
    } catch (const std::runtime_error&) {
      return false;
    } catch (const std::exception&) {
      // A read time-out (or another standard error) starts the read again:
      // a call has no overall time-out.
    }
  }
}

bool CClientCommLib::GetReply(LinuxDictionary& out) {
  if (!GetMessage()) return false;
  out.CopyValuesFrom(*reply_);
  out.Header() = reply_->Header();
  return true;
}

LinuxDictionary CClientCommLib::MakeCall(LinuxDictionary& request) {
  std::lock_guard<std::mutex> lock(callLock_);
  if (SendMessage(request) != rc::kSuccess) throw std::exception();
  LinuxDictionary reply;
  // The default envelope the reply is handed back under (taken here rather
  // than made again, which would ask the system for the process id again).
  const MessageCommon fresh = reply.Header();
  if (!GetReply(reply)) throw std::runtime_error("no reply");
  reply.Header() = fresh;
  return reply;
}

void CClientCommLib::PrintResponse() {
  assert(reply_ && "px != 0");
  if (!reply_) return;
  unsigned int result = 0;
  (void)reply_->GetUInt(key::kAMResult, &result);
}

void CClientCommLib::Close() {
  if (ipc_ != nullptr) ipc_->CloseFd();
}

void CClientCommLib::WatchService(int registrationFd) {
  auto* fifo = dynamic_cast<CLinuxIPC*>(ipc_.get());
  if (fifo != nullptr) {
    (void)fifo->WatchService(registrationFd);
  } else if (registrationFd >= 0) {
    close(registrationFd);
  }
}

}  // namespace PalvonAuthManagerSDK
