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
