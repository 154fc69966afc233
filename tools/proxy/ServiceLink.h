#ifndef PALVONAUTH_TOOLS_PROXY_SERVICELINK_H
#define PALVONAUTH_TOOLS_PROXY_SERVICELINK_H

// A proxy worker's library session and connection, made when a request
// needs them and given up when the service may have gone away, so that the
// next request registers with whatever service runs then.

#include <functional>
#include <optional>

#include "Errors.h"
#include "LibrarySession.h"
#include "Output.h"

namespace palvonauth {

class ServiceLink {
 public:
  explicit ServiceLink(const GlobalOptions& options);
  ~ServiceLink();
  ServiceLink(const ServiceLink&) = delete;
  ServiceLink& operator=(const ServiceLink&) = delete;

  /** True when a service of this user has its registration pipe open. */
  static bool ServiceListening();

  /**
   * The connection, initialising the library first when needed; nothing
   * when no service listens. Failed calls throw LibraryError. When the
   * service takes the registration but does not answer within --wait, the
   * process ends after `beforeGivingUp`.
   */
  std::optional<ConnectionHandle> Connect(const std::function<void()>& beforeGivingUp);
  /** Uninitialises (quietly) after a failure that may mean the service is gone. */
  void Drop();

 private:
  GlobalOptions options_;
  Output out_;
  std::optional<LibrarySession> session_;
  std::optional<Connection> connection_;
};

/** Whether a failed call's result means the library's channel to the service cannot be trusted any more. */
bool ChannelMayBeLost(AMResult code);

}  // namespace palvonauth

#endif
