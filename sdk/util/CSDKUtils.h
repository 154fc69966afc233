#ifndef PALVON_SDK_UTIL_CSDKUTILS_H
#define PALVON_SDK_UTIL_CSDKUTILS_H

#include <string>

namespace PalvonAuthManagerSDK {

/**
 * Small operating-system utilities for naming and placing the trace file.
 * Byte text is widened one byte per character (sign-extended) and wide text
 * narrowed to the low byte of each character, so bytes survive a round trip.
 */
class CSDKUtils {
 public:
  /** Local time as "%F_%H_%M_%S_%z", or "time" when it cannot be formatted. */
  static std::wstring GetCurrentTime();
  /** Full path of the running executable, or "<unknown>". */
  static std::wstring GetProcessFullPath();
  /** Text after the last '/' of the executable path, or empty. */
  static std::wstring GetProcessShortName();
  /** $HOME; throws std::logic_error when HOME is unset. */
  static std::wstring GetLocalAppDataFolder();
  /** $HOME/.RZPClient/logs, created (last component only) if possible. */
  static std::wstring GetAMLocalAppDataFolder();
  /** The path up to and including its last '/', or empty. */
  static std::wstring GetFolderFromPath(std::wstring path);
  /** One byte per wide character: its low 8 bits. */
  static std::string StringToUTF8(const std::wstring& text);
  /** One wide character per byte, sign-extended. */
  static std::wstring WidenBytes(const std::string& text);
};

}  // namespace PalvonAuthManagerSDK

#endif
