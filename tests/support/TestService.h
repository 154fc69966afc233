#ifndef PAM_TESTS_SUPPORT_TESTSERVICE_H
#define PAM_TESTS_SUPPORT_TESTSERVICE_H

// A scriptable stand-in for the authentication-manager service, running on a
// thread of the test process. It listens on the registration pipe of the
// current HOME, serves every client that registers, records each request
// and answers from a script.

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "message/LinuxDictionary.h"

namespace pam_test {

/** One request as the service received it. */
struct Request {
  uint32_t type = 0;
  uint32_t processId = 0;
  std::vector<uint8_t> raw;
  PalvonAuthManagerSDK::LinuxDictionary message;
  std::chrono::steady_clock::time_point receivedAt;
};

/** One scripted answer. */
struct Reply {
  /** Values of the reply; the envelope is filled from the request. */
  PalvonAuthManagerSDK::LinuxDictionary values;
  /** When set, these bytes are written instead of an encoded reply. */
  std::optional<std::vector<uint8_t>> raw;
  /** Pause before answering. */
  std::chrono::milliseconds delay{0};
  /** Write the frame in pieces of this size with a short pause between them (0: at once). */
  size_t pieceSize = 0;
  /** Send nothing at all. */
  bool silent = false;

  /** A reply whose "return" is `code`. */
  static Reply Return(uint32_t code);
  /** A reply without any "return" key. */
  static Reply Empty();
  /** A busy (65280) reply. */
  static Reply Busy();
  /** Raw bytes instead of a message. */
  static Reply Raw(std::vector<uint8_t> bytes);

  Reply& UInt(const wchar_t* key, uint32_t value);
  Reply& Int(const wchar_t* key, int32_t value);
  Reply& Wide(const wchar_t* key, const std::wstring& value);
  Reply& Narrow(const wchar_t* key, const std::string& value);
  Reply& Buffer(const wchar_t* key, const std::vector<uint8_t>& bytes);
  Reply& After(std::chrono::milliseconds pause);
  Reply& InPieces(size_t size);
};

class TestService {
 public:
  /** Handler consulted when no scripted reply is queued for a message type. */
  using Handler = std::function<Reply(const Request&)>;

  /** Starts serving on the pipe directory of the current HOME. */
  TestService();
  ~TestService();
  TestService(const TestService&) = delete;
  TestService& operator=(const TestService&) = delete;

  /** Queues replies for a message type; they are used in order, then the handler answers. */
  void Script(uint32_t type, std::vector<Reply> replies);
  /** Replaces the fallback handler (default: "return" 0, plus "version" 2 for the version query). */
  void SetHandler(Handler handler);
  /** SDK version the default handler reports. */
  void SetVersion(uint32_t version);

  std::vector<Request> Requests() const;
  std::vector<Request> RequestsOfType(uint32_t type) const;
  size_t RequestCount() const;
  /** Waits until at least n requests arrived; false on time-out. */
  bool WaitForRequests(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  /** Process ids of the registration records received so far (malformed ones included). */
  std::vector<uint32_t> Registrations() const;
  bool WaitForRegistrations(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  /** Raw bytes of every registration record. */
  std::vector<std::vector<uint8_t>> RegistrationBytes() const;

  /** The pipe directory served. */
  const std::string& Directory() const { return directory_; }
  /** Stops the thread (also done by the destructor). */
  void Stop();

 private:
  struct Client;
  void Run();
  void ServeClient(Client& client);
  Reply NextReply(const Request& request);
  void Answer(Client& client, const Request& request, const Reply& reply);

  std::string directory_;
  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  std::map<uint32_t, std::deque<Reply>> scripts_;
  Handler handler_;
  uint32_t version_ = 2;
  std::vector<Request> requests_;
  std::vector<uint32_t> registrations_;
  std::vector<std::vector<uint8_t>> registrationBytes_;
  bool stop_ = false;
  int wakeRead_ = -1;
  int wakeWrite_ = -1;
  std::thread thread_;
};

/** Prints wide text as UTF-8 for test messages. */
std::string Utf8(const std::wstring& text);

}  // namespace pam_test

#endif
