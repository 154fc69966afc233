#include "daemon/Log.h"

#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <mutex>

namespace palvonauthd {

namespace {

std::atomic<bool> g_verbose{false};
std::atomic<bool> g_silent{false};
std::mutex g_writeLock;

const char* LevelName(LogLevel level) {
  switch (level) {
    case LogLevel::kError:
      return "error";
    case LogLevel::kWarning:
      return "warning";
    case LogLevel::kInfo:
      return "info";
    case LogLevel::kDebug:
      return "debug";
  }
  return "?";
}

/** The syslog priority in front of a line in the journal. */
std::string Priority(LogLevel level) {
  switch (level) {
    case LogLevel::kError:
      return "<3>";
    case LogLevel::kWarning:
      return "<4>";
    case LogLevel::kInfo:
      return "<6>";
    case LogLevel::kDebug:
      return "<7>";
  }
  return "<6>";
}

bool Journal() {
  static const bool journal = StandardErrorIsJournal();
  return journal;
}

// One write per line, so lines of concurrent sessions never interleave.
void WriteLine(const std::string& line) {
  std::lock_guard<std::mutex> lock(g_writeLock);
  size_t done = 0;
  while (done < line.size()) {
    const ssize_t written = write(STDERR_FILENO, line.data() + done, line.size() - done);
    if (written <= 0) break;
    done += static_cast<size_t>(written);
  }
}

}  // namespace

void SetVerbose(bool verbose) { g_verbose = verbose; }

bool Verbose() { return g_verbose; }

void SetSilent(bool silent) { g_silent = silent; }

bool StandardErrorIsJournal() {
  const char* stream = std::getenv("JOURNAL_STREAM");
  unsigned long long device = 0, inode = 0;
  char extra = 0;
  if (stream == nullptr || std::sscanf(stream, "%llu:%llu%c", &device, &inode, &extra) != 2) return false;
  struct stat status {};
  return fstat(STDERR_FILENO, &status) == 0 && status.st_dev == device && status.st_ino == inode;
}

void WriteLog(LogLevel level, const std::string& text) {
  if (g_silent) return;
  if (Journal()) return WriteBare(level, text);
  struct timeval now {};
  gettimeofday(&now, nullptr);
  struct tm local {};
  localtime_r(&now.tv_sec, &local);
  char stamp[32];
  const size_t length = strftime(stamp, sizeof stamp, "%Y-%m-%d %H:%M:%S", &local);
  stamp[length] = '\0';
  std::string line;
  line.reserve(text.size() + 64);
  line += stamp;
  char millis[8];
  std::snprintf(millis, sizeof millis, ".%03d", static_cast<int>(now.tv_usec / 1000));
  line += millis;
  line += " palvonauthd[" + std::to_string(getpid()) + "] ";
  line += LevelName(level);
  line += ": ";
  line += text;
  line += '\n';
  WriteLine(line);
}

void WriteBare(LogLevel level, const std::string& line) {
  if (!g_silent) WriteLine((Journal() ? Priority(level) : std::string()) + line + '\n');
}

void WriteStartFailure(const std::string& text) {
  WriteBare(LogLevel::kError, (Journal() ? "" : "palvonauthd: ") + text);
}

}  // namespace palvonauthd
