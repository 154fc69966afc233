#ifndef PAM_TESTS_INTEGRATION_LEVEL2_SUPPORT_H
#define PAM_TESTS_INTEGRATION_LEVEL2_SUPPORT_H

// Shared helpers of the API level 2 integration tests: a fixture that
// initialises the library with tracing on against the test service, readers
// for the trace file and for recorded requests, and a small web server played
// by the test service's handler.

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <vector>

#include "PalvonAuthManager.h"
#include "PalvonAuthManagerTracer.h"
#include "message/MessageTypes.h"
#include "support/TempHome.h"
#include "support/TestService.h"

namespace l2test {

using namespace PalvonAuthManagerSDK;
using pam_test::Reply;
using pam_test::Request;
using pam_test::TestService;
namespace msg = PalvonAuthManagerSDK::msg;
namespace rc = PalvonAuthManagerSDK::rc;

// ---------------------------------------------------------------------------
// Trace file

enum class Level { kMessage, kError };

struct TraceLine {
  Level level = Level::kMessage;
  std::string text;
};

inline std::string LogFolder() { return std::string(std::getenv("HOME")) + "/.RZPClient/logs"; }

/** Lines "<time> <five-character level> : <text>" of this process's trace file, banner lines skipped. */
inline std::vector<TraceLine> ReadTrace() {
  std::string text;
  if (DIR* folder = opendir(LogFolder().c_str())) {
    while (const dirent* entry = readdir(folder)) {
      const std::string name = entry->d_name;
      if (name.rfind("AuthManagerSDK-", 0) == 0) text += pam_test::ReadFile(LogFolder() + "/" + name);
    }
    closedir(folder);
  }
  std::vector<TraceLine> lines;
  std::istringstream in(text);
  std::string line;
  while (std::getline(in, line)) {
    const size_t space = line.find(' ');
    if (space == std::string::npos || line.size() < space + 9 || line.compare(space + 6, 3, " : ") != 0) continue;
    const std::string prefix = line.substr(space + 1, 5);
    if (prefix != "Err  " && prefix != "     ") continue;
    lines.push_back({prefix == "Err  " ? Level::kError : Level::kMessage, line.substr(space + 9)});
  }
  return lines;
}

/** Number of trace lines of `level` whose text is exactly `text`. */
inline size_t CountTrace(Level level, const std::string& text) {
  size_t count = 0;
  for (const auto& line : ReadTrace()) count += (line.level == level && line.text == text) ? 1 : 0;
  return count;
}

/** Number of trace lines (any level) whose text starts with `start`. */
inline size_t CountTraceStartingWith(const std::string& start) {
  size_t count = 0;
  for (const auto& line : ReadTrace()) count += line.text.rfind(start, 0) == 0 ? 1 : 0;
  return count;
}

// ---------------------------------------------------------------------------
// Recorded requests

/**
 * Every value of a message as "key" -> "type:value", so that one comparison
 * checks the keys present, their value types and their values.
 */
inline std::map<std::string, std::string> Describe(const LinuxDictionary& message) {
  std::map<std::string, std::string> out;
  for (const auto& [key, value] : message.UIntValues()) out[pam_test::Utf8(key)] = "uint:" + std::to_string(value);
  for (const auto& [key, value] : message.IntValues()) out[pam_test::Utf8(key)] = "int:" + std::to_string(value);
  for (const auto& [key, value] : message.ByteValues()) out[pam_test::Utf8(key)] = "byte:" + std::to_string(value);
  for (const auto& [key, value] : message.WideStringValues()) {
    out[pam_test::Utf8(key)] = "wide:" + pam_test::Utf8(value);
  }
  for (const auto& [key, value] : message.NarrowStringValues()) out[pam_test::Utf8(key)] = "narrow:" + value;
  for (const auto& [key, value] : message.BufferValues()) {
    out[pam_test::Utf8(key)] = "buffer:" + std::to_string(value.first.size());
  }
  return out;
}

/** One record of an encoded frame, read straight from its bytes. */
struct RawRecord {
  uint8_t type = 0;
  std::wstring key;
  std::vector<uint8_t> value;
};

/** Walks the records of an encoded frame up to its end record. */
inline std::vector<RawRecord> RawRecords(const std::vector<uint8_t>& frame) {
  std::vector<RawRecord> records;
  size_t offset = 12;
  while (offset + 136 <= frame.size()) {
    RawRecord record;
    record.type = frame[offset];
    if (record.type == 5 || record.type > 6) break;
    for (size_t i = 0; i < 32; ++i) {
      uint32_t c = 0;
      std::memcpy(&c, frame.data() + offset + 4 + 4 * i, 4);
      if (c == 0) break;
      record.key += static_cast<wchar_t>(c);
    }
    uint32_t length = 0;
    std::memcpy(&length, frame.data() + offset + 132, 4);
    if (offset + 136 + length > frame.size()) break;
    record.value.assign(frame.begin() + static_cast<long>(offset + 136),
                        frame.begin() + static_cast<long>(offset + 136 + length));
    offset += 136 + length + (record.type == 6 ? (4 - length % 4) % 4 : 0);
    records.push_back(std::move(record));
  }
  return records;
}

/** The raw record of `key`, or one of type 0xFF when the frame has none. */
inline RawRecord RawRecordOf(const std::vector<uint8_t>& frame, const std::wstring& key) {
  for (auto& record : RawRecords(frame)) {
    if (record.key == key) return record;
  }
  RawRecord missing;
  missing.type = 0xFF;
  return missing;
}

inline std::vector<uint8_t> Bytes(const std::string& text) { return std::vector<uint8_t>(text.begin(), text.end()); }

// ---------------------------------------------------------------------------
// Fixture

/** The library initialised at API level 2 against a fresh test service, tracing on. */
class Level2Test : public ::testing::Test {
 protected:
  void SetUp() override {
    // Tracing goes into $HOME/.RZPClient/logs.
    PalvonAuthManagerSDK::CTracer::s_tracingEnabled = true;
    (void)mkdir((std::string(std::getenv("HOME")) + "/.RZPClient").c_str(), 0700);
    ASSERT_EQ(PalvonAuthManager_Initialize(), 0u);
    AMUint level = 0;
    ASSERT_EQ(PalvonAuthManager_GetApiLevel(&level), 0u);
    ASSERT_EQ(level, 2u);
    baseline_ = service.RequestCount();
  }

  void TearDown() override {
    (void)PalvonAuthManager_Uninitialize();
    PalvonAuthManagerSDK::CTracer::s_tracingEnabled = false;
  }

  /** Requests received since the library was initialised. */
  size_t SentSinceSetUp() const { return service.RequestCount() - baseline_; }

  /** The one request of `type`; a failure (and an empty request) when there is not exactly one. */
  Request Only(uint32_t type) const {
    const auto requests = service.RequestsOfType(type);
    if (requests.size() != 1) {
      ADD_FAILURE() << requests.size() << " requests of type " << type << ", expected 1";
      return Request();
    }
    return requests[0];
  }

  /** Describe() of the one request of `type`, after checking its envelope. */
  std::map<std::string, std::string> OnlyDescribed(uint32_t type) const {
    const Request request = Only(type);
    EXPECT_EQ(request.processId, static_cast<uint32_t>(getpid()));
    return Describe(request.message);
  }

  TestService service;
  size_t baseline_ = 0;
};

// ---------------------------------------------------------------------------
// A small web server played by the test service

/**
 * Answers the level-1 connection calls and every level-2 HTTP call like a
 * small web server reached through the service. Each request handle keeps
 * its own state; unknown handles get 65530. Paths:
 *   /hello          200 "Hello from the service\n"
 *   /big            200, 300,000 bytes of a repeating pattern
 *   /echo           200, the request body (any method)
 *   anything else   404 "no such page\n"
 * The response headers name the method and URL the server saw.
 */
class MiniWebServer {
 public:
  static constexpr uint32_t kConnection = 7;
  /** The largest chunk the server hands out at once, whatever the maximum asked. */
  static constexpr size_t kChunkLimit = 48 * 1024;

  static std::string BigBody() {
    std::string body(300000, '\0');
    for (size_t i = 0; i < body.size(); ++i) body[i] = static_cast<char>('a' + (i * 7 + i / 1000) % 26);
    return body;
  }

  /** A handler for TestService::SetHandler that forwards to this server. */
  TestService::Handler Handler() {
    return [this](const Request& request) { return Answer(request); };
  }

  /** Number of request handles still alive in the server. */
  size_t LiveHandles() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return handles_.size();
  }

  Reply Answer(const Request& request) {
    std::lock_guard<std::mutex> lock(mutex_);
    const LinuxDictionary& in = request.message;
    switch (request.type) {
      case msg::kGetServerSDKVersion:
        return Reply::Return(0).UInt(L"version", 2);
      case msg::kCreateConnection:
        return Reply::Return(0).UInt(L"AuthManagerHandle", kConnection);
      case msg::kCreateAMHttpRequest: {
        unsigned int connection = 0;
        if (!in.GetUInt(L"AuthManagerHandle", &connection) || connection != kConnection) {
          return Reply::Return(rc::kInvalidHandle);
        }
        const uint32_t handle = nextHandle_++;
        handles_[handle] = State();
        return Reply::Return(0).UInt(L"httpHandle", handle);
      }
      case msg::kLaunchRZPFile:
        return Reply::Return(0).UInt(L"currentStatus", 1);
      default:
        break;
    }
    if (request.type < msg::kCreateAMHttpRequest) return Reply::Return(0);
    unsigned int handle = 0;
    (void)in.GetUInt(L"httpHandle", &handle);
    auto it = handles_.find(handle);
    if (it == handles_.end()) return Reply::Return(rc::kInvalidHandle);
    State& state = it->second;
    switch (request.type) {
      case msg::kSetRequestMethod:
        state.method = Text(in, L"httpMethod");
        break;
      case msg::kSetRequestUrl:
        state.url = Text(in, L"httpUrl");
        break;
      case msg::kAddRequestHeader:
        state.requestHeaders.push_back(Text(in, L"httpheader"));
        break;
      case msg::kSetRequestData: {
        const auto* data = in.FindBuffer(L"amByteData");
        state.requestBody = data != nullptr ? std::string(data->first.begin(), data->first.end()) : std::string();
        break;
      }
      case msg::kSendRequestAndReceiveResponse:
        Respond(state);
        break;
      case msg::kGetResponseStatusCode:
        if (!state.sent) return Reply::Return(1);
        return Reply::Return(0).UInt(L"httpStatus", state.status);
      case msg::kGetResponseReasonPhrase:
        if (!state.sent) return Reply::Return(1);
        return Reply::Return(0).Wide(L"httpResponse", state.phrase);
      case msg::kGetResponseHeaders: {
        if (!state.sent) return Reply::Return(1);
        Reply reply = Reply::Return(0).UInt(L"numHeaders", static_cast<uint32_t>(state.responseHeaders.size()));
        for (size_t i = 0; i < state.responseHeaders.size(); ++i) {
          reply.Wide((L"Attrib" + std::to_wstring(i)).c_str(), state.responseHeaders[i]);
        }
        return reply;
      }
      case msg::kReadResponseBodyStream: {
        if (!state.sent) return Reply::Return(1);
        unsigned int max = 0;
        (void)in.GetUInt(L"maxNumberOfBytesToRead", &max);
        const size_t count = std::min({static_cast<size_t>(max), kChunkLimit, state.body.size() - state.offset});
        Reply reply = Reply::Return(0);
        if (count > 0) {
          reply.Buffer(L"amByteData",
                       std::vector<uint8_t>(state.body.begin() + static_cast<long>(state.offset),
                                            state.body.begin() + static_cast<long>(state.offset + count)));
        }
        state.offset += count;
        return reply;
      }
      case msg::kDestroyAMHttpRequest:
        handles_.erase(it);
        break;
      default:
        break;
    }
    return Reply::Return(0);
  }

 private:
  struct State {
    std::wstring method = L"GET";
    std::wstring url;
    std::vector<std::wstring> requestHeaders;
    std::string requestBody;
    bool sent = false;
    uint32_t status = 0;
    std::wstring phrase;
    std::vector<std::wstring> responseHeaders;
    std::string body;
    size_t offset = 0;
  };

  static std::wstring Text(const LinuxDictionary& message, const wchar_t* key) {
    const wchar_t* text = message.GetString(key);
    return text != nullptr ? text : L"";
  }

  static void Respond(State& state) {
    const size_t scheme = state.url.find(L"://");
    const size_t slash = state.url.find(L'/', scheme == std::wstring::npos ? 0 : scheme + 3);
    const std::wstring path = slash == std::wstring::npos ? L"/" : state.url.substr(slash);
    state.sent = true;
    state.offset = 0;
    state.status = 200;
    state.phrase = L"OK";
    if (path == L"/hello") {
      state.body = "Hello from the service\n";
    } else if (path == L"/big") {
      state.body = BigBody();
    } else if (path == L"/echo") {
      state.body = state.requestBody;
    } else {
      state.status = 404;
      state.phrase = L"Not Found";
      state.body = "no such page\n";
    }
    state.responseHeaders = {L"Content-Type: text/plain", L"Content-Length: " + std::to_wstring(state.body.size()),
                             L"X-Seen-Method: " + state.method,
                             L"X-Seen-Headers: " + std::to_wstring(state.requestHeaders.size())};
  }

  mutable std::mutex mutex_;
  std::map<uint32_t, State> handles_;
  uint32_t nextHandle_ = 100;
};

}  // namespace l2test

#endif
