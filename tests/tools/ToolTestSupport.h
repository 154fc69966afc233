#ifndef PAM_TESTS_TOOLS_TOOLTESTSUPPORT_H
#define PAM_TESTS_TOOLS_TOOLTESTSUPPORT_H

// Helpers for running palvonauth against the scriptable test service.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "ChildProcess.h"
#include "support/TestService.h"

namespace pam_test {

/** Path of the tool under test, from the build. */
const char* ToolPath();

/** Runs the tool with a generous --wait and the given arguments. */
ChildResult RunTool(const std::vector<std::string>& args, const ChildOptions& options = {});

/** Checks a run's exit code and its whole standard output (--json output is one line). */
#define EXPECT_RUN(run, code, text)              \
  do {                                           \
    const ::pam_test::ChildResult& run_ = (run); \
    EXPECT_EQ(run_.exitCode, code) << run_.err;  \
    EXPECT_EQ(run_.out, text) << run_.err;       \
  } while (0)

/** Checks a run's exit code and that its standard error holds `part`. */
#define EXPECT_FAILS(run, code, part)                              \
  do {                                                             \
    const ::pam_test::ChildResult& run_ = (run);                   \
    EXPECT_EQ(run_.exitCode, code) << run_.err;                    \
    EXPECT_TRUE(::pam_test::Contains(run_.err, part)) << run_.err; \
  } while (0)

bool Contains(const std::string& text, const std::string& part);

/**
 * The raw text of the first string member `key` of a one-line JSON document
 * ("" when absent): for values that vary between runs, such as paths.
 */
std::string JsonString(const std::string& json, const std::string& key);

/**
 * Answers per message type through functions; types without one get the
 * default answer ("return" 0, and the version for the version query).
 */
class Answers {
 public:
  using Answer = std::function<Reply(const Request&)>;
  explicit Answers(TestService& service, uint32_t version = 2);
  void On(uint32_t type, Answer answer);
  /** A fixed reply for every request of the type. */
  void Always(uint32_t type, const Reply& reply);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

/** Types of the requests after start-up, without the version query and (un)initialisation. */
std::vector<uint32_t> OperationTypes(const TestService& service);

/** Values of a recorded request; a missing key fails the test. */
uint32_t UIntOf(const Request& request, const wchar_t* key);
std::wstring WideOf(const Request& request, const wchar_t* key);
std::string NarrowOf(const Request& request, const wchar_t* key);
std::vector<uint8_t> BufferOf(const Request& request, const wchar_t* key);
bool HasKey(const Request& request, const wchar_t* key);

/** The only request of a type; fails the test when there is not exactly one. */
Request OnlyRequest(const TestService& service, uint32_t type);

/** $HOME of the test process (and so of the tool). */
std::string Home();
std::string ReadWholeFile(const std::string& path);
void WriteWholeFile(const std::string& path, const std::string& bytes);

}  // namespace pam_test

#endif
