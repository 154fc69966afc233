// Performs one HTTP request through the authentication-manager service and
// prints the response, the way an application would use API level 2.
//
//   pam_http_example URL [METHOD]
//
// The service carries out the request on the program's behalf (signing on to
// gateways as needed); the program only names the request and reads the
// answer: status line, header lines and the body, read in chunks until an
// empty read marks its end. Exit status: 0 when a response was read, 1 when a
// library call failed, 2 on wrong usage.
#include <utf8.h>

#include <cstdio>
#include <iterator>
#include <string>
#include <vector>

#include "PalvonAuthManager.h"

using namespace PalvonAuthManagerSDK;

namespace {

constexpr AMUint kChunkSize = 16 * 1024;

// The library speaks UTF-32 wide text; the command line and the terminal
// speak UTF-8. utfcpp converts, with U+FFFD for anything ill-formed.
std::wstring FromUtf8(const std::string& text) {
  std::string valid;
  utf8::replace_invalid(text.begin(), text.end(), std::back_inserter(valid));
  std::wstring out;
  utf8::utf8to32(valid.begin(), valid.end(), std::back_inserter(out));
  return out;
}

std::string ToUtf8(const AMChar* text) {
  std::string out;
  for (; text != nullptr && *text != 0; ++text) {
    const auto c = static_cast<uint32_t>(*text);
    const bool scalar = c <= 0x10FFFF && (c < 0xD800 || c > 0xDFFF);
    utf8::append(scalar ? c : 0xFFFDu, std::back_inserter(out));
  }
  return out;
}

/** Reports a failed call; true when the call succeeded. */
bool Succeeded(const char* call, AMResult result) {
  if (result == AM_RESULT_SUCCESS) return true;
  std::fprintf(stderr, "%s failed with result %u (0x%04X)\n", call, result, result);
  return false;
}

/** Sets the request up, has the service send it, and prints the response. */
int SendAndPrint(AMHttpHandle request, const std::wstring& url, const std::wstring& method) {
  if (!Succeeded("SetRequestMethod", PalvonAuthManager_SetRequestMethod(request, method.c_str())) ||
      !Succeeded("SetRequestUrl", PalvonAuthManager_SetRequestUrl(request, url.c_str())) ||
      !Succeeded("AddRequestHeader", PalvonAuthManager_AddRequestHeader(request, L"Accept: */*")) ||
      !Succeeded("SendRequestAndReceiveResponse", PalvonAuthManager_SendRequestAndReceiveResponse(request))) {
    return 1;
  }

  AMUint status = 0;
  if (!Succeeded("GetResponseStatusCode", PalvonAuthManager_GetResponseStatusCode(request, &status))) return 1;
  AMChar* phrase = nullptr;  // our own copy, released below
  if (!Succeeded("GetResponseReasonPhrase", PalvonAuthManager_GetResponseReasonPhrase(request, &phrase))) return 1;
  std::printf("Status: %u %s\n", status, ToUtf8(phrase).c_str());
  PalvonAuthManager_FreeString(phrase);

  // The array is not cleared by the library when the call fails, so it
  // starts out null; a null array is fine to release.
  AMChar** headers = nullptr;
  const AMResult headersResult = PalvonAuthManager_GetResponseHeaders(request, &headers);
  if (headersResult == AM_RESULT_SUCCESS) {
    for (AMChar** line = headers; *line != nullptr; ++line) std::printf("%s\n", ToUtf8(*line).c_str());
  }
  PalvonAuthManager_FreeResponseHeaders(headers);
  if (!Succeeded("GetResponseHeaders", headersResult)) return 1;
  std::printf("\n");

  std::vector<AMByte> chunk(kChunkSize);
  for (;;) {
    AMUint read = 0;
    if (!Succeeded("ReadResponseBodyStream",
                   PalvonAuthManager_ReadResponseBodyStream(request, chunk.data(), kChunkSize, &read))) {
      return 1;
    }
    if (read == 0) break;  // the end of the body
    std::fwrite(chunk.data(), 1, read, stdout);
  }
  std::fflush(stdout);
  return 0;
}

/** Creates a connection and a request on it, and releases both again. */
int PerformRequest(const std::wstring& url, const std::wstring& method) {
  AMUint level = 0;
  if (!Succeeded("GetApiLevel", PalvonAuthManager_GetApiLevel(&level))) return 1;
  if (level < 2) {
    std::fprintf(stderr, "The service offers API level %u; HTTP requests need level 2.\n", level);
    return 1;
  }

  ConnectionHandle connection = 0;
  if (!Succeeded("CreateConnection",
                 PalvonAuthManager_CreateConnection(L"http_example", nullptr, nullptr, &connection))) {
    return 1;
  }
  int exitCode = 1;
  AMHttpHandle request = 0;
  if (Succeeded("CreateAMHttpRequest", PalvonAuthManager_CreateAMHttpRequest(connection, &request))) {
    exitCode = SendAndPrint(request, url, method);
    if (!Succeeded("DestroyAMHttpRequest", PalvonAuthManager_DestroyAMHttpRequest(request))) exitCode = 1;
  }
  if (!Succeeded("DestroyConnection", PalvonAuthManager_DestroyConnection(connection))) exitCode = 1;
  return exitCode;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3) {
    std::fprintf(stderr, "usage: %s URL [METHOD]\n", argc > 0 ? argv[0] : "pam_http_example");
    return 2;
  }
  const std::wstring url = FromUtf8(argv[1]);
  const std::wstring method = argc == 3 ? FromUtf8(argv[2]) : L"GET";

  // Blocks until the service of this user listens.
  if (!Succeeded("Initialize", PalvonAuthManager_Initialize())) return 1;
  const int exitCode = PerformRequest(url, method);
  if (!Succeeded("Uninitialize", PalvonAuthManager_Uninitialize())) return 1;
  return exitCode;
}
