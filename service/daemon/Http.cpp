#include "daemon/Http.h"

#include <curl/curl.h>
#include <openssl/x509_vfy.h>

#include <algorithm>
#include <cctype>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <thread>

#include "daemon/BodyStream.h"
#include "daemon/ServiceCodes.h"
#include "protocol/ResultCodes.h"
#include "util/ReasonPhrase.h"

namespace palvonauthd {

namespace {

/** OpenSSL's catch-all certificate verification result (1). */
constexpr long kVerifyCatchAll = 1;

}  // namespace

/**
 * A request in flight on a thread of its own. Until the final response's
 * headers are in, the sending session waits for it; from then on the body
 * flows through `body` while the client reads.
 */
class HttpTransfer {
 public:
  HttpTransfer(const HttpRequest& request, const HttpSettings& settings, const std::atomic<bool>& cancel)
      : request_(request), settings_(settings) {
    body = std::make_shared<BodyStream>(settings.bodyBufferBytes, cancel);
    request_.response.reset();
  }
  ~HttpTransfer() {
    body->Abandon();
    if (thread_.joinable()) thread_.join();
  }
  HttpTransfer(const HttpTransfer&) = delete;
  HttpTransfer& operator=(const HttpTransfer&) = delete;

  void Start() { thread_ = std::thread([this] { Run(); }); }
  /** Waits for the headers, the end of a failed transfer, or the session's end. */
  bool WaitForHeaders(const std::atomic<bool>& cancel) {
    std::unique_lock<std::mutex> guard(lock_);
    while (!headersDone_ && !done_ && !cancel.load()) ready_.wait_for(guard, std::chrono::milliseconds(20));
    return headersDone_;
  }

  // Filled on the transfer's thread; read after WaitForHeaders.
  HttpResponse response;
  uint32_t trustFailureFlags = 0;
  HttpOutcome outcome;
  std::shared_ptr<BodyStream> body;

  // The callbacks' view.
  HttpRequest request_;
  HttpSettings settings_;
  CURL* handle = nullptr;
  uint64_t received = 0;
  bool tooLarge = false;
  std::atomic<bool> timedOut{false};
  std::atomic<bool> headersSeen{false};
  std::chrono::steady_clock::time_point started = std::chrono::steady_clock::now();

  /** The final response's headers are complete: hand them to the waiting session. */
  void HeadersDone(CURLcode result);

 private:
  void Run();

  std::mutex lock_;
  std::condition_variable ready_;
  bool headersDone_ = false;
  bool done_ = false;
  std::thread thread_;
};

namespace {

// The blank line after a header block ends the final response's headers
// unless the block was an interim (1xx) answer or a redirect about to be
// followed.
bool IsFinalResponse(HttpTransfer& transfer) {
  long status = 0;
  curl_easy_getinfo(transfer.handle, CURLINFO_RESPONSE_CODE, &status);
  if (status >= 100 && status < 200) return false;
  if (transfer.settings_.followRedirects && status >= 300 && status < 400) {
    char* next = nullptr;
    curl_easy_getinfo(transfer.handle, CURLINFO_REDIRECT_URL, &next);
    if (next != nullptr) return false;
  }
  return true;
}

size_t OnHeader(char* data, size_t size, size_t count, void* user) {
  auto& transfer = *static_cast<HttpTransfer*>(user);
  const size_t length = size * count;
  // Trailers after the body are not passed on: the headers were handed out.
  if (transfer.headersSeen) return length;
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
  } else if (IsFinalResponse(transfer)) {
    transfer.HeadersDone(CURLE_OK);
  }
  return length;
}

size_t OnBody(char* data, size_t size, size_t count, void* user) {
  auto& transfer = *static_cast<HttpTransfer*>(user);
  const size_t length = size * count;
  const uint64_t limit = transfer.settings_.maxResponseBytes;
  if (limit != 0 && transfer.received + length > limit) {
    transfer.tooLarge = true;
    return 0;
  }
  transfer.received += length;
  return transfer.body->Put(reinterpret_cast<const uint8_t*>(data), length) ? length : 0;
}

int OnProgress(void* user, curl_off_t, curl_off_t, curl_off_t, curl_off_t) {
  auto& transfer = *static_cast<HttpTransfer*>(user);
  if (transfer.body->Abandoned()) return 1;
  // The time-out bounds the wait for the headers and, after them, each
  // silence of the server; a client that reads slowly pauses the transfer
  // inside the body callback, where no time is counted against it.
  const uint32_t seconds = transfer.request_.timeoutSeconds != 0 ? transfer.request_.timeoutSeconds
                                                                  : transfer.settings_.timeoutSeconds;
  if (seconds == 0) return 0;
  const auto since = transfer.headersSeen ? transfer.body->LastInput() : transfer.started;
  if (std::chrono::steady_clock::now() - since > std::chrono::seconds(seconds)) {
    transfer.timedOut = true;
    return 1;
  }
  return 0;
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

uint32_t CodeFor(CURLcode code, bool tooLarge, bool timedOut) {
  if (tooLarge) return code::kHttpTransferFailed;
  if (timedOut) return code::kHttpTimedOut;
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

namespace {

uint32_t TrustFlagsOf(CURL* handle, CURLcode result, bool verifyTls) {
  char* scheme = nullptr;
  curl_easy_getinfo(handle, CURLINFO_SCHEME, &scheme);
  const bool tls = scheme != nullptr && (strcasecmp(scheme, "https") == 0);
  if (!tls && !IsTlsError(result)) return 0;
  if (!verifyTls) return trust::kVerificationDisabled;
  long verify = X509_V_OK;
  curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &verify);
  // libcurl checks the host name itself once OpenSSL has accepted the chain;
  // a failure there leaves no particular OpenSSL result.
  if (result == CURLE_PEER_FAILED_VERIFICATION && (verify == X509_V_OK || verify == kVerifyCatchAll)) {
    return trust::kHostNameMismatch;
  }
  const uint32_t flags = TrustFlagsFromVerifyResult(verify);
  return flags == 0 && IsTlsError(result) ? trust::kHandshakeFailed : flags;
}

}  // namespace

void HttpTransfer::HeadersDone(CURLcode result) {
  long status = 0;
  curl_easy_getinfo(handle, CURLINFO_RESPONSE_CODE, &status);
  response.status = static_cast<uint32_t>(status);
  if (response.reason.empty()) response.reason = PalvonAuthManagerSDK::StandardReasonPhrase(response.status);
  trustFailureFlags = TrustFlagsOf(handle, result, settings_.verifyTls);
  headersSeen = true;
  std::lock_guard<std::mutex> guard(lock_);
  headersDone_ = true;
  ready_.notify_all();
}

void HttpTransfer::Run() {
  const HttpRequest& request = request_;
  const HttpSettings& settings = settings_;
  std::unique_ptr<CURL, CurlDeleter> curl(curl_easy_init());
  CURLcode result = CURLE_FAILED_INIT;
  char errorText[CURL_ERROR_SIZE] = {};
  std::unique_ptr<curl_slist, SlistDeleter> headers;
  const std::string userAgent = UserAgentFor(settings, request.userAgentSuffix);
  if (curl) {
    handle = curl.get();
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

    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_ERRORBUFFER, errorText);
    curl_easy_setopt(handle, CURLOPT_URL, request.url.c_str());
    // Web resources only: a client's URL or a server's redirect never makes
    // the service read a local file or speak another protocol.
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_HTTPHEADER, headers.get());
    if (!userAgent.empty()) curl_easy_setopt(handle, CURLOPT_USERAGENT, userAgent.c_str());
    if (!request.referenceUrl.empty()) curl_easy_setopt(handle, CURLOPT_REFERER, request.referenceUrl.c_str());
    curl_easy_setopt(handle, CURLOPT_CONNECTTIMEOUT, static_cast<long>(settings.connectTimeoutSeconds));
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, settings.followRedirects ? 1L : 0L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYPEER, settings.verifyTls ? 1L : 0L);
    curl_easy_setopt(handle, CURLOPT_SSL_VERIFYHOST, settings.verifyTls ? 2L : 0L);
    if (!settings.caFile.empty()) curl_easy_setopt(handle, CURLOPT_CAINFO, settings.caFile.c_str());
    curl_easy_setopt(handle, CURLOPT_HEADERFUNCTION, OnHeader);
    curl_easy_setopt(handle, CURLOPT_HEADERDATA, this);
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, OnBody);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, this);
    curl_easy_setopt(handle, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(handle, CURLOPT_XFERINFOFUNCTION, OnProgress);
    curl_easy_setopt(handle, CURLOPT_XFERINFODATA, this);
    // Whatever the server sends is passed on as it is, compressed or not.
    curl_easy_setopt(handle, CURLOPT_HTTP_CONTENT_DECODING, 0L);
    // Large reads from the client want large pieces from the server.
    curl_easy_setopt(handle, CURLOPT_BUFFERSIZE, 512L * 1024L);

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
    result = curl_easy_perform(handle);
  }

  const uint32_t code = CodeFor(result, tooLarge, timedOut);
  if (code == 0 && !headersSeen) HeadersDone(result);  // a response without a header block
  if (code != 0) {
    outcome.code = code;
    outcome.detail = !curl ? "curl_easy_init failed" : errorText[0] != '\0' ? errorText : curl_easy_strerror(result);
    if (curl) trustFailureFlags = TrustFlagsOf(handle, result, settings.verifyTls);
    if (trustFailureFlags != 0) {
      long verify = X509_V_OK;
      curl_easy_getinfo(handle, CURLINFO_SSL_VERIFYRESULT, &verify);
      outcome.detail += " (certificate check " + std::to_string(verify) + ", trust-failure flags " +
                        std::to_string(trustFailureFlags) + ")";
    }
    if (tooLarge) outcome.detail = "response body larger than " + std::to_string(settings.maxResponseBytes) + " bytes";
    if (timedOut) {
      const uint32_t seconds = request.timeoutSeconds != 0 ? request.timeoutSeconds : settings.timeoutSeconds;
      outcome.detail = "the server sent nothing for " + std::to_string(seconds) + " s (the request's time-out)";
    }
  }
  body->Finish(code);
  std::lock_guard<std::mutex> guard(lock_);
  done_ = true;
  ready_.notify_all();
}

size_t HttpResponse::ReadBody(uint8_t* out, size_t max, uint32_t& code) {
  code = 0;
  if (transfer) return transfer->body->Take(out, max, code);
  const size_t chunk = std::min(body.size() - readOffset, max);
  if (chunk > 0) std::memcpy(out, body.data() + readOffset, chunk);
  readOffset += chunk;
  return chunk;
}

HttpOutcome Perform(HttpRequest& request, const HttpSettings& settings, const std::atomic<bool>& cancel) {
  request.attempted = true;
  request.trustFailureFlags = 0;
  request.response.reset();
  if (request.url.empty()) return {PalvonAuthManagerSDK::rc::kBadParameter, "no URL set"};

  auto transfer = std::make_shared<HttpTransfer>(request, settings, cancel);
  transfer->Start();
  if (!transfer->WaitForHeaders(cancel)) {
    if (cancel.load()) return {code::kHttpCancelled, "the client went away or the service is stopping"};
    // The transfer has ended: its thread is joined when `transfer` goes.
    request.trustFailureFlags = transfer->trustFailureFlags;
    return transfer->outcome;
  }
  request.trustFailureFlags = transfer->trustFailureFlags;
  HttpResponse response = transfer->response;
  response.transfer = transfer;
  const std::string summary = "HTTP " + std::to_string(response.status) + " " + response.reason;
  request.response = std::move(response);
  return {0, summary};
}

}  // namespace palvonauthd
