#include "daemon/MessageValues.h"

#include <random>
#include <sstream>
#include <vector>

#include "daemon/TextFormat.h"
#include "util/Utf8.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::LinuxDictionary;

std::optional<uint32_t> UIntOf(const LinuxDictionary& message, const wchar_t* key) {
  unsigned int value = 0;
  if (message.GetUInt(key, &value)) return value;
  return std::nullopt;
}

std::optional<std::string> TextOf(const LinuxDictionary& message, const wchar_t* key) {
  const wchar_t* text = message.GetString(key);
  if (text == nullptr) return std::nullopt;
  return PalvonAuthManagerSDK::ToUtf8(text);
}

void SetText(LinuxDictionary& reply, const wchar_t* key, const std::string& utf8) {
  reply.SetWideString(key, PalvonAuthManagerSDK::FromUtf8OrLatin1(utf8));
}

Gateway GatewayOf(const LinuxDictionary& request) {
  Gateway gateway;
  gateway.friendlyName = TextOf(request, key::kFriendlyName).value_or("");
  gateway.logonPointUrl = TextOf(request, key::kLogonPointUrl).value_or("");
  gateway.edition = UIntOf(request, key::kGatewayEdition).value_or(0);
  gateway.authType = UIntOf(request, key::kGatewayAuthType).value_or(0);
  return gateway;
}

std::string KeyText(const std::wstring& key) { return PalvonAuthManagerSDK::ToUtf8(key); }

std::string RandomToken() {
  static thread_local std::mt19937_64 generator{std::random_device{}()};
  std::ostringstream out;
  out << std::hex;
  for (int i = 0; i < 2; ++i) {
    const uint64_t part = generator();
    for (int shift = 60; shift >= 0; shift -= 4) out << ((part >> shift) & 0xF);
  }
  return out.str();
}

std::string DescribeValues(const LinuxDictionary& message) {
  std::vector<std::string> parts;
  for (const auto& [key, value] : message.NarrowStringValues())
    parts.push_back(KeyText(key) + "=" + Quote(Abbreviate(value)));
  for (const auto& [key, value] : message.WideStringValues()) {
    parts.push_back(KeyText(key) + "=L" + Quote(Abbreviate(PalvonAuthManagerSDK::ToUtf8(value))));
  }
  for (const auto& [key, value] : message.IntValues()) parts.push_back(KeyText(key) + "=" + std::to_string(value));
  for (const auto& [key, value] : message.UIntValues()) parts.push_back(KeyText(key) + "=" + std::to_string(value));
  for (const auto& [key, value] : message.ByteValues()) parts.push_back(KeyText(key) + "=" + std::to_string(value));
  for (const auto& [key, value] : message.BufferValues()) {
    parts.push_back(KeyText(key) + "=<" + std::to_string(value.second) + " bytes>");
  }
  std::string out = "{";
  for (size_t i = 0; i < parts.size(); ++i) out += (i > 0 ? ", " : "") + parts[i];
  return out + "}";
}

}  // namespace palvonauthd
