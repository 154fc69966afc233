#ifndef PALVONAUTH_TOOLS_RESULTCODES_H
#define PALVONAUTH_TOOLS_RESULTCODES_H

// Names and meanings of result codes, for messages.

#include <cstdint>
#include <string>

namespace palvonauth {

struct ResultCodeInfo {
  /** Constant name from the public header, name of a reference-service code, or "SERVICE_DEFINED". */
  const char* name;
  /** Short meaning for people. */
  const char* meaning;
};

/** Describes a result code: the library's, the reference service's HTTP codes, else "SERVICE_DEFINED". */
ResultCodeInfo DescribeResult(uint32_t code);

/** "65530 (0xFFFA, AM_RESULT_INVALID_HANDLE: invalid handle)". */
std::string FormatResult(uint32_t code);

/** "0xFFFA" (at least four hexadecimal digits, upper case). */
std::string HexCode(uint32_t code);

}  // namespace palvonauth

#endif
