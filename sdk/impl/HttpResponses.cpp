// Sending a request and reading its response; the certificate calls.
#include <cstring>
#include <memory>
#include <stdexcept>

#include "PalvonAuthManagerTracer.h"
#include "api/SignatureTexts.h"
#include "impl/HttpOperation.h"
#include "impl/LinuxAMImplementationV2.h"
#include "protocol/Operations.h"
#include "protocol/ResultCodes.h"

namespace PalvonAuthManagerSDK {

namespace {

void PutHandle(LinuxDictionary& request, AMHttpHandle handle) { request.SetUInt(key::kHttpHandle, handle); }

struct HeaderArrayRelease {
  void operator()(AMChar** headers) const { FreeHeaderArray(headers); }
};

AMResult NotImplementedOperation(const char* signature) {
  CTracer::TraceMethodEntry(signature);
  CTracer::Err(L"%ls", L"Function not implemented");
  return rc::kNotImplemented;
}

}  // namespace

void FreeHeaderArray(AMChar** headers) {
  if (headers == nullptr) return;
  for (AMChar** entry = headers; *entry != nullptr; ++entry) delete[] *entry;
  delete[] headers;
}

AMResult LinuxAMImplementationV2::SendRequestAndReceiveResponse(AMHttpHandle handle) {
  return HttpOperation(sig::l2::kSendRequestAndReceiveResponse, msg::kSendRequestAndReceiveResponse, handle)
      .Call([&](LinuxDictionary& request) { PutHandle(request, handle); });
}

AMResult LinuxAMImplementationV2::GetResponseStatusCode(AMHttpHandle handle, AMUint* httpStatusCode) {
  ServiceOperation op = HttpOperation(sig::l2::kGetResponseStatusCode, msg::kGetResponseStatusCode, handle);
  if (!ServiceOperation::Require(httpStatusCode, "GetResponseStatusCode", "httpStatusCode")) {
    return rc::kBadParameter;
  }
  *httpStatusCode = 0;
  return op.Call([&](LinuxDictionary& request) { PutHandle(request, handle); },
                 [&](const LinuxDictionary& reply) {
                   AMUint status = 0;  // the cleared value when the reply has none
                   (void)reply.GetUInt(key::kHttpStatus, &status);
                   CTracer::Msg(L"GetResponseStatusCode completed for handle %u with result %u", handle, status);
                   *httpStatusCode = status;
                 });
}

AMResult LinuxAMImplementationV2::GetResponseReasonPhrase(AMHttpHandle handle, AMChar** outReasonPhrase) {
  ServiceOperation op = HttpOperation(sig::l2::kGetResponseReasonPhrase, msg::kGetResponseReasonPhrase, handle);
  if (!ServiceOperation::Require(outReasonPhrase, "GetResponseReasonPhrase", "outReasonPhrase")) {
    return rc::kBadParameter;
  }
  *outReasonPhrase = nullptr;
  return op.Call([&](LinuxDictionary& request) { PutHandle(request, handle); },
                 [&](const LinuxDictionary& reply) {
                   // The caller gets a copy of its own: the reply dies when the call returns.
                   const wchar_t* phrase = reply.GetString(key::kHttpReasonPhrase);
                   *outReasonPhrase = phrase != nullptr ? CopyText(phrase) : nullptr;
                 });
}

AMResult LinuxAMImplementationV2::GetResponseHeaders(AMHttpHandle handle, AMChar*** headers) {
  ServiceOperation op = HttpOperation(sig::l2::kGetResponseHeaders, msg::kGetResponseHeaders, handle);
  if (!ServiceOperation::Require(headers, "GetResponseHeaders", "headers")) return rc::kBadParameter;
  return op.ExceptionAtMessageLevel().Call(
      [&](LinuxDictionary& request) { PutHandle(request, handle); },
      [&](const LinuxDictionary& reply) {
        unsigned int count = 0;
        (void)reply.GetUInt(key::kNumHeaders, &count);
        // Every header is a wide text of its own in the reply: a count beyond
        // the texts present is a broken reply, refused before anything is
        // allocated for it.
        if (count > reply.WideStringValues().size()) throw std::length_error("more headers announced than sent");
        // Zero-filled, so the array is null-terminated at every stage and its
        // owner can release it whenever filling stops.
        std::unique_ptr<AMChar*[], HeaderArrayRelease> array(new AMChar*[static_cast<size_t>(count) + 1]());
        for (unsigned int i = 0; i < count; ++i) {
          array[i] = CopyReplyText(reply, key::Indexed(key::kHeaderPrefix, i).c_str());
        }
        *headers = array.release();
      });
}

AMResult LinuxAMImplementationV2::GetResponseTrustFailureFlags(AMHttpHandle handle, AMUint* outTrustFailureFlags) {
  ServiceOperation op =
      HttpOperation(sig::l2::kGetResponseTrustFailureFlags, msg::kGetResponseTrustFailureFlags, handle);
  if (!ServiceOperation::Require(outTrustFailureFlags, "GetResponseTrustFailureFlags", "outTrustFailureFlags")) {
    return rc::kBadParameter;
  }
  *outTrustFailureFlags = 0;
  return op.Call([&](LinuxDictionary& request) { PutHandle(request, handle); },
                 [&](const LinuxDictionary& reply) { (void)reply.GetUInt(key::kTrustFailureFlags, outTrustFailureFlags); });
}

AMResult LinuxAMImplementationV2::ReadResponseBodyStream(AMHttpHandle handle, AMByte* buffer,
                                                         AMUint maxNumberOfBytesToRead, AMUint* numBytesRead) {
  ServiceOperation op = HttpOperation(sig::l2::kReadResponseBodyStream, msg::kReadResponseBodyStream, handle);
  if (!ServiceOperation::Require(numBytesRead, "ReadResponseBodyStream", "numBytesRead")) return rc::kBadParameter;
  if (maxNumberOfBytesToRead != 0 && !ServiceOperation::Require(buffer, "ReadResponseBodyStream", "buffer")) {
    return rc::kBadParameter;
  }
  return op.Call(
      [&](LinuxDictionary& request) {
        PutHandle(request, handle);
        request.SetUInt(key::kMaxBytesToRead, maxNumberOfBytesToRead);
      },
      [&](const LinuxDictionary& reply) {
        const LinuxDictionary::BufferValue* chunk = reply.FindBuffer(key::kByteData);
        const size_t count = chunk != nullptr ? chunk->first.size() : 0;
        // The caller's buffer holds only what it asked for: a longer chunk
        // is a broken reply, never copied, and the count stays as it was.
        if (count > maxNumberOfBytesToRead) throw std::length_error("chunk longer than requested");
        if (count > 0) std::memcpy(buffer, chunk->first.data(), count);
        *numBytesRead = static_cast<AMUint>(count);
      });
}

AMResult LinuxAMImplementationV2::GetResponseServerCertificate(AMHttpHandle /*handle*/,
                                                               AMCertificate* /*certificate*/) {
  return NotImplementedOperation(sig::l2::kGetResponseServerCertificate);
}

AMResult LinuxAMImplementationV2::GetServerCertificate(ConnectionHandle /*connection*/, const AMChar* /*url*/,
                                                       AMCertificate* /*certificate*/, AMUint* /*flags*/) {
  return NotImplementedOperation(sig::l2::kGetServerCertificate);
}

AMResult LinuxAMImplementationV2::FreeCertificate(AMCertificate /*certificate*/) {
  return NotImplementedOperation(sig::l2::kFreeCertificate);
}

AMResult LinuxAMImplementationV2::DuplicateCertificate(AMCertificate /*certificate*/, AMCertificate* /*duplicate*/) {
  return NotImplementedOperation(sig::l2::kDuplicateCertificate);
}

}  // namespace PalvonAuthManagerSDK
