#ifndef PALVON_SDK_IPC_IIPC_H
#define PALVON_SDK_IPC_IIPC_H

#include <cstdint>
#include <string>

#include "message/LinuxDictionary.h"

namespace PalvonAuthManagerSDK {

/**
 * A message channel to the service. The base versions of the optional
 * operations do nothing and report failure.
 */
class IIPC {
 public:
  explicit IIPC(std::string name) : name_(std::move(name)) {}
  virtual ~IIPC() = default;
  IIPC(const IIPC&) = delete;
  IIPC& operator=(const IIPC&) = delete;

  virtual bool Open() = 0;
  virtual bool Listen(unsigned int backlog);
  virtual bool Connect(unsigned int timeout, bool retry);
  virtual bool Read(unsigned char** buffer, int* length, unsigned int timeout);
  /** Waits for and returns one whole message. */
  virtual LinuxDictionary Read() = 0;
  virtual bool Write(LinuxDictionary& message);
  virtual void Close();
  virtual void CloseFd();
  virtual void Free(unsigned char* buffer);

  const std::string& Name() const { return name_; }

 protected:
  std::string name_;
  uint64_t reserved_ = 0;  // unused by the FIFO channel
};

}  // namespace PalvonAuthManagerSDK

#endif
