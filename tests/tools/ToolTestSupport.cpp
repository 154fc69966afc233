#include "ToolTestSupport.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <mutex>
#include <sstream>

#include "message/MessageTypes.h"

namespace pam_test {

namespace msg = PalvonAuthManagerSDK::msg;

const char* ToolPath() { return PALVONAUTH_TOOL_PATH; }

ChildResult RunTool(const std::vector<std::string>& args, const ChildOptions& options) {
  std::vector<std::string> argv = {ToolPath(), "--wait", "30"};
  argv.insert(argv.end(), args.begin(), args.end());
  ChildResult result = RunChild(argv, options);
  EXPECT_FALSE(result.timedOut) << "palvonauth did not finish";
  return result;
}

bool Contains(const std::string& text, const std::string& part) { return text.find(part) != std::string::npos; }

std::string JsonString(const std::string& json, const std::string& key) {
  const std::string start = "\"" + key + "\":\"";
  const size_t at = json.find(start);
  if (at == std::string::npos) return "";
  const size_t begin = at + start.size();
  size_t end = begin;
  while (end < json.size() && json[end] != '"') end += json[end] == '\\' ? 2 : 1;
  return json.substr(begin, end - begin);
}

struct Answers::State {
  std::mutex mutex;
  std::map<uint32_t, Answer> answers;
  uint32_t version = 2;
};

Answers::Answers(TestService& service, uint32_t version) : state_(std::make_shared<State>()) {
  state_->version = version;
  std::shared_ptr<State> state = state_;
  service.SetHandler([state](const Request& request) {
    Answer answer;
    {
      std::lock_guard<std::mutex> lock(state->mutex);
      auto it = state->answers.find(request.type);
      if (it != state->answers.end()) answer = it->second;
    }
    if (answer) return answer(request);
    Reply reply = Reply::Return(0);
    if (request.type == msg::kGetServerSDKVersion) reply.UInt(L"version", state->version);
    return reply;
  });
}

void Answers::On(uint32_t type, Answer answer) {
  std::lock_guard<std::mutex> lock(state_->mutex);
  state_->answers[type] = std::move(answer);
}

void Answers::Always(uint32_t type, const Reply& reply) {
  On(type, [reply](const Request&) { return reply; });
}

std::vector<uint32_t> OperationTypes(const TestService& service) {
  std::vector<uint32_t> types;
  for (const auto& request : service.Requests()) {
    if (request.type == msg::kGetServerSDKVersion || request.type == msg::kInitialize ||
        request.type == msg::kUninitialize) {
      continue;
    }
    types.push_back(request.type);
  }
  return types;
}

uint32_t UIntOf(const Request& request, const wchar_t* key) {
  unsigned int value = 0;
  EXPECT_TRUE(request.message.GetUInt(key, &value)) << "no unsigned value " << Utf8(key);
  return value;
}

std::wstring WideOf(const Request& request, const wchar_t* key) {
  const wchar_t* value = request.message.GetString(key);
  EXPECT_NE(value, nullptr) << "no wide string " << Utf8(key);
  return value != nullptr ? value : L"";
}

std::string NarrowOf(const Request& request, const wchar_t* key) {
  const std::string* value = request.message.FindNarrowString(key);
  EXPECT_NE(value, nullptr) << "no narrow string " << Utf8(key);
  return value != nullptr ? *value : "";
}

std::vector<uint8_t> BufferOf(const Request& request, const wchar_t* key) {
  const auto* value = request.message.FindBuffer(key);
  EXPECT_NE(value, nullptr) << "no buffer " << Utf8(key);
  return value != nullptr ? value->first : std::vector<uint8_t>();
}

bool HasKey(const Request& request, const wchar_t* key) {
  const auto& m = request.message;
  const std::wstring k = key;
  return m.IntValues().count(k) || m.UIntValues().count(k) || m.ByteValues().count(k) ||
         m.NarrowStringValues().count(k) || m.WideStringValues().count(k) || m.BufferValues().count(k);
}

Request OnlyRequest(const TestService& service, uint32_t type) {
  const auto requests = service.RequestsOfType(type);
  EXPECT_EQ(requests.size(), 1u) << "requests of type " << type;
  return requests.empty() ? Request() : requests.front();
}

std::string Home() {
  const char* home = std::getenv("HOME");
  return home != nullptr ? home : "";
}

std::string ReadWholeFile(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

void WriteWholeFile(const std::string& path, const std::string& bytes) {
  std::ofstream file(path, std::ios::binary);
  file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace pam_test
