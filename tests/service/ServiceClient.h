#ifndef PAM_TESTS_SERVICE_SERVICECLIENT_H
#define PAM_TESTS_SERVICE_SERVICECLIENT_H

// Small conveniences over the public library calls for the service tests.

#include <string>
#include <vector>

#include "PalvonAuthManager.h"

namespace pam_test {

/** Copies a text handed out by the library and releases it; empty for null. */
inline std::wstring Take(PalvonAuthManagerSDK::AMChar* text) {
  std::wstring copy = text != nullptr ? text : L"";
  PalvonAuthManagerSDK::PalvonAuthManager_FreeString(text);
  return copy;
}

/** Copies the header array of GetResponseHeaders and releases it. */
inline std::vector<std::wstring> TakeHeaders(PalvonAuthManagerSDK::AMChar** headers) {
  std::vector<std::wstring> out;
  for (size_t i = 0; headers != nullptr && headers[i] != nullptr; ++i) out.emplace_back(headers[i]);
  PalvonAuthManagerSDK::PalvonAuthManager_FreeResponseHeaders(headers);
  return out;
}

/** Initialises the library and creates a connection; 0 when either fails. */
inline PalvonAuthManagerSDK::ConnectionHandle InitialiseAndConnect() {
  using namespace PalvonAuthManagerSDK;
  ConnectionHandle connection = 0;
  if (PalvonAuthManager_Initialize() != 0) return 0;
  if (PalvonAuthManager_CreateConnection(nullptr, nullptr, nullptr, &connection) != 0) return 0;
  return connection;
}

/** The service's version text for a connection, or "<error N>". */
inline std::wstring VersionText(PalvonAuthManagerSDK::ConnectionHandle connection) {
  PalvonAuthManagerSDK::AMChar* text = nullptr;
  const auto result = PalvonAuthManagerSDK::PalvonAuthManager_GetVersion(connection, &text);
  if (result != 0) {
    Take(text);
    return L"<error " + std::to_wstring(result) + L">";
  }
  return Take(text);
}

inline bool Contains(const std::vector<std::wstring>& lines, const std::wstring& line) {
  for (const auto& candidate : lines) {
    if (candidate == line) return true;
  }
  return false;
}

}  // namespace pam_test

#endif
