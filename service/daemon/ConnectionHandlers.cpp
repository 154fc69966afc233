// Connections: create, destroy, clear credentials, release what was made on
// them; the client window.

#include "daemon/Dispatcher.h"

#include <string>

#include "daemon/Log.h"
#include "daemon/MessageValues.h"
#include "daemon/TextFormat.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

Dispatcher::Connection* Dispatcher::FindConnection(const LinuxDictionary& request) {
  const auto it = connections_.find(UIntOf(request, key::kAuthManagerHandle).value_or(0));
  return it != connections_.end() ? &it->second : nullptr;
}

uint32_t Dispatcher::ReleaseConnection(uint32_t handle) {
  uint32_t released = 0;
  for (auto it = vpnContexts_.begin(); it != vpnContexts_.end();) {
    if (it->second.connection == handle) {
      it = vpnContexts_.erase(it);
      ++released;
    } else {
      ++it;
    }
  }
  for (auto it = httpRequests_.begin(); it != httpRequests_.end();) {
    if (it->second.connection == handle) {
      it = httpRequests_.erase(it);
      ++released;
    } else {
      ++it;
    }
  }
  connections_.erase(handle);
  return released;
}

uint32_t Dispatcher::OnCreateConnection(const LinuxDictionary& request, LinuxDictionary& reply) {
  const uint32_t handle = context_.NewHandle();
  Connection& connection = connections_[handle];
  connection.name = TextOf(request, key::kConnectionName).value_or("");
  LogInfo("client ", processId_, " opened connection ", handle,
          connection.name.empty() ? "" : " " + Quote(connection.name));
  reply.SetUInt(key::kAuthManagerHandle, handle);
  return 0;
}

uint32_t Dispatcher::OnDestroyConnection(const LinuxDictionary& request) {
  const uint32_t handle = UIntOf(request, key::kAuthManagerHandle).value_or(0);
  if (connections_.count(handle) == 0) return rc::kInvalidHandle;
  const uint32_t released = ReleaseConnection(handle);
  LogInfo("client ", processId_, " closed connection ", handle,
          released > 0 ? ", released " + std::to_string(released) + " handle(s) made on it" : "");
  return 0;
}

uint32_t Dispatcher::OnClearCredentials(const LinuxDictionary& request) {
  Connection* connection = FindConnection(request);
  if (connection == nullptr) return rc::kInvalidHandle;
  connection->logons.clear();
  return 0;
}

uint32_t Dispatcher::OnSetClientWindow(const LinuxDictionary& request) {
  if (FindConnection(request) == nullptr) return rc::kInvalidHandle;
  // The numbers travel as unsigned values holding the bits of signed ones.
  const auto number = [&](const wchar_t* key) {
    return std::to_string(static_cast<int32_t>(UIntOf(request, key).value_or(0)));
  };
  const auto text = [&](const wchar_t* key) {
    const auto value = TextOf(request, key);
    return value ? Quote(*value) : std::string("-");
  };
  LogInfo("client ", processId_, " window: name=", text(key::kWindowName), " id=", text(key::kWindowId),
          " amName=", text(key::kWindowAmName), " left=", number(key::kWindowLeft),
          " bottom=", number(key::kWindowBottom), " width=", number(key::kWindowWidth),
          " height=", number(key::kWindowHeight));
  return 0;
}

}  // namespace palvonauthd
