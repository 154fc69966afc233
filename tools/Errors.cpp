#include "Errors.h"

#include <cstdio>
#include <utility>

#include "ResultCodes.h"

namespace palvonauth {

namespace {

bool errorMessagesShown = true;

}  // namespace

LibraryError::LibraryError(std::string function, AMResult code)
    : std::runtime_error(function + " failed with result " + FormatResult(code)),
      function_(std::move(function)),
      code_(code) {}

void Check(const char* function, AMResult code) {
  if (code != PalvonAuthManagerSDK::AM_RESULT_SUCCESS) throw LibraryError(function, code);
}

int ExitCodeFor(AMResult code) {
  switch (code) {
    case 0x8001:
      return kExitConnectFailed;
    case 0x8002:
      return kExitTimedOut;
    case 0x8007:
      return kExitHostUnknown;
    default:
      return kExitCallFailed;
  }
}

void ShowErrorMessages(bool shown) { errorMessagesShown = shown; }

void ReportLibraryError(Output& out, const LibraryError& error) {
  const ResultCodeInfo info = DescribeResult(error.Code());
  if (errorMessagesShown) std::fprintf(stderr, "palvonauth: %s\n", error.what());
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
  if (errorMessagesShown) std::fprintf(stderr, "palvonauth: %s\n", message.c_str());
  if (!out.Json()) return;
  out.BeginObject("error");
  out.String("message", message);
  out.Number("exitCode", static_cast<uint64_t>(exitCode));
  out.EndObject();
}

}  // namespace palvonauth
