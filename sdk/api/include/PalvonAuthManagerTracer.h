/**
 * @file PalvonAuthManagerTracer.h
 * @brief The library's trace switch (C++ only).
 *
 * Set PalvonAuthManagerSDK::CTracer::s_tracingEnabled to true before the
 * first PalvonAuthManager_Initialize() to get a trace file in
 * $HOME/.RZPClient/logs, named
 * AuthManagerSDK-TIME-PID-ADDRESS.txt (local time, process id, and the
 * address of the library's code). When that folder
 * cannot be written, trace lines go to standard output instead.
 *
 * Only the two data members below are exported; the member functions are the
 * library's own and cannot be called by applications.
 */
#ifndef PALVON_AUTH_MANAGER_TRACER_H
#define PALVON_AUTH_MANAGER_TRACER_H

#ifndef __cplusplus
#error "PalvonAuthManagerTracer.h is a C++ header"
#endif

#include <cstdarg>
#include <fstream>
#include <string>

#include "PalvonAuthManager.h"

namespace PalvonAuthManagerSDK {

/** Per-process trace file of the library. */
class CTracer {
 public:
  /** Tracing switch, false by default; set by the application, never by the library. */
  PALVONAUTHMANAGER_EXPORT static bool s_tracingEnabled;
  /** The open trace file while the library is initialised with tracing on. */
  PALVONAUTHMANAGER_EXPORT static std::fstream s_tracefile;

  /** @cond INTERNAL */
  static void Initialize(const std::wstring& description, const std::wstring& traceName);
  static void Uninitialize();
  static void Msg(const wchar_t* format, ...);
  static void Err(const wchar_t* format, ...);
  static void WriteMessageV(const wchar_t* levelPrefix, const wchar_t* format, va_list args);
  static void OutputDebugString(const std::wstring& text);
  static std::wstring GetTraceFilePathForProcess(const std::wstring& traceName);
  static void TraceEntry(const char* signature);
  static void TraceMethodEntry(const char* signature);
  static void TraceMethodExit(const char* signature, AMResult result);
  static void TraceNullArgument(const char* operation, const char* argument);
  /** @endcond */
};

}  // namespace PalvonAuthManagerSDK

#endif  // PALVON_AUTH_MANAGER_TRACER_H
