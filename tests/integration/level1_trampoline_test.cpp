// Trampoline URLs, the service's version text, the client window and the
// release of texts, through the exported functions.
#include <cstdint>

#include "api/SignatureTexts.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::ErrLine;
using l1test::ExpectRequest;
using l1test::MsgLine;
using pam_test::Reply;

namespace {

using TrampolineTest = l1test::Level1Test;

TEST_F(TrampolineTest, GenerateTrampolineUrlSendsTheMisspeltReferenceKey) {
  Service().Script(msg::kGenerateTrampolineUrl,
                   {Reply::Return(0).Wide(L"trampolineUrl", L"https://tramp/?t=1").UInt(L"amAuthenticationResult", 4)});
  AMChar* url = nullptr;
  AMAuthenticationResult authResult = 0;
  ASSERT_EQ(
      PalvonAuthManager_GenerateTrampolineUrl(10, L"https://svc/", 0xFFFFFFFFu, L"https://ref/", &url, &authResult),
      0u);
  ASSERT_NE(url, nullptr);
  EXPECT_STREQ(url, L"https://tramp/?t=1");
  EXPECT_EQ(authResult, 4u);
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 1u);
  ExpectRequest(sent[0], msg::kGenerateTrampolineUrl,
                {{L"AuthManagerHandle", 10}, {L"authenticationFlags", 0xFFFFFFFFu}},
                {{L"serviceUrl", L"https://svc/"}, {L"optionaleReferenceUrl", L"https://ref/"}});
  EXPECT_EQ(PalvonAuthManager_FreeString(url), 0u);
}

TEST_F(TrampolineTest, GenerateTrampolineUrlWithoutReferenceLeavesTheKeyOut) {
  Service().Script(msg::kGenerateTrampolineUrl, {Reply::Return(0).Wide(L"trampolineUrl", L"")});
  AMChar* url = nullptr;
  AMAuthenticationResult authResult = 0x99;
  ASSERT_EQ(PalvonAuthManager_GenerateTrampolineUrl(10, L"s", 0, nullptr, &url, &authResult), 0u);
  ASSERT_NE(url, nullptr);
  EXPECT_STREQ(url, L"");
  // Without "amAuthenticationResult" the caller's variable is untouched.
  EXPECT_EQ(authResult, 0x99u);
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 1u);
  ExpectRequest(sent[0], msg::kGenerateTrampolineUrl, {{L"AuthManagerHandle", 10}, {L"authenticationFlags", 0}},
                {{L"serviceUrl", L"s"}});
  EXPECT_EQ(PalvonAuthManager_FreeString(url), 0u);
}

TEST_F(TrampolineTest, GenerateTrampolineUrlWithoutUrlTouchesNoOutput) {
  Service().Script(msg::kGenerateTrampolineUrl, {Reply::Return(0).UInt(L"amAuthenticationResult", 4)});
  AMChar placeholder[] = L"keep";
  AMChar* url = placeholder;
  AMAuthenticationResult authResult = 0x99;
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_GenerateTrampolineUrl(10, L"s", 0, nullptr, &url, &authResult), 0xFFF8u);
  EXPECT_EQ(url, placeholder);
  EXPECT_EQ(authResult, 0x99u);
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kGenerateTrampolineUrl),
      MsgLine(std::string("[+] ") + sig::l1::kGenerateTrampolineUrl),
      ErrLine("Unexpected exception chaught."),
      MsgLine(std::string("[-] ") + sig::l1::kGenerateTrampolineUrl + " : result = 65528"),
  };
  EXPECT_EQ(TraceSince(mark), expected);
}

TEST_F(TrampolineTest, GetVersionCopiesTheVersionText) {
  Service().Script(msg::kGetVersion, {Reply::Return(0).Wide(L"version", L"12.4.0.1 \u00df")});
  AMChar* version = nullptr;
  ASSERT_EQ(PalvonAuthManager_GetVersion(0, &version), 0u);
  ASSERT_NE(version, nullptr);
  EXPECT_STREQ(version, L"12.4.0.1 \u00df");
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 1u);
  ExpectRequest(sent[0], msg::kGetVersion, {{L"AuthManagerHandle", 0}}, {});
  EXPECT_EQ(PalvonAuthManager_FreeString(version), 0u);
}

TEST_F(TrampolineTest, GetVersionWithoutTextOrOnFailureLeavesTheOutPointer) {
  AMChar placeholder[] = L"keep";
  AMChar* version = placeholder;
  // The version under a narrow-string value is not the wide text asked for.
  Service().Script(msg::kGetVersion, {Reply::Return(0).Narrow(L"version", "1.0")});
  EXPECT_EQ(PalvonAuthManager_GetVersion(1, &version), 0xFFF8u);
  EXPECT_EQ(version, placeholder);
  Service().Script(msg::kGetVersion, {Reply::Return(0xFFFAu).Wide(L"version", L"1.0")});
  EXPECT_EQ(PalvonAuthManager_GetVersion(1, &version), 0xFFFAu);
  EXPECT_EQ(version, placeholder);
}

TEST_F(TrampolineTest, FreeStringAcceptsNullAndSendsNothing) {
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_FreeString(nullptr), 0u);
  EXPECT_EQ(TraceSince(mark), std::vector<std::string>{MsgLine(sig::api::kFreeString)});
  EXPECT_TRUE(Sent().empty());
}

TEST_F(TrampolineTest, SetClientWindowSendsNumbersAsTheirThirtyTwoBits) {
  AMWindowInfo window = {-1, INT32_MIN, 1920, 0, L"Main window", L"0x3a00007", L"Client"};
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(0xFFFFFFFFu, &window), 0u);
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 1u);
  ExpectRequest(sent[0], msg::kSetClientWindow,
                {{L"AuthManagerHandle", 0xFFFFFFFFu},
                 {L"winbottom", 0xFFFFFFFFu},
                 {L"winleft", 0x80000000u},
                 {L"winwidth", 1920},
                 {L"winheight", 0}},
                {{L"winname", L"Main window"}, {L"winid", L"0x3a00007"}, {L"winamName", L"Client"}});
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kSetClientWindow),
      MsgLine(std::string("[+] ") + sig::l1::kSetClientWindow),
      MsgLine(std::string("[-] ") + sig::l1::kSetClientWindow + " : result = 0"),
  };
  EXPECT_EQ(TraceSince(mark), expected);
}

TEST_F(TrampolineTest, SetClientWindowKeepsTheFieldOrderAndLeavesNullTextsOut) {
  // Filled in memory order: the first field is the bottom coordinate.
  AMWindowInfo noTexts = {10, 20, 30, 40, nullptr, nullptr, nullptr};
  AMWindowInfo onlyId = {INT32_MAX, 0, -5, 7, nullptr, L"", nullptr};
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(2, &noTexts), 0u);
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(2, &onlyId), 0u);
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 2u);
  ExpectRequest(
      sent[0], msg::kSetClientWindow,
      {{L"AuthManagerHandle", 2}, {L"winbottom", 10}, {L"winleft", 20}, {L"winwidth", 30}, {L"winheight", 40}}, {});
  ExpectRequest(sent[1], msg::kSetClientWindow,
                {{L"AuthManagerHandle", 2},
                 {L"winbottom", 0x7FFFFFFFu},
                 {L"winleft", 0},
                 {L"winwidth", 0xFFFFFFFBu},
                 {L"winheight", 7}},
                {{L"winid", L""}});
}

TEST_F(TrampolineTest, SetClientWindowWithoutRecordFailsWithTheCorrectlySpeltMessage) {
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(2, nullptr), 0xFFF8u);
  EXPECT_TRUE(Sent().empty());
  const std::vector<std::string> expected = {
      MsgLine(sig::api::kSetClientWindow),
      MsgLine(std::string("[+] ") + sig::l1::kSetClientWindow),
      ErrLine("Unexpected exception caught."),
      MsgLine(std::string("[-] ") + sig::l1::kSetClientWindow + " : result = 65528"),
  };
  EXPECT_EQ(TraceSince(mark), expected);
  // The library stays usable.
  AMWindowInfo window = {1, 2, 3, 4, nullptr, nullptr, nullptr};
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(2, &window), 0u);
  EXPECT_EQ(Sent().size(), 1u);
}

}  // namespace
