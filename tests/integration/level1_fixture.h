#ifndef PAM_TESTS_INTEGRATION_LEVEL1_FIXTURE_H
#define PAM_TESTS_INTEGRATION_LEVEL1_FIXTURE_H

// Shared frame of the API level 1 integration tests: a test service, an
// initialised library with tracing into $HOME/.RZPClient/logs, and helpers to
// look at what was sent and what was traced.

#include <dirent.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <map>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "PalvonAuthManager.h"
#include "PalvonAuthManagerTracer.h"
#include "message/MessageTypes.h"
#include "support/TempHome.h"
#include "support/TestService.h"

namespace l1test {

using UIntMap = std::map<std::wstring, uint32_t>;
using WideMap = std::map<std::wstring, std::wstring>;

inline std::string Home() {
  const char* home = std::getenv("HOME");
  return home != nullptr ? home : "";
}

inline std::string LogsFolder() { return Home() + "/.RZPClient/logs"; }

/** Names of the trace files in the logs folder. */
inline std::vector<std::string> TraceFiles() {
  std::vector<std::string> names;
  if (DIR* dir = opendir(LogsFolder().c_str())) {
    while (dirent* entry = readdir(dir)) {
      const std::string name = entry->d_name;
      if (name.rfind("AuthManagerSDK-", 0) == 0) names.push_back(name);
    }
    closedir(dir);
  }
  return names;
}

inline std::vector<std::string> ReadLines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  std::string line;
  while (std::getline(in, line)) lines.push_back(line);
  return lines;
}

/** Replaces every local time stamp (2024-05-17_09_03_59_+0200) by "<T>". */
inline std::string MaskTime(const std::string& line) {
  static const std::regex time(R"(\d{4}-\d{2}-\d{2}_\d{2}_\d{2}_\d{2}_[+-]\d{4})");
  return std::regex_replace(line, time, "<T>");
}

/** A masked trace line at message level. */
inline std::string MsgLine(const std::string& text) { return "<T>       : " + text; }
/** A masked trace line at error level. */
inline std::string ErrLine(const std::string& text) { return "<T> Err   : " + text; }

/**
 * Masked trace of one call: the export's and the operation's entry lines,
 * `middle`, and the operation's exit line with `result` (left out when negative).
 */
inline std::vector<std::string> CallTrace(const char* api, const char* op, long long result,
                                          const std::vector<std::string>& middle = {}) {
  std::vector<std::string> lines = {MsgLine(api), MsgLine(std::string("[+] ") + op)};
  lines.insert(lines.end(), middle.begin(), middle.end());
  if (result >= 0) lines.push_back(MsgLine(std::string("[-] ") + op + " : result = " + std::to_string(result)));
  return lines;
}

/** The request's envelope and all six value maps, compared exactly. */
inline void ExpectRequest(const pam_test::Request& request, uint32_t type, const UIntMap& uints, const WideMap& wides) {
  EXPECT_EQ(request.type, type);
  EXPECT_EQ(request.processId, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(request.message.UIntValues(), uints);
  EXPECT_EQ(request.message.WideStringValues(), wides);
  EXPECT_TRUE(request.message.IntValues().empty());
  EXPECT_TRUE(request.message.ByteValues().empty());
  EXPECT_TRUE(request.message.NarrowStringValues().empty());
  EXPECT_TRUE(request.message.BufferValues().empty());
}

class Level1Test : public ::testing::Test {
 protected:
  void SetUp() override {
    PalvonAuthManagerSDK::CTracer::s_tracingEnabled = true;
    (void)mkdir((Home() + "/.RZPClient").c_str(), 0700);
    pam_test::RemoveTree(LogsFolder());
    service_ = std::make_unique<pam_test::TestService>();
    ASSERT_EQ(PalvonAuthManagerSDK::PalvonAuthManager_Initialize(), 0u);
    initialised_ = true;
    baseline_ = service_->RequestCount();
    const auto files = TraceFiles();
    ASSERT_EQ(files.size(), 1u);
    tracePath_ = LogsFolder() + "/" + files[0];
  }

  void TearDown() override {
    if (initialised_) {
      EXPECT_EQ(Uninitialise(), 0u);
    }
    service_.reset();
    PalvonAuthManagerSDK::CTracer::s_tracingEnabled = false;
  }

  /** Ends the library's use; the fixture then does not do it again. */
  PalvonAuthManagerSDK::AMResult Uninitialise() {
    initialised_ = false;
    return PalvonAuthManagerSDK::PalvonAuthManager_Uninitialize();
  }

  pam_test::TestService& Service() { return *service_; }

  /** Requests received since initialisation. */
  std::vector<pam_test::Request> Sent() const {
    auto all = service_->Requests();
    return std::vector<pam_test::Request>(all.begin() + static_cast<std::ptrdiff_t>(baseline_), all.end());
  }

  /** Checks that exactly one request was sent since initialisation, and what it held. */
  void ExpectOnlyRequest(uint32_t type, const UIntMap& uints, const WideMap& wides) const {
    const auto sent = Sent();
    ASSERT_EQ(sent.size(), 1u);
    ExpectRequest(sent[0], type, uints, wides);
  }

  /** Number of trace lines so far; pass it to TraceSince(). */
  size_t TraceMark() const { return ReadLines(tracePath_).size(); }

  /** Trace lines written after `mark`, time stamps masked. */
  std::vector<std::string> TraceSince(size_t mark) const {
    const auto lines = ReadLines(tracePath_);
    std::vector<std::string> out;
    for (size_t i = mark; i < lines.size(); ++i) out.push_back(MaskTime(lines[i]));
    return out;
  }

  const std::string& TracePath() const { return tracePath_; }

 private:
  std::unique_ptr<pam_test::TestService> service_;
  size_t baseline_ = 0;
  bool initialised_ = false;
  std::string tracePath_;
};

}  // namespace l1test

#endif
