#ifndef PALVONAUTH_TOOLS_HTTP_HEADERFIELDS_H
#define PALVONAUTH_TOOLS_HTTP_HEADERFIELDS_H

// Looking up fields in "Name: value" header lines.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace palvonauth {

/** ASCII case-insensitive comparison, as field names compare. */
bool EqualsIgnoreCase(std::string_view a, std::string_view b);

/** The field's name: the line up to its colon, or the whole line without one. */
std::string_view FieldName(std::string_view line);
/** The value of the first line named `name`, without surrounding blanks. */
std::optional<std::string> FindField(const std::vector<std::string>& lines, std::string_view name);
/** The body size a "Content-Length" field announces, when it holds a number. */
std::optional<uint64_t> ContentLength(const std::vector<std::string>& lines);
/** True when a field named `name` lists `token` among its comma-separated values (any case). */
bool HasToken(const std::vector<std::string>& lines, std::string_view name, std::string_view token);
/**
 * The lines without the fields that concern one connection only: Connection
 * and the fields it names, Keep-Alive, Proxy-Authenticate,
 * Proxy-Authorization, Proxy-Connection, TE, Trailer, Transfer-Encoding and
 * Upgrade.
 */
std::vector<std::string> WithoutHopByHop(const std::vector<std::string>& lines);

}  // namespace palvonauth

#endif
