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

/** One scripted answer: values of the reply (the envelope is the request's), or raw bytes. */
struct Reply {
  PalvonAuthManagerSDK::LinuxDictionary values;
  std::optional<std::vector<uint8_t>> raw;
  size_t pieceSize = 0;                // write the frame in pieces of this size, pausing between them
  bool silent = false;                 // send nothing at all

  static Reply Return(uint32_t code);  // "return" is `code`
  static Reply Silent();
  Reply& UInt(const wchar_t* key, uint32_t value);
  Reply& Wide(const wchar_t* key, const std::wstring& value);
  Reply& Buffer(const wchar_t* key, const std::vector<uint8_t>& bytes);
};

class TestService {
 public:
  /** Answers when no scripted reply is queued for a message type. */
  using Handler = std::function<Reply(const Request&)>;

  TestService();  // serves the pipe directory of the current HOME
  ~TestService();
  TestService(const TestService&) = delete;
  TestService& operator=(const TestService&) = delete;

  /** Queues replies for a message type; they are used in order, then the handler answers. */
  void Script(uint32_t type, std::vector<Reply> replies);
  /** Replaces the fallback handler (default: "return" 0, plus "version" for the version query). */
  void SetHandler(Handler handler);
  /** SDK version the default handler reports (2 unless set). */
  void SetVersion(uint32_t version);

  std::vector<Request> Requests() const;
  size_t RequestCount() const;
  bool WaitForRequests(size_t n, std::chrono::milliseconds timeout = std::chrono::seconds(10)) const;
  /** The registration records received so far (malformed ones included). */
  std::vector<std::vector<uint8_t>> RegistrationBytes() const;

  void Stop();  // also done by the destructor

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
  std::vector<std::vector<uint8_t>> registrationBytes_;
  bool stop_ = false;
  int wakeRead_ = -1;
  int wakeWrite_ = -1;
  std::thread thread_;
};


}  // namespace pam_test

#endif
