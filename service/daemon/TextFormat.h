#ifndef PALVONAUTHD_TEXTFORMAT_H
#define PALVONAUTHD_TEXTFORMAT_H

// Texts the service writes: quoted and shortened texts for log lines, URL
// and XML escaping, and the "{name}" templates of the configuration.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

namespace palvonauthd {

/** Quotes a text for a log line, escaping quotes, backslashes and control characters. */
std::string Quote(const std::string& text);

/** Percent-encodes everything except the unreserved characters of RFC 3986. */
std::string UrlEncode(const std::string& text);
/** Escapes &, <, >, " and ' for use inside XML text and attributes. */
std::string XmlEscape(const std::string& text);

/** Values for a template, by placeholder name. */
using TemplateValues = std::map<std::string, std::string>;

/**
 * Replaces each "{name}" by its value; "{{" and "}}" stand for literal braces.
 * Unknown names are replaced by nothing (templates are checked at start-up).
 */
std::string ExpandTemplate(const std::string& text, const TemplateValues& values);
/**
 * Checks a template: returns a description of the first problem (unknown
 * placeholder, unbalanced brace), or nothing when it is valid.
 */
std::optional<std::string> CheckTemplate(const std::string& text, const std::set<std::string>& allowed);

/** Cuts a text for a log line, marking the cut. */
std::string Abbreviate(const std::string& text, size_t limit = 160);

/** Removes trailing slashes (but leaves a lone "/"). */
std::string WithoutTrailingSlash(std::string text);

}  // namespace palvonauthd

#endif
