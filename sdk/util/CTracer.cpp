#include <unistd.h>

#include <cstdio>
#include <cwchar>
#include <mutex>

#include "CSDKUtils.h"
#include "FormatString.h"
#include "PalvonAuthManagerTracer.h"

namespace PalvonAuthManagerSDK {

bool CTracer::s_tracingEnabled = false;
std::fstream CTracer::s_tracefile;

namespace {

constexpr const wchar_t* kMessagePrefix = L"     ";
constexpr const wchar_t* kErrorPrefix = L"Err  ";
constexpr const char* kRule = "===========================================\n";

// Serialises writers of the one shared stream; lines of concurrent callers
// never interleave inside a line.
std::mutex& WriteMutex() {
  static std::mutex mutex;
  return mutex;
}

void WriteLevel(const wchar_t* prefix, const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  CTracer::WriteMessageV(prefix, format, args);
  va_end(args);
}

}  // namespace

std::wstring CTracer::GetTraceFilePathForProcess(const std::wstring& traceName) {
  // The function's own address tells two copies of the library in one process apart.
  return FormatString(L"%ls/%ls-%ls-%d-%p.txt", CSDKUtils::GetAMLocalAppDataFolder().c_str(), traceName.c_str(),
                      CSDKUtils::GetCurrentTime().c_str(), static_cast<int>(getpid()),
                      reinterpret_cast<void*>(&CTracer::GetTraceFilePathForProcess));
}

void CTracer::Initialize(const std::wstring& description, const std::wstring& traceName) {
  if (!s_tracingEnabled) return;
  try {
    const std::string path = CSDKUtils::StringToUTF8(GetTraceFilePathForProcess(traceName));
    std::lock_guard<std::mutex> lock(WriteMutex());
    // The one stream lives as long as the library: a file left open (tracing
    // was switched off before the last Uninitialize) makes this open fail,
    // so no second file and no second banner are started.
    s_tracefile.open(path, std::ios::out | std::ios::app);
    if (!s_tracefile.good()) return;
    s_tracefile << kRule << "  " << CSDKUtils::StringToUTF8(description) << " \n\n"
                << "Starting: " << CSDKUtils::StringToUTF8(CSDKUtils::GetCurrentTime()) << "\n\n"
                << "Module: " << CSDKUtils::StringToUTF8(CSDKUtils::GetProcessFullPath()) << "\n"
                << kRule;
    s_tracefile.flush();
  } catch (...) {
    // Tracing never disturbs the library: a trace file that cannot be set up
    // leaves lines going to standard output.
  }
}

void CTracer::Uninitialize() {
  if (!s_tracingEnabled) return;
  std::lock_guard<std::mutex> lock(WriteMutex());
  if (s_tracefile.is_open()) s_tracefile.close();
}

void CTracer::Msg(const wchar_t* format, ...) {
  if (!s_tracingEnabled) return;
  va_list args;
  va_start(args, format);
  WriteMessageV(kMessagePrefix, format, args);
  va_end(args);
}

void CTracer::Err(const wchar_t* format, ...) {
  if (!s_tracingEnabled) return;
  va_list args;
  va_start(args, format);
  WriteMessageV(kErrorPrefix, format, args);
  va_end(args);
}

void CTracer::WriteMessageV(const wchar_t* levelPrefix, const wchar_t* format, va_list args) {
  try {
    const std::wstring message = FormatStringV(format, args);
    const std::wstring line =
        FormatString(L"%ls %ls : %ls\n", CSDKUtils::GetCurrentTime().c_str(), levelPrefix, message.c_str());
    std::unique_lock<std::mutex> lock(WriteMutex());
    if (s_tracefile.is_open()) {
      const std::string bytes = CSDKUtils::StringToUTF8(line);
      s_tracefile.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
      s_tracefile.flush();
    } else {
      lock.unlock();
      OutputDebugString(line);
    }
  } catch (...) {
    OutputDebugString(L"An exception was thrown during CTracer::WriteMessage");
  }
}

void CTracer::OutputDebugString(const std::wstring& text) {
  if (!s_tracingEnabled) return;
  // A wide-oriented stdout takes the text as it is; on a byte-oriented (or not
  // yet oriented) one, wide output would fail, so the same bytes the trace
  // file would hold are written instead. Either way the line is followed by
  // a line feed of its own.
  if (fwide(stdout, 0) > 0) {
    wprintf(L"%ls\n", text.c_str());
  } else {
    const std::string bytes = CSDKUtils::StringToUTF8(text);
    fwrite(bytes.data(), 1, bytes.size(), stdout);
    fputc('\n', stdout);
  }
  fflush(stdout);
}

void CTracer::TraceEntry(const char* signature) {
  if (!s_tracingEnabled) return;
  WriteLevel(kMessagePrefix, L"%ls", CSDKUtils::WidenBytes(signature).c_str());
}

void CTracer::TraceMethodEntry(const char* signature) {
  if (!s_tracingEnabled) return;
  WriteLevel(kMessagePrefix, L"[+] %ls", CSDKUtils::WidenBytes(signature).c_str());
}

void CTracer::TraceMethodExit(const char* signature, AMResult result) {
  if (!s_tracingEnabled) return;
  WriteLevel(kMessagePrefix, L"[-] %ls : result = %u", CSDKUtils::WidenBytes(signature).c_str(), result);
}

void CTracer::TraceNullArgument(const char* operation, const char* argument) {
  if (!s_tracingEnabled) return;
  WriteLevel(kErrorPrefix, L"%ls: failed because %ls is NULL!", CSDKUtils::WidenBytes(operation).c_str(),
             CSDKUtils::WidenBytes(argument).c_str());
}

}  // namespace PalvonAuthManagerSDK
