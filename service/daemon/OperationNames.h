#ifndef PALVONAUTHD_OPERATIONNAMES_H
#define PALVONAUTHD_OPERATIONNAMES_H

// Operations named in the configuration and on the command line, by name or
// by number; the names themselves are the protocol's (protocol/Operations.h).

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "protocol/Operations.h"

namespace palvonauthd {

using PalvonAuthManagerSDK::protocol::OperationName;

/**
 * Message type of an operation given by name (case-insensitive) or by its
 * decimal or 0x-prefixed hexadecimal number.
 */
std::optional<uint32_t> ParseOperation(const std::string& text);
/** A decimal or 0x-prefixed hexadecimal 32-bit number. */
std::optional<uint32_t> ParseNumber(const std::string& text);
/** Every known message type, in ascending order. */
std::vector<uint32_t> KnownOperations();

}  // namespace palvonauthd

#endif
