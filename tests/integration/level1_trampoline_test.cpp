// Trampoline URLs, the service's version text, the client window and the
// release of texts, through the exported functions.
#include <cstdint>

#include "api/SignatureTexts.h"
#include "level1_fixture.h"

using namespace PalvonAuthManagerSDK;
using l1test::CallTrace;
using l1test::ErrLine;
using l1test::ExpectRequest;
using l1test::MsgLine;
using pam_test::Reply;

namespace {

using TrampolineTest = l1test::Level1Test;

TEST_F(TrampolineTest, GenerateTrampolineUrlSendsTheMisspeltReferenceKeyOnlyWhenGiven) {
  Service().Script(msg::kGenerateTrampolineUrl,
                   {Reply::Return(0).Wide(L"trampolineUrl", L"https://tramp/?t=1").UInt(L"amAuthenticationResult", 4),
                    Reply::Return(0).Wide(L"trampolineUrl", L"")});
  AMChar* url = nullptr;
  AMAuthenticationResult authResult = 0;
  ASSERT_EQ(
      PalvonAuthManager_GenerateTrampolineUrl(10, L"https://svc/", 0xFFFFFFFFu, L"https://ref/", &url, &authResult),
      0u);
  EXPECT_STREQ(url, L"https://tramp/?t=1");
  EXPECT_EQ(authResult, 4u);
  EXPECT_EQ(PalvonAuthManager_FreeString(url), 0u);

  authResult = 0x99;
  ASSERT_EQ(PalvonAuthManager_GenerateTrampolineUrl(10, L"s", 0, nullptr, &url, &authResult), 0u);
  ASSERT_NE(url, nullptr);
  EXPECT_STREQ(url, L"");
  // Without "amAuthenticationResult" the caller's variable is untouched.
  EXPECT_EQ(authResult, 0x99u);
  EXPECT_EQ(PalvonAuthManager_FreeString(url), 0u);

  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 2u);
  ExpectRequest(sent[0], msg::kGenerateTrampolineUrl,
                {{L"AuthManagerHandle", 10}, {L"authenticationFlags", 0xFFFFFFFFu}},
                {{L"serviceUrl", L"https://svc/"}, {L"optionaleReferenceUrl", L"https://ref/"}});
  ExpectRequest(sent[1], msg::kGenerateTrampolineUrl, {{L"AuthManagerHandle", 10}, {L"authenticationFlags", 0}},
                {{L"serviceUrl", L"s"}});
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
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kGenerateTrampolineUrl, sig::l1::kGenerateTrampolineUrl, 65528,
                                        {ErrLine("Unexpected exception chaught.")}));
}

TEST_F(TrampolineTest, GetVersionCopiesTheVersionTextOnlyWhenWideAndSuccessful) {
  // The version under a narrow-string value is not the wide text asked for.
  Service().Script(msg::kGetVersion,
                   {Reply::Return(0).Wide(L"version", L"12.4.0.1 \u00df"), Reply::Return(0).Narrow(L"version", "1.0"),
                    Reply::Return(0xFFFAu).Wide(L"version", L"1.0")});
  AMChar* version = nullptr;
  ASSERT_EQ(PalvonAuthManager_GetVersion(0, &version), 0u);
  EXPECT_STREQ(version, L"12.4.0.1 \u00df");
  ExpectOnlyRequest(msg::kGetVersion, {{L"AuthManagerHandle", 0}}, {});
  EXPECT_EQ(PalvonAuthManager_FreeString(version), 0u);

  AMChar placeholder[] = L"keep";
  version = placeholder;
  EXPECT_EQ(PalvonAuthManager_GetVersion(1, &version), 0xFFF8u);
  EXPECT_EQ(PalvonAuthManager_GetVersion(1, &version), 0xFFFAu);
  EXPECT_EQ(version, placeholder);

  // Releasing null is accepted, traces only the entry line and sends nothing.
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_FreeString(nullptr), 0u);
  EXPECT_EQ(TraceSince(mark), std::vector<std::string>{MsgLine(sig::api::kFreeString)});
  EXPECT_EQ(Sent().size(), 3u);
}

TEST_F(TrampolineTest, SetClientWindowSendsFieldsInOrderAsThirtyTwoBitsAndLeavesNullTextsOut) {
  AMWindowInfo window = {-1, INT32_MIN, 1920, 0, L"Main window", L"0x3a00007", L"Client"};
  // Filled in memory order: the first field is the bottom coordinate.
  AMWindowInfo noTexts = {10, 20, 30, 40, nullptr, nullptr, nullptr};
  AMWindowInfo onlyId = {INT32_MAX, 0, -5, 7, nullptr, L"", nullptr};
  const size_t mark = TraceMark();
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(0xFFFFFFFFu, &window), 0u);
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kSetClientWindow, sig::l1::kSetClientWindow, 0));
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(2, &noTexts), 0u);
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(2, &onlyId), 0u);
  const auto sent = Sent();
  ASSERT_EQ(sent.size(), 3u);
  ExpectRequest(sent[0], msg::kSetClientWindow,
                {{L"AuthManagerHandle", 0xFFFFFFFFu},
                 {L"winbottom", 0xFFFFFFFFu},
                 {L"winleft", 0x80000000u},
                 {L"winwidth", 1920},
                 {L"winheight", 0}},
                {{L"winname", L"Main window"}, {L"winid", L"0x3a00007"}, {L"winamName", L"Client"}});
  ExpectRequest(
      sent[1], msg::kSetClientWindow,
      {{L"AuthManagerHandle", 2}, {L"winbottom", 10}, {L"winleft", 20}, {L"winwidth", 30}, {L"winheight", 40}}, {});
  ExpectRequest(sent[2], msg::kSetClientWindow,
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
  EXPECT_EQ(TraceSince(mark), CallTrace(sig::api::kSetClientWindow, sig::l1::kSetClientWindow, 65528,
                                        {ErrLine("Unexpected exception caught.")}));
  // The library stays usable.
  AMWindowInfo window = {1, 2, 3, 4, nullptr, nullptr, nullptr};
  EXPECT_EQ(PalvonAuthManager_SetClientWindow(2, &window), 0u);
  EXPECT_EQ(Sent().size(), 1u);
}

}  // namespace
