#include "Session.h"

#include <dirent.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "PalvonAuthManagerTracer.h"
#include "ResultCodes.h"
#include "Text.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

LibraryError::LibraryError(std::string function, AMResult code)
    : std::runtime_error(function + " failed with result " + FormatResult(code)),
      function_(std::move(function)),
      code_(code) {}

void Check(const char* function, AMResult code) {
  if (code != AM_RESULT_SUCCESS) throw LibraryError(function, code);
}

void ReportLibraryError(Output& out, const LibraryError& error) {
  const ResultCodeInfo info = DescribeResult(error.Code());
  std::fprintf(stderr, "palvonauth: %s\n", error.what());
  if (!out.Json()) return;
  out.BeginObject("error");
  out.String("function", error.Function());
  out.Number("result", error.Code());
  out.String("hex", HexCode(error.Code()));
  out.String("name", info.name);
  out.String("meaning", info.meaning);
  out.EndObject();
}

void ReportLocalError(Output& out, const std::string& message, int exitCode) {
  std::fprintf(stderr, "palvonauth: %s\n", message.c_str());
  if (!out.Json()) return;
  out.BeginObject("error");
  out.String("message", message);
  out.Number("exitCode", static_cast<uint64_t>(exitCode));
  out.EndObject();
}

namespace {

std::string HomeFolder() {
  const char* home = std::getenv("HOME");
  return home != nullptr ? home : "";
}

// The library made this process's request and reply pipes before it began
// to wait for the service; remove them when giving up, in every folder the
// library may have put them in.
void RemoveOwnPipes() {
  std::vector<std::string> folders;
  const std::string home = HomeFolder();
  if (!home.empty()) folders.push_back(home + "/.RZPClient/.tmp");
  if (const char* user = std::getenv("USER"); user != nullptr && *user != '\0') {
    folders.push_back(std::string("/tmp/") + user);
  }
  folders.push_back("/tmp");
  const std::string base = "/.AuthManager" + std::to_string(getpid());
  for (const auto& folder : folders) {
    (void)unlink((folder + base + "Read").c_str());
    (void)unlink((folder + base + "Write").c_str());
  }
}

}  // namespace

Session::Session(const GlobalOptions& options, Output& out) {
  std::mutex mutex;
  std::condition_variable changed;
  bool done = false;
  std::thread watchdog;
  if (options.waitSeconds > 0) {
    const auto limit = std::chrono::duration<double>(options.waitSeconds);
    watchdog = std::thread([&, limit] {
      std::unique_lock<std::mutex> lock(mutex);
      if (changed.wait_for(lock, limit, [&] { return done; })) return;
      // The main thread is blocked inside the library and cannot write:
      // report from here and end the process with the lock held, so that
      // it cannot continue once the service shows up after all.
      char seconds[32];
      std::snprintf(seconds, sizeof seconds, "%g", options.waitSeconds);
      ReportLocalError(out,
                       std::string("no authentication-manager service took the registration within ") + seconds +
                           " s (is palvonauthd running for this user?)",
                       kExitNoService);
      out.Finish();
      std::fflush(stderr);
      RemoveOwnPipes();
      std::_Exit(kExitNoService);
    });
  }
  const AMResult result = PalvonAuthManager_Initialize();
  if (watchdog.joinable()) {
    {
      std::lock_guard<std::mutex> lock(mutex);
      done = true;
    }
    changed.notify_all();
    watchdog.join();
  }
  // A failed first initialisation still counts once; balance it so that the
  // library releases its pipes.
  if (result != AM_RESULT_SUCCESS) {
    (void)PalvonAuthManager_Uninitialize();
    throw LibraryError("PalvonAuthManager_Initialize", result);
  }
  open_ = true;
}

Session::~Session() {
  if (open_) (void)PalvonAuthManager_Uninitialize();
}

AMUint Session::ApiLevel() const {
  AMUint level = 0;
  Check("PalvonAuthManager_GetApiLevel", PalvonAuthManager_GetApiLevel(&level));
  return level;
}

void Session::Close() {
  if (!open_) return;
  open_ = false;
  Check("PalvonAuthManager_Uninitialize", PalvonAuthManager_Uninitialize());
}

Connection::Connection(const GlobalOptions& options) {
  const std::wstring name = Utf8ToWide(options.connectionName);
  Check("PalvonAuthManager_CreateConnection",
        PalvonAuthManager_CreateConnection(name.empty() ? nullptr : name.c_str(), nullptr, nullptr, &handle_));
  open_ = true;
}

Connection::~Connection() {
  if (open_) (void)PalvonAuthManager_DestroyConnection(handle_);
}

void Connection::Close() {
  if (!open_) return;
  open_ = false;
  Check("PalvonAuthManager_DestroyConnection", PalvonAuthManager_DestroyConnection(handle_));
}

void EnableTracing() {
  CTracer::s_tracingEnabled = true;
  // The library creates only the last folder of $HOME/.RZPClient/logs and
  // prints its trace on standard output when the file cannot be opened.
  const std::string home = HomeFolder();
  if (!home.empty()) (void)mkdir((home + "/.RZPClient").c_str(), 0700);
}

std::string FindTraceFile() {
  const std::string home = HomeFolder();
  if (home.empty()) return std::string();
  const std::string folder = home + "/.RZPClient/logs";
  DIR* dir = opendir(folder.c_str());
  if (dir == nullptr) return std::string();
  // File names are AuthManagerSDK-<time>-<pid>-<address>.txt.
  const std::string pid = "-" + std::to_string(getpid()) + "-";
  std::string best;
  struct timespec bestTime {};
  while (const struct dirent* entry = readdir(dir)) {
    const std::string name = entry->d_name;
    if (name.rfind("AuthManagerSDK-", 0) != 0 || name.size() < 4 || name.compare(name.size() - 4, 4, ".txt") != 0 ||
        name.find(pid) == std::string::npos) {
      continue;
    }
    const std::string path = folder + "/" + name;
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) continue;
    const struct timespec& modified = status.st_mtim;
    if (best.empty() || modified.tv_sec > bestTime.tv_sec ||
        (modified.tv_sec == bestTime.tv_sec && modified.tv_nsec > bestTime.tv_nsec)) {
      best = path;
      bestTime = modified;
    }
  }
  closedir(dir);
  return best;
}

}  // namespace palvonauth
