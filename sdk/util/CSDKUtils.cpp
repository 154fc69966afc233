#include "CSDKUtils.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <stdexcept>

#include "protocol/PipeNames.h"

namespace PalvonAuthManagerSDK {

std::wstring CSDKUtils::WidenBytes(const std::string& text) {
  std::wstring wide(text.size(), L'\0');
  for (size_t i = 0; i < text.size(); ++i) {
    wide[i] = static_cast<wchar_t>(static_cast<signed char>(text[i]));
  }
  return wide;
}

std::string CSDKUtils::StringToUTF8(const std::wstring& text) {
  std::string narrow(text.size(), '\0');
  for (size_t i = 0; i < text.size(); ++i) {
    narrow[i] = static_cast<char>(static_cast<unsigned char>(static_cast<uint32_t>(text[i]) & 0xFFu));
  }
  return narrow;
}

std::wstring CSDKUtils::GetCurrentTime() {
  const time_t now = time(nullptr);
  struct tm local {};
  localtime_r(&now, &local);
  char buffer[256];
  errno = 0;
  const size_t length = strftime(buffer, sizeof buffer, "%F_%H_%M_%S_%z", &local);
  if (length == 0) return errno != 0 ? std::wstring(L"time") : std::wstring();
  return WidenBytes(std::string(buffer, length));
}

std::wstring CSDKUtils::GetProcessFullPath() {
  char buffer[4096];
  const ssize_t length = readlink("/proc/self/exe", buffer, 4095);
  if (length == -1) return L"<unknown>";
  const size_t clamped = length > 4095 ? 4095 : static_cast<size_t>(length);
  return WidenBytes(std::string(buffer, clamped));
}

std::wstring CSDKUtils::GetProcessShortName() {
  const std::wstring path = GetProcessFullPath();
  const size_t slash = path.rfind(L'/');
  if (slash == std::wstring::npos || slash + 1 >= path.size()) return std::wstring();
  return path.substr(slash + 1);
}

std::wstring CSDKUtils::GetLocalAppDataFolder() {
  const char* home = getenv("HOME");
  if (home == nullptr) throw std::logic_error("HOME is not set");
  return WidenBytes(home);
}

std::wstring CSDKUtils::GetAMLocalAppDataFolder() {
  std::wstring folder = WidenBytes(TraceFolder(StringToUTF8(GetLocalAppDataFolder())));
  (void)mkdir(StringToUTF8(folder).c_str(), 0775);
  return folder;
}

std::wstring CSDKUtils::GetFolderFromPath(std::wstring path) {
  const size_t slash = path.rfind(L'/');
  if (slash == std::wstring::npos) return std::wstring();
  path.resize(slash + 1);
  return path;
}

}  // namespace PalvonAuthManagerSDK
