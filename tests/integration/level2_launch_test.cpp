// API level 2: hand-off of a remote-session launch file, through the
// exported function against the scriptable test service.
#include <string>
#include <vector>

#include "level2_support.h"

using namespace PalvonAuthManagerSDK;
using namespace l2test;
using Described = std::map<std::string, std::string>;

namespace {

class Level2Launch : public Level2Test {};

/** A null-terminated argument array over owned strings. */
class Args {
 public:
  explicit Args(std::vector<std::string> texts) : texts_(std::move(texts)) {
    for (auto& text : texts_) pointers_.push_back(text.data());
    pointers_.push_back(nullptr);
  }
  AMUTF8Char** Get() { return pointers_.data(); }

 private:
  std::vector<std::string> texts_;
  std::vector<AMUTF8Char*> pointers_;
};

TEST_F(Level2Launch, ArgumentsTravelAsNarrowStringsUnderTheirIndexAfterCountAndUrl) {
  service.Script(msg::kLaunchRZPFile, {Reply::Return(0).UInt(L"currentStatus", 4)});
  std::vector<std::string> texts;
  for (int i = 0; i < 11; ++i) texts.push_back("--option-" + std::to_string(i));
  Args none({});
  Args eleven(texts);
  Args one({"a"});
  AMUint status = 0;
  EXPECT_EQ(PalvonAuthManager_LaunchRZPFile("https://portal.example/launch.rzp", none.Get(), &status), 0u);
  EXPECT_EQ(status, 4u);
  ASSERT_EQ(PalvonAuthManager_LaunchRZPFile("u", eleven.Get(), &status), 0u);
  // A null URL is left out, an empty one is sent empty.
  ASSERT_EQ(PalvonAuthManager_LaunchRZPFile(nullptr, one.Get(), &status), 0u);
  ASSERT_EQ(PalvonAuthManager_LaunchRZPFile("", one.Get(), &status), 0u);

  const auto sent = service.RequestsOfType(msg::kLaunchRZPFile);
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[0].type, 85u);
  EXPECT_EQ(sent[0].processId, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(Describe(sent[0].message),
            (Described{{"NumberOfArgs", "uint:0"}, {"LaunchURL", "narrow:https://portal.example/launch.rzp"}}));
  Described expected = {{"NumberOfArgs", "uint:11"}, {"LaunchURL", "narrow:u"}};
  for (int i = 0; i < 11; ++i) expected["TrelkArg" + std::to_string(i)] = "narrow:" + texts[static_cast<size_t>(i)];
  EXPECT_EQ(Describe(sent[1].message), expected);
  EXPECT_EQ(Describe(sent[2].message), (Described{{"NumberOfArgs", "uint:1"}, {"TrelkArg0", "narrow:a"}}));
  EXPECT_EQ(Describe(sent[3].message),
            (Described{{"NumberOfArgs", "uint:1"}, {"LaunchURL", "narrow:"}, {"TrelkArg0", "narrow:a"}}));
  // Present and empty on the wire: one terminating byte.
  const RawRecord url = RawRecordOf(sent[3].raw, L"LaunchURL");
  EXPECT_EQ(url.type, 6u);
  EXPECT_EQ(url.value, std::vector<uint8_t>{0});
}

TEST_F(Level2Launch, NonAsciiArgumentsArriveByteForByte) {
  // UTF-8 of several lengths, and bytes that are not valid UTF-8 at all.
  const std::string accented = "caf\xc3\xa9 \xe2\x9c\x93";
  const std::string astral = "\xf0\x9d\x84\x9e";
  const std::string invalid = "\xff\xfe\x80";
  Args args({accented, astral, invalid});
  AMUint status = 0;
  const std::string url = "file:///tmp/\xe6\x97\xa5\xe6\x9c\xac.rzp";
  ASSERT_EQ(PalvonAuthManager_LaunchRZPFile(url.c_str(), args.Get(), &status), 0u);
  const Request request = Only(msg::kLaunchRZPFile);
  const std::pair<const wchar_t*, std::string> expected[] = {
      {L"LaunchURL", url}, {L"TrelkArg0", accented}, {L"TrelkArg1", astral}, {L"TrelkArg2", invalid}};
  for (const auto& [key, text] : expected) {
    SCOPED_TRACE(pam_test::Utf8(key));
    const RawRecord record = RawRecordOf(request.raw, key);
    EXPECT_EQ(record.type, 6u);  // narrow string, never widened
    std::vector<uint8_t> bytes(text.begin(), text.end());
    bytes.push_back(0);
    EXPECT_EQ(record.value, bytes);
  }
}

TEST_F(Level2Launch, StatusIsReadOnlyOnSuccessWithTheKeyAndBusyRepeatsTheRequest) {
  service.Script(msg::kLaunchRZPFile, {Reply::Return(0), Reply::Return(33).UInt(L"currentStatus", 8), Reply::Busy(),
                                       Reply::Return(0).UInt(L"currentStatus", 2)});
  Args args({"x", "y"});
  AMUint status = 1234;
  EXPECT_EQ(PalvonAuthManager_LaunchRZPFile("u", args.Get(), &status), 0u);
  EXPECT_EQ(PalvonAuthManager_LaunchRZPFile("u", args.Get(), &status), 33u);
  EXPECT_EQ(status, 1234u);
  EXPECT_EQ(PalvonAuthManager_LaunchRZPFile("u", args.Get(), &status), 0u);
  EXPECT_EQ(status, 2u);
  const auto sent = service.RequestsOfType(msg::kLaunchRZPFile);
  ASSERT_EQ(sent.size(), 4u);
  EXPECT_EQ(sent[2].raw, sent[3].raw);
  // No handle is involved, so 65530 would have no message of its own.
  EXPECT_EQ(CountTraceStartingWith("Http request handle"), 0u);
}

TEST_F(Level2Launch, NullArgumentsAreRejectedBeforeSending) {
  Args args({"x"});
  EXPECT_EQ(PalvonAuthManager_LaunchRZPFile("u", nullptr, nullptr), rc::kBadParameter);
  EXPECT_EQ(PalvonAuthManager_LaunchRZPFile("u", args.Get(), nullptr), rc::kBadParameter);
  AMUint status = 6;
  EXPECT_EQ(PalvonAuthManager_LaunchRZPFile("u", nullptr, &status), rc::kBadParameter);
  EXPECT_EQ(status, 6u);
  EXPECT_EQ(SentSinceSetUp(), 0u);
  // Both null: only the first check speaks.
  EXPECT_EQ(CountTrace(Level::kError, "LaunchRZPFile: failed because args is NULL!"), 2u);
  EXPECT_EQ(CountTrace(Level::kError, "LaunchRZPFile: failed because status is NULL!"), 1u);
}

}  // namespace
