#ifndef PALVONAUTHD_OPERATIONS_H
#define PALVONAUTHD_OPERATIONS_H

// Names of the message types, for log lines and for naming operations in
// the configuration.

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace palvonauthd {

/** Name of a message type ("CreateConnection"), or "Unknown<type>". */
std::string OperationName(uint32_t type);
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
