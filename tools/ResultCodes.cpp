#include "ResultCodes.h"

#include <cstdio>

#include "PalvonAuthManager.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

ResultCodeInfo DescribeResult(uint32_t code) {
  switch (code) {
    case AM_RESULT_SUCCESS:
      return {"AM_RESULT_SUCCESS", "success"};
    case AM_RESULT_IPC_SETUP_FAILED:
      return {"AM_RESULT_IPC_SETUP_FAILED", "IPC setup failed"};
    case AM_RESULT_ALREADY_INITIALIZED:
      return {"AM_RESULT_ALREADY_INITIALIZED", "accepted at initialisation"};
    case AM_RESULT_NOT_INITIALIZED:
      return {"AM_RESULT_NOT_INITIALIZED", "not initialised"};
    case AM_RESULT_BAD_PARAMETER:
      return {"AM_RESULT_BAD_PARAMETER", "bad parameter"};
    case AM_RESULT_INVALID_HANDLE:
      return {"AM_RESULT_INVALID_HANDLE", "invalid handle"};
    case AM_RESULT_COMMUNICATION_FAILURE:
      return {"AM_RESULT_COMMUNICATION_FAILURE", "communication failure"};
    case AM_RESULT_NOT_IMPLEMENTED:
      return {"AM_RESULT_NOT_IMPLEMENTED", "not implemented / not available at this API level"};
    case AM_RESULT_SERVICE_BUSY:
      return {"AM_RESULT_SERVICE_BUSY", "busy"};
    // The reference service's own codes, documented in docs/service.md.
    case 0x8001:
      return {"HTTP_CONNECTION_REFUSED", "the connection was refused (or the server did not answer)"};
    case 0x8002:
      return {"HTTP_TIMED_OUT", "the request timed out"};
    case 0x8003:
      return {"HTTP_TLS_FAILURE", "the TLS handshake failed or the server is not trusted"};
    case 0x8004:
      return {"HTTP_NO_RESPONSE", "no response: no request on the handle has succeeded"};
    case 0x8005:
      return {"HTTP_TRANSFER_FAILED", "the transfer failed"};
    case 0x8006:
      return {"HTTP_CANCELLED", "the request was cancelled"};
    case 0x8007:
      return {"HTTP_HOST_UNKNOWN", "the host name is unknown"};
    default:
      return {"SERVICE_DEFINED", "service-defined code"};
  }
}

std::string HexCode(uint32_t code) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%04X", static_cast<unsigned>(code));
  return text;
}

std::string FormatResult(uint32_t code) {
  const ResultCodeInfo info = DescribeResult(code);
  return std::to_string(code) + " (" + HexCode(code) + ", " + info.name + ": " + info.meaning + ")";
}

}  // namespace palvonauth
