#ifndef PALVONAUTHD_LOG_H
#define PALVONAUTHD_LOG_H

// Log lines on standard error, one line per call, safe from any thread. On
// a terminal or in a file a line starts with the time, the program name and
// pid and the level; when standard error is the journal's stream, a line
// starts with its syslog priority ("<3>" ... "<7>") and nothing else, as the
// journal records the rest itself.

#include <sstream>
#include <string>

namespace palvonauthd {

enum class LogLevel { kError, kWarning, kInfo, kDebug };

/** Turns the debug lines (every request and reply) on or off. */
void SetVerbose(bool verbose);
bool Verbose();
/** Drops every line while on (for drivers that run millions of requests, such as the fuzz target). */
void SetSilent(bool silent);

/**
 * True when standard error is the stream systemd connected to the journal:
 * JOURNAL_STREAM names its device and inode ("DEVICE:INODE"). Decided once,
 * with the first line written.
 */
bool StandardErrorIsJournal();

/** Writes one line: time, program name and pid, level, text; or priority and text. */
void WriteLog(LogLevel level, const std::string& text);
/** Writes a line as it is; in the journal with its priority in front. */
void WriteBare(LogLevel level, const std::string& line);
/** The failure that ends the service before it serves: "palvonauthd: text", an error in the journal. */
void WriteStartFailure(const std::string& text);

template <typename... Parts>
std::string Concat(const Parts&... parts) {
  std::ostringstream out;
  (out << ... << parts);
  return out.str();
}

template <typename... Parts>
void LogError(const Parts&... parts) {
  WriteLog(LogLevel::kError, Concat(parts...));
}
template <typename... Parts>
void LogWarning(const Parts&... parts) {
  WriteLog(LogLevel::kWarning, Concat(parts...));
}
template <typename... Parts>
void LogInfo(const Parts&... parts) {
  WriteLog(LogLevel::kInfo, Concat(parts...));
}
/** Debug lines are formatted only when verbose logging is on. */
template <typename... Parts>
void LogDebug(const Parts&... parts) {
  if (Verbose()) WriteLog(LogLevel::kDebug, Concat(parts...));
}

}  // namespace palvonauthd

#endif
