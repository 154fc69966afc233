#include "daemon/Http.h"

#include <curl/curl.h>
#include <openssl/x509_vfy.h>

#include <cctype>
#include <cstring>
#include <memory>

#include "daemon/ServiceCodes.h"
#include "protocol/ResultCodes.h"

namespace palvonauthd {

namespace {

/** OpenSSL's catch-all certificate verification result (1). */
constexpr long kVerifyCatchAll = 1;

struct Transfer {
  HttpResponse response;
  uint64_t limit = 0;
  bool tooLarge = false;
  const std::atomic<bool>* cancel = nullptr;
};

std::string StandardReason(uint32_t status) {
  switch (status) {
    case 100:
      return "Continue";
    case 200:
      return "OK";
    case 201:
      return "Created";
    case 202:
      return "Accepted";
    case 204:
      return "No Content";
    case 206:
      return "Partial Content";
    case 301:
      return "Moved Permanently";
    case 302:
      return "Found";
    case 303:
      return "See Other";
    case 304:
      return "Not Modified";
    case 307:
      return "Temporary Redirect";
    case 308:
      return "Permanent Redirect";
    case 400:
      return "Bad Request";
    case 401:
      return "Unauthorized";
    case 403:
      return "Forbidden";
    case 404:
      return "Not Found";
    case 405:
      return "Method Not Allowed";
    case 408:
      return "Request Timeout";
    case 409:
      return "Conflict";
    case 410:
      return "Gone";
    case 413:
      return "Payload Too Large";
    case 429:
      return "Too Many Requests";
    case 500:
      return "Internal Server Error";
    case 501:
      return "Not Implemented";
    case 502:
      return "Bad Gateway";
    case 503:
      return "Service Unavailable";
    case 504:
      return "Gateway Timeout";
    default:
      return "";
  }
}

size_t OnHeader(char* data, size_t size, size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const size_t length = size * count;
  std::string line(data, length);
  while (!line.empty() && (line.back() == '\n' || line.back() == '\r')) line.pop_back();
  auto& response = transfer.response;
  if (line.rfind("HTTP/", 0) == 0) {
    // A new status line: an interim (1xx) or redirect response came before;
    // only the last response's headers count.
    response.headers.clear();
    response.reason.clear();
    const size_t first = line.find(' ');
    if (first != std::string::npos) {
      const size_t second = line.find(' ', first + 1);
      if (second != std::string::npos) response.reason = line.substr(second + 1);
    }
  } else if (!line.empty() && (line[0] == ' ' || line[0] == '\t') && !response.headers.empty()) {
    // Folded continuation of the previous header line.
    size_t start = 0;
    while (start < line.size() && (line[start] == ' ' || line[start] == '\t')) ++start;
    response.headers.back() += " " + line.substr(start);
  } else if (!line.empty()) {
    response.headers.push_back(line);
  }
  return length;
}

size_t OnBody(char* data, size_t size, size_t count, void* user) {
  auto& transfer = *static_cast<Transfer*>(user);
  const size_t length = size * count;
  if (transfer.response.body.size() + length > transfer.limit) {
    transfer.tooLarge = true;
    return 0;
  }
  transfer.response.body.insert(transfer.response.body.end(), data, data + length);
  return length;
}

int OnProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  const auto& transfer = *static_cast<Transfer*>(user);
  return transfer.cancel->load() ? 1 : 0;
}

uint32_t TrustFlagsFromVerifyResult(long result) {
  switch (result) {
    case X509_V_OK:
      return 0;
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT:
    case X509_V_ERR_UNABLE_TO_GET_ISSUER_CERT_LOCALLY:
    case X509_V_ERR_DEPTH_ZERO_SELF_SIGNED_CERT:
    case X509_V_ERR_SELF_SIGNED_CERT_IN_CHAIN:
    case X509_V_ERR_UNABLE_TO_VERIFY_LEAF_SIGNATURE:
    case X509_V_ERR_CERT_UNTRUSTED:
    case X509_V_ERR_CERT_REJECTED:
    case X509_V_ERR_INVALID_CA:
      return trust::kUntrustedRoot;
    case X509_V_ERR_CERT_NOT_YET_VALID:
    case X509_V_ERR_CERT_HAS_EXPIRED:
      return trust::kExpiredOrNotYetValid;
    case X509_V_ERR_HOSTNAME_MISMATCH:
    case X509_V_ERR_IP_ADDRESS_MISMATCH:
      return trust::kHostNameMismatch;
    case X509_V_ERR_CERT_REVOKED:
      return trust::kRevoked;
    case X509_V_ERR_CERT_SIGNATURE_FAILURE:
    case X509_V_ERR_UNABLE_TO_DECRYPT_CERT_SIGNATURE:
    case X509_V_ERR_UNABLE_TO_DECODE_ISSUER_PUBLIC_KEY:
    case X509_V_ERR_ERROR_IN_CERT_NOT_BEFORE_FIELD:
    case X509_V_ERR_ERROR_IN_CERT_NOT_AFTER_FIELD:
      return trust::kInvalidSignature;
    default:
      return trust::kOtherVerificationFailure;
  }
}

bool IsTlsError(CURLcode code) {
  switch (code) {
    case CURLE_PEER_FAILED_VERIFICATION:
    case CURLE_SSL_CONNECT_ERROR:
    case CURLE_SSL_CERTPROBLEM:
    case CURLE_SSL_CIPHER:
    case CURLE_SSL_CACERT_BADFILE:
    case CURLE_SSL_ISSUER_ERROR:
    case CURLE_SSL_PINNEDPUBKEYNOTMATCH:
    case CURLE_SSL_INVALIDCERTSTATUS:
      return true;
    default:
      return false;
  }
}

uint32_t CodeFor(CURLcode code, bool tooLarge) {
  if (tooLarge) return code::kHttpTransferFailed;
  switch (code) {
    case CURLE_OK:
      return 0;
    case CURLE_COULDNT_RESOLVE_HOST:
    case CURLE_COULDNT_RESOLVE_PROXY:
      return code::kHttpHostUnknown;
    case CURLE_COULDNT_CONNECT:
      return code::kHttpConnectFailed;
    case CURLE_OPERATION_TIMEDOUT:
      return code::kHttpTimedOut;
    case CURLE_ABORTED_BY_CALLBACK:
      return code::kHttpCancelled;
    case CURLE_URL_MALFORMAT:
    case CURLE_UNSUPPORTED_PROTOCOL:
      return PalvonAuthManagerSDK::rc::kBadParameter;
    default:
      return IsTlsError(code) ? code::kHttpTlsFailure : code::kHttpTransferFailed;
  }
}

bool HasHeader(const std::vector<std::string>& headers, const char* name) {
  const size_t length = std::strlen(name);
  for (const auto& line : headers) {
    if (line.size() >= length && strncasecmp(line.c_str(), name, length) == 0 &&
        (line.size() == length || line[length] == ':' || line[length] == ';')) {
      return true;
    }
  }
  return false;
}

struct CurlDeleter {
  void operator()(CURL* handle) const { curl_easy_cleanup(handle); }
};
struct SlistDeleter {
  void operator()(curl_slist* list) const { curl_slist_free_all(list); }
};

}  // namespace

void InitializeHttp() { curl_global_init(CURL_GLOBAL_DEFAULT); }

void ShutdownHttp() { curl_global_cleanup(); }

std::string UserAgentFor(const HttpSettings& settings, const std::string& suffix) {
  if (suffix.empty()) return settings.userAgent;
  if (settings.userAgent.empty() || suffix.front() == ' ') return settings.userAgent + suffix;
  return settings.userAgent + " " + suffix;
}

std::optional<std::string> CheckHeaderLine(const std::string& line) {
  if (line.find_first_of("\r\n") != std::string::npos) return "header line holds a line break";
  const size_t colon = line.find(':');
  if (colon == std::string::npos || colon == 0) return "header line is not 'Name: value'";
  for (size_t i = 0; i < colon; ++i) {
    const auto c = static_cast<unsigned char>(line[i]);
    if (c <= ' ' || c >= 0x7F) return "header name holds a space or control character";
  }
  return std::nullopt;
}

std::optional<std::string> CheckMethod(const std::string& method) {
  if (method.empty()) return "empty method";
  for (const char ch : method) {
    const auto c = static_cast<unsigned char>(ch);
    if (c <= ' ' || c >= 0x7F || std::strchr("()<>@,;:\\\"/[]?={}", c) != nullptr) {
      return "method is not an HTTP token";
    }
  }
  return std::nullopt;
}

HttpOutcome Perform(HttpRequest& request, const HttpSettings& settings, const std::atomic<bool>& cancel) {
  request.attempted = true;
  request.trustFailureFlags = 0;
  request.response.reset();
  if (request.url.empty()) return {PalvonAuthManagerSDK::rc::kBadParameter, "no URL set"};

  std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
  if (!curl) return {code::kHttpTransferFailed, "curl_easy_init failed"};
  CURL* handle = curl.get();
  Transfer transfer;
  transfer.limit = settings.maxResponseBytes;
  transfer.cancel = &cancel;
  char errorText[CURL_ERROR_SIZE] = {};

  std::unique_ptr<curl_slist, SlistDeleter> headers;
  const auto addHeader = [&](const std::string& line) {
    curl_slist* grown = curl_slist_append(headers.get(), line.c_str());
    if (grown != nullptr) {
      (void)headers.release();
      headers.reset(grown);
    }
  };
  for (const auto& line : request.headers) addHeader(line);
  // Bodies go out at once instead of waiting for "100 Continue" first.
  if (!request.body.empty() && !HasHeader(request.headers, "Expect")) addHeader("Expect:");
  const std::string userAgent = UserAgentFor(settings, request.userAgentSuffix);

  curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
  curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText);
  curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
  curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
  if (!userAgent.empty()) curl_easy_setopt(handle, CURLOPT_USERAGENT, userAgent.c_str());
  if (!request.referenceUrl.empty()) curl_easy_setopt(handle, CURLOPT_REFERER, request.referenceUrl.c_str());
  curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(settings.connectTimeoutSeconds));
  const uint32_t timeout = request.timeoutSeconds != 0 ? request.timeoutSeconds : settings.timeoutSeconds;
  curl_easy_setopt(handle, CURLOPT_TIMEOUT, static_cast<long>(timeout));
  curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, settings.followRedirects ? 1L : 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, settings.verifyTls ? 1L : 0L);
  curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, settings.verifyTls ? 2L : 0L);
  if (!settings.caFile.empty()) curl_easy_setopt(handle, CURLOPT_CAINFO, settings.caFile.c_str());
  curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, OnHeader);
  curl_easy_setopt(handle, CURLOPT_HEADERDATA, &transfer);
  curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, OnBody);
  curl_easy_setopt(handle, CURLOPT_WRITEDATA, &transfer);
  curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
  curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, OnProgress);
  curl_easy_setopt(handle, CURLOPT_XFERINFODATA, &transfer);
  // Whatever the server sends is passed on as it is, compressed or not.
  curl_easy_setopt(handle, CURLOPT_HTTP_CONTENT_DECODING, 0L);

  const std::string& method = request.method;
  if (method == "HEAD") {
    curl_easy_setopt(handle, CURLOPT_NOBODY, 1L);
  } else if (method == "GET" && request.body.empty()) {
    curl_easy_setopt(handle, CURLOPT_HTTPGET, 1L);
  } else {
    if (!request.body.empty() || method == "POST" || method == "PUT" || method == "PATCH") {
      // POSTFIELDS makes libcurl send the body (possibly empty) with a Content-Length.
      static const char kEmpty[] = "";
      curl_easy_setopt(handle, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body.size()));
      curl_easy_setopt(handle, CURLOPT_POSTFIELDS,
                       request.body.empty() ? kEmpty : reinterpret_cast<const char*>(request.body.data()));
    }
    if (method != "POST") curl_easy_setopt(handle, CURLOPT_CUSTOMREQUEST, method.c_str());
  }

  const CURLcode result = curl_easy_perform(handle);

  char* scheme = nullptr;
  curl_easy_getinfo(handle, CURLINFO_SCHEME, &scheme);
  const bool tls = scheme != nullptr && (strcasecmp(scheme, "https") == 0);
  if (tls || IsTlsError(result)) {
    if (!settings.verifyTls) {
      request.trustFailureFlags = trust::kVerificationDisabled;
    } else {
      long verify = X509_V_OK;
      curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &verify);
      if (result == CURLE_PEER_FAILED_VERIFICATION && (verify == X509_V_OK || verify == kVerifyCatchAll)) {
        // libcurl checks the host name itself once OpenSSL has accepted the
        // chain; a failure there leaves no particular OpenSSL result.
        request.trustFailureFlags = trust::kHostNameMismatch;
      } else {
        request.trustFailureFlags = TrustFlagsFromVerifyResult(verify);
      }
      if (request.trustFailureFlags == 0 && IsTlsError(result)) {
        request.trustFailureFlags = trust::kHandshakeFailed;
      }
    }
  }

  const uint32_t code = CodeFor(result, transfer.tooLarge);
  if (code != 0) {
    std::string detail = errorText[0] != '\0' ? errorText : curl_easy_strerror(result);
    if (request.trustFailureFlags != 0) {
      long verify = X509_V_OK;
      curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &verify);
      detail += " (certificate check " + std::to_string(verify) + ", trust-failure flags " +
                std::to_string(request.trustFailureFlags) + ")";
    }
    if (transfer.tooLarge) detail = "response body larger than " + std::to_string(transfer.limit) + " bytes";
    return {code, detail};
  }
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  transfer.response.status = static_cast<uint32_t>(status);
  if (transfer.response.reason.empty()) transfer.response.reason = StandardReason(transfer.response.status);
  const std::string summary = "HTTP " + std::to_string(status) + " " + transfer.response.reason + ", " +
                              std::to_string(transfer.response.body.size()) + " body bytes";
  request.response = std::move(transfer.response);
  return {0, summary};
}

}  // namespace palvonauthd
