// API level 1 from C++: the same walk as the C example, with everything the
// library hands out held by smart pointers that give it back through the
// library's own release functions.
//
// PalvonAuthManager_Initialize() waits until the authentication-manager
// service of the same user is listening, so start the service first.
// Exits with 0 when every call succeeded.
#include <clocale>
#include <cstdio>
#include <memory>

#include "PalvonAuthManager.h"

namespace pam = PalvonAuthManagerSDK;

namespace {

struct StringRelease {
  void operator()(pam::AMChar* text) const { pam::PalvonAuthManager_FreeString(text); }
};
struct ServerInfoRelease {
  void operator()(pam::AM_SERVER_INFO* info) const { pam::PalvonAuthManager_FreeServerInfo(info); }
};
using LibraryString = std::unique_ptr<pam::AMChar, StringRelease>;
using ServerInfo = std::unique_ptr<pam::AM_SERVER_INFO, ServerInfoRelease>;

int failures = 0;

// Prints a failed call, counts it, and tells whether the call succeeded.
bool Succeeded(const char* call, pam::AMResult result) {
  if (result == pam::AM_RESULT_SUCCESS) return true;
  std::fprintf(stderr, "%s failed with result %u (0x%04X)\n", call, result, result);
  ++failures;
  return false;
}

// Initialises the library for its lifetime.
class Library {
 public:
  Library() : ready_(Succeeded("Initialize", pam::PalvonAuthManager_Initialize())) {}
  ~Library() {
    if (ready_) Succeeded("Uninitialize", pam::PalvonAuthManager_Uninitialize());
  }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;
  bool Ready() const { return ready_; }

 private:
  bool ready_;
};

// A connection to the service, destroyed with the object.
class Connection {
 public:
  explicit Connection(const wchar_t* name)
      : open_(
            Succeeded("CreateConnection", pam::PalvonAuthManager_CreateConnection(name, nullptr, nullptr, &handle_))) {}
  ~Connection() {
    if (open_) Succeeded("DestroyConnection", pam::PalvonAuthManager_DestroyConnection(handle_));
  }
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  bool Open() const { return open_; }
  pam::ConnectionHandle Handle() const { return handle_; }

 private:
  pam::ConnectionHandle handle_ = 0;
  bool open_;
};

void AskTheService(const Connection& connection) {
  pam::AMChar* text = nullptr;
  pam::AMResult result = pam::PalvonAuthManager_GetVersion(connection.Handle(), &text);
  const LibraryString version(text);
  if (Succeeded("GetVersion", result)) std::printf("service version: %ls\n", version.get());

  pam::AM_SERVER_INFO* info = nullptr;
  result = pam::PalvonAuthManager_DetermineServerType(connection.Handle(), L"https://portal.example.com/", &info);
  // Empty after a failure: the record is handed out on success only.
  const ServerInfo server(info);
  if (Succeeded("DetermineServerType", result)) {
    std::printf("server type: %u\n", server->serverType);
    if (const pam::AM_GATEWAY_INFO* gateway = server->gatewayInfo) {
      std::printf("gateway: %ls at %ls (edition %u, authentication type %u)\n", gateway->friendlyName,
                  gateway->logonPointUrl, gateway->amGatewayEdition, gateway->amGatewayAuthType);
    }
  }

  text = nullptr;
  pam::AMAuthenticationResult authentication = 0;
  result = pam::PalvonAuthManager_GenerateTrampolineUrl(connection.Handle(), L"https://portal.example.com/app", 0,
                                                        L"https://portal.example.com/", &text, &authentication);
  const LibraryString trampoline(text);
  if (Succeeded("GenerateTrampolineUrl", result)) {
    std::printf("trampoline URL: %ls (authentication result %u)\n", trampoline.get(), authentication);
  }

  pam::AMLogonStatus status = 0;
  if (Succeeded("GetLogonStatus",
                pam::PalvonAuthManager_GetLogonStatus(connection.Handle(), L"https://auth.example.com/", &status))) {
    std::printf("logon status: %u\n", status);
  }
}

}  // namespace

int main() {
  // Wide texts are printed in the user's character set.
  std::setlocale(LC_ALL, "");
  {
    const Library library;
    if (!library.Ready()) return 1;
    pam::AMUint level = 0;
    if (Succeeded("GetApiLevel", pam::PalvonAuthManager_GetApiLevel(&level))) std::printf("API level: %u\n", level);
    const Connection connection(L"level1 example (C++)");
    if (connection.Open()) {
      std::printf("connection: %u\n", connection.Handle());
      AskTheService(connection);
    }
  }
  return failures == 0 ? 0 : 1;
}
