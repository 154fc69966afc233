// FormatString / FormatStringV: wide printf-style formatting into at most
// 1,023 characters.
#include <gtest/gtest.h>

#include <cstdarg>
#include <string>

#include "util/FormatString.h"

namespace {

using PalvonAuthManagerSDK::FormatString;
using PalvonAuthManagerSDK::FormatStringV;

std::wstring ThroughV(const wchar_t* format, ...) {
  va_list args;
  va_start(args, format);
  std::wstring text = FormatStringV(format, args);
  va_end(args);
  return text;
}

TEST(FormatString, Conversions) {
  EXPECT_EQ(FormatString(L"%ls|%s|%u|%d", L"wide", "narrow", 4294967295u, -7), L"wide|narrow|4294967295|-7");
  EXPECT_EQ(FormatString(L"%ls", L"\u00e9\u20ac\U0001F600"), L"\u00e9\u20ac\U0001F600");
  EXPECT_EQ(FormatString(L"no conversions"), L"no conversions");
  EXPECT_EQ(FormatString(L""), L"");
  EXPECT_EQ(ThroughV(L"%d-%ls", 12, L"v"), L"12-v");
}

TEST(FormatString, NullFormatGivesEmptyText) {
  EXPECT_EQ(FormatString(nullptr), L"");
  EXPECT_EQ(ThroughV(nullptr), L"");
}

TEST(FormatString, LengthLimitIs1023Characters) {
  ASSERT_EQ(PalvonAuthManagerSDK::kMaxFormattedChars, 1023u);
  const std::wstring fits(1023, L'a');
  EXPECT_EQ(FormatString(L"%ls", fits.c_str()), fits);

  for (size_t length : {1024u, 1100u, 5000u}) {
    SCOPED_TRACE(length);
    const std::wstring text(length, L'b');
    EXPECT_EQ(FormatString(L"%ls", text.c_str()), std::wstring(1023, L'b'));
  }

  // Literal text before the conversion shortens the room left for it.
  const std::wstring longText(1100, L'c');
  const std::wstring cut = FormatString(L"ab%ls", longText.c_str());
  ASSERT_EQ(cut.size(), 1023u);
  EXPECT_EQ(cut.substr(0, 2), L"ab");
  EXPECT_EQ(cut.substr(2), std::wstring(1021, L'c'));
}

}  // namespace
