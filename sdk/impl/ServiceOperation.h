#ifndef PALVON_SDK_IMPL_SERVICEOPERATION_H
#define PALVON_SDK_IMPL_SERVICEOPERATION_H

#include <functional>

#include "PalvonAuthManager.h"
#include "message/LinuxDictionary.h"
#include "util/TraceTexts.h"

namespace PalvonAuthManagerSDK {

/**
 * The pattern every operation that talks to the service follows: entry
 * trace, argument checks, one request built on the operation's message type,
 * repeated after 100 ms while the service is busy, the handle message on
 * 65530, out-values read only on result 0, any exception turned into 65528,
 * and the exit trace. An operation states only its keys and out-values.
 */
class ServiceOperation {
 public:
  using Fill = std::function<void(LinuxDictionary& request)>;
  using ReadOut = std::function<void(const LinuxDictionary& reply)>;
  using OnReply = std::function<void(AMResult result)>;

  /** Traces the entry line "[+] <signature>". */
  ServiceOperation(const char* signature, uint32_t messageType);

  /** Traces "<format>" with the handle at error level when the service answers 65530. */
  ServiceOperation& InvalidHandleMessage(const wchar_t* format, uint32_t handle);
  /** Text traced for a caught exception; it may hold one %u, given `handle`. */
  ServiceOperation& ExceptionMessage(const wchar_t* format, uint32_t handle = 0);
  /** Traces the caught exception at message level instead of error level. */
  ServiceOperation& ExceptionAtMessageLevel();
  /** Called with the result after every reply, busy ones included. */
  ServiceOperation& AfterEachReply(OnReply onReply);

  /**
   * False (with the trace "<operation>: failed because <argument> is NULL!")
   * when `argument` is null; the caller then returns 65531 at once.
   */
  static bool Require(const void* argument, const char* operation, const char* name);

  /**
   * Builds and sends the request, reads the out-values on 0, traces the exit
   * line. `readOut` builds every out-value in an owner of its own and stores
   * them in the caller's variables only after the last value was read, so an
   * operation that fails (a missing text, a count the reply does not hold)
   * hands out nothing and leaks nothing.
   */
  AMResult Call(const Fill& fill, const ReadOut& readOut = nullptr);

 private:
  const char* signature_;
  uint32_t messageType_;
  const wchar_t* invalidHandleFormat_ = nullptr;
  uint32_t invalidHandle_ = 0;
  const wchar_t* exceptionFormat_ = text::kUnexpectedException;
  uint32_t exceptionHandle_ = 0;
  bool exceptionAtMessageLevel_ = false;
  OnReply onReply_;
};

/**
 * A new array copy (length + 1, released with delete[]) of the reply's wide
 * text under `key`. Throws std::logic_error when the key is missing.
 */
AMChar* CopyReplyText(const LinuxDictionary& reply, const wchar_t* key);

/** A new array copy of a text, or throws std::logic_error for null. */
AMChar* CopyText(const wchar_t* text);

/** Puts a gateway record's texts (when not null) and numbers into a request. */
void PutGateway(LinuxDictionary& request, const AM_GATEWAY_INFO& gateway, bool withRewriteRule);

}  // namespace PalvonAuthManagerSDK

#endif
