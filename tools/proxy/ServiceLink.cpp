#include "proxy/ServiceLink.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>

#include "protocol/PipeNames.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

ServiceLink::ServiceLink(const GlobalOptions& options) : options_(options), out_(Format::kText, stdout) {}

ServiceLink::~ServiceLink() { Drop(); }

bool ServiceLink::ServiceListening() {
  const char* home = std::getenv("HOME");
  const char* user = std::getenv("USER");
  // The library registers in the first pipe folder that exists (it creates
  // the first usable one); a FIFO without a reader refuses a non-blocking
  // open for writing.
  for (const auto& candidate : PipeFolderCandidates(home != nullptr ? home : "", user != nullptr ? user : "")) {
    struct stat status {};
    if (lstat(candidate.back().c_str(), &status) != 0 || !S_ISDIR(status.st_mode)) continue;
    const std::string pipe = candidate.back() + "/" + kRegistrationPipeName;
    const int fd = open(pipe.c_str(), O_WRONLY | O_NONBLOCK | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) return false;
    close(fd);
    return true;
  }
  return false;
}

std::optional<ConnectionHandle> ServiceLink::Connect(const std::function<void()>& beforeGivingUp) {
  if (connection_) return connection_->Handle();
  if (!ServiceListening()) return std::nullopt;
  try {
    session_.emplace(options_, out_, beforeGivingUp);
    connection_.emplace(options_);
  } catch (...) {
    Drop();
    throw;
  }
  return connection_->Handle();
}

void ServiceLink::Drop() {
  connection_.reset();
  session_.reset();
}

bool ChannelMayBeLost(AMResult code) {
  return code == AM_RESULT_COMMUNICATION_FAILURE || code == AM_RESULT_NOT_INITIALIZED ||
         code == AM_RESULT_IPC_SETUP_FAILED || code == AM_RESULT_INVALID_HANDLE;
}

}  // namespace palvonauth
