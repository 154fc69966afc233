#ifndef PALVONAUTHD_MESSAGEVALUES_H
#define PALVONAUTHD_MESSAGEVALUES_H

// Reading and writing the values of requests and replies, shared by the
// dispatcher's handlers and the session's log lines.

#include <cstdint>
#include <optional>
#include <string>

#include "daemon/Gateway.h"
#include "message/LinuxDictionary.h"
#include "protocol/Keys.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace palvonauthd {

namespace key = PalvonAuthManagerSDK::key;
namespace msg = PalvonAuthManagerSDK::msg;
namespace rc = PalvonAuthManagerSDK::rc;

/** An unsigned value of the message, if it has one under `key`. */
std::optional<uint32_t> UIntOf(const PalvonAuthManagerSDK::LinuxDictionary& message, const wchar_t* key);
/** A wide text of the message as UTF-8, if it has one under `key`. */
std::optional<std::string> TextOf(const PalvonAuthManagerSDK::LinuxDictionary& message, const wchar_t* key);
/** Puts a UTF-8 text into the reply as a wide text. */
void SetText(PalvonAuthManagerSDK::LinuxDictionary& reply, const wchar_t* key, const std::string& utf8);
/** The gateway a request describes (texts "" and numbers 0 where it has none). */
Gateway GatewayOf(const PalvonAuthManagerSDK::LinuxDictionary& request);
/** A key as UTF-8, for log lines. */
std::string KeyText(const std::wstring& key);
/** 32 random hexadecimal digits. */
std::string RandomToken();

/** A text form of a message's values for log lines: {key=value, ...}. */
std::string DescribeValues(const PalvonAuthManagerSDK::LinuxDictionary& message);

}  // namespace palvonauthd

#endif
