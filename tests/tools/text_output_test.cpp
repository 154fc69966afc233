// Unit tests of the tool's own building blocks: UTF-8 <-> UTF-32, JSON
// escaping, streamed base64, result-code names, the output printer.
#include <gtest/gtest.h>

#include <cstdio>
#include <string>

#include "Output.h"
#include "Progress.h"
#include "ResultCodes.h"
#include "Text.h"

using namespace palvonauth;

namespace {

std::string Bytes(std::initializer_list<int> values) {
  std::string out;
  for (int v : values) out += static_cast<char>(v);
  return out;
}

// Runs `body` on a memory stream and returns what it wrote.
template <typename Body>
std::string Written(Body body) {
  char* data = nullptr;
  size_t size = 0;
  std::FILE* stream = open_memstream(&data, &size);
  body(stream);
  std::fclose(stream);
  std::string text(data, size);
  std::free(data);
  return text;
}

// Runs `body` on an Output writing into a memory stream and returns the text.
template <typename Body>
std::string Render(Format format, Body body) {
  return Written([&](std::FILE* stream) {
    Output out(format, stream);
    body(out);
    EXPECT_TRUE(out.Finish());
  });
}

}  // namespace

TEST(Utf8Decoding, SequenceLengthBoundaries) {
  EXPECT_EQ(Utf8ToWide(Bytes({0x7F})), std::wstring(1, 0x7F));
  EXPECT_EQ(Utf8ToWide(Bytes({0xC2, 0x80})), std::wstring(1, 0x80));
  EXPECT_EQ(Utf8ToWide(Bytes({0xDF, 0xBF})), std::wstring(1, 0x7FF));
  EXPECT_EQ(Utf8ToWide(Bytes({0xE0, 0xA0, 0x80})), std::wstring(1, 0x800));
  EXPECT_EQ(Utf8ToWide(Bytes({0xEF, 0xBF, 0xBF})), std::wstring(1, 0xFFFF));
  EXPECT_EQ(Utf8ToWide(Bytes({0xF0, 0x90, 0x80, 0x80})), std::wstring(1, 0x10000));
  EXPECT_EQ(Utf8ToWide(Bytes({0xF4, 0x8F, 0xBF, 0xBF})), std::wstring(1, 0x10FFFF));
  EXPECT_EQ(Utf8ToWide("a\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80z"), L"a\u00E9\u20AC\U0001F600z");
  EXPECT_EQ(Utf8ToWide(std::string("a\0b", 3)), std::wstring(L"a\0b", 3));
}

TEST(Utf8Decoding, IllFormedSubsequencesBecomeOneReplacementEach) {
  const std::wstring r(1, 0xFFFD);
  // Overlong forms, encoded surrogates, values above U+10FFFF: the lead byte
  // alone is rejected, then each continuation byte on its own.
  EXPECT_EQ(Utf8ToWide(Bytes({0xC0, 0x80})), r + r);
  EXPECT_EQ(Utf8ToWide(Bytes({0xE0, 0x80, 0x80})), r + r + r);
  EXPECT_EQ(Utf8ToWide(Bytes({0xED, 0xA0, 0x80})), r + r + r);
  EXPECT_EQ(Utf8ToWide(Bytes({0xF4, 0x90, 0x80, 0x80})), r + r + r + r);
  EXPECT_EQ(Utf8ToWide(Bytes({0xF5, 0x41})), r + L"A");
  // A truncated sequence is one replacement, and the next character survives.
  EXPECT_EQ(Utf8ToWide(Bytes({0xE2, 0x82, 0x41})), r + L"A");
  EXPECT_EQ(Utf8ToWide(Bytes({0xF0, 0x9F, 0x98})), r);
  EXPECT_EQ(Utf8ToWide(Bytes({0x80, 0xBF})), r + r);
  EXPECT_EQ(Utf8ToWide(Bytes({0xFF})), r);
}

TEST(Utf8Encoding, ScalarValuesRoundTripAndOthersAreReplaced) {
  const std::wstring text = L"x\u00E9\u07FF\u0800\uFFFD\U0001F600\U0010FFFF";
  EXPECT_EQ(Utf8ToWide(WideToUtf8(text)), text);
  EXPECT_EQ(WideToUtf8(std::wstring(1, 0xD800)), "\xEF\xBF\xBD");
  EXPECT_EQ(WideToUtf8(std::wstring(1, 0xDFFF)), "\xEF\xBF\xBD");
  EXPECT_EQ(WideToUtf8(std::wstring(1, 0x110000)), "\xEF\xBF\xBD");
  EXPECT_EQ(WideToUtf8(std::wstring(1, static_cast<wchar_t>(-1))), "\xEF\xBF\xBD");
  EXPECT_EQ(WideToUtf8(static_cast<const wchar_t*>(nullptr)), "");
}

TEST(Utf8Validation, AcceptsOnlyWellFormedText) {
  EXPECT_TRUE(IsValidUtf8(""));
  EXPECT_TRUE(IsValidUtf8("plain \xC3\xA9 \xEF\xBF\xBD \xF4\x8F\xBF\xBF"));
  EXPECT_FALSE(IsValidUtf8("\xC3"));
  EXPECT_FALSE(IsValidUtf8("\xF0\x9F\x98"));
  EXPECT_FALSE(IsValidUtf8("\xED\xA0\x80"));
  EXPECT_FALSE(IsValidUtf8("\xC1\xBF"));
}

TEST(JsonEscaping, EscapesWhatJsonRequiresAndRepairsBadBytes) {
  EXPECT_EQ(JsonEscape("a\"b\\c/"), "a\\\"b\\\\c/");
  EXPECT_EQ(JsonEscape("\n\r\t\b\f"), "\\n\\r\\t\\b\\f");
  EXPECT_EQ(JsonEscape(std::string("\x01\x1F\x7F", 3)), "\\u0001\\u001f\x7F");
  EXPECT_EQ(JsonEscape(std::string("\0", 1)), "\\u0000");
  EXPECT_EQ(JsonEscape("\xC3\xA9\xF0\x9F\x98\x80"), "\xC3\xA9\xF0\x9F\x98\x80");
  EXPECT_EQ(JsonEscape("a\xFFz"), "a\xEF\xBF\xBDz");
}

TEST(Base64, StandardVectorsInEverySplit) {
  const std::pair<std::string, std::string> vectors[] = {{"", ""},
                                                         {"f", "Zg=="},
                                                         {"fo", "Zm8="},
                                                         {"foo", "Zm9v"},
                                                         {"foob", "Zm9vYg=="},
                                                         {"fooba", "Zm9vYmE="},
                                                         {"foobar", "Zm9vYmFy"},
                                                         {std::string("\0\xFF\xFE", 3), "AP/+"}};
  for (const auto& [plain, encoded] : vectors) {
    for (size_t piece = 1; piece <= plain.size() + 1; ++piece) {
      Base64Encoder encoder;
      std::string out;
      for (size_t i = 0; i < plain.size(); i += piece) {
        const std::string part = plain.substr(i, piece);
        out += encoder.Update(reinterpret_cast<const unsigned char*>(part.data()), part.size());
      }
      out += encoder.Finish();
      EXPECT_EQ(out, encoded) << "pieces of " << piece;
    }
  }
}

TEST(ResultCodes, EveryTableCodeHasItsNameAndMeaning) {
  const struct {
    uint32_t code;
    const char* name;
    const char* meaning;
  } table[] = {
      {0, "AM_RESULT_SUCCESS", "success"},
      {65535, "AM_RESULT_IPC_SETUP_FAILED", "IPC setup failed"},
      {65534, "AM_RESULT_ALREADY_INITIALIZED", "accepted at initialisation"},
      {65533, "AM_RESULT_NOT_INITIALIZED", "not initialised"},
      {65531, "AM_RESULT_BAD_PARAMETER", "bad parameter"},
      {65530, "AM_RESULT_INVALID_HANDLE", "invalid handle"},
      {65528, "AM_RESULT_COMMUNICATION_FAILURE", "communication failure"},
      {65525, "AM_RESULT_NOT_IMPLEMENTED", "not implemented / not available at this API level"},
      {65280, "AM_RESULT_SERVICE_BUSY", "busy"},
  };
  for (const auto& row : table) {
    EXPECT_STREQ(DescribeResult(row.code).name, row.name);
    EXPECT_STREQ(DescribeResult(row.code).meaning, row.meaning);
  }
  // Neighbours of table entries are the service's own codes.
  for (uint32_t code : {1u, 65532u, 65529u, 65536u, 65279u, 0xFFFFFFFFu}) {
    EXPECT_STREQ(DescribeResult(code).meaning, "service-defined code") << code;
  }
  EXPECT_EQ(FormatResult(65530), "65530 (0xFFFA, AM_RESULT_INVALID_HANDLE: invalid handle)");
  EXPECT_EQ(FormatResult(7), "7 (0x0007, SERVICE_DEFINED: service-defined code)");
  EXPECT_EQ(HexCode(0x12345), "0x12345");
}

TEST(OutputPrinter, JsonNestsRecordsListsAndStreamedStrings) {
  const std::string text = Render(Format::kJson, [](Output& out) {
    out.Number("a", 1);
    out.String("s", "q\"\n");
    out.Integer("neg", -5);
    out.BeginArray("list");
    out.String("", "x");
    out.BeginObject("");
    out.Bool("b", false);
    out.Null("n");
    out.EndObject();
    out.EndArray();
    out.BeginStreamedString("body");
    out.StreamChunk("ab");
    out.StreamChunk("\"c");
    out.EndStreamedString();
  });
  EXPECT_EQ(text,
            "{\"a\":1,\"s\":\"q\\\"\\n\",\"neg\":-5,\"list\":[\"x\",{\"b\":false,\"n\":null}],"
            "\"body\":\"ab\\\"c\"}\n");
}

TEST(OutputPrinter, JsonFinishClosesOpenRecordsAndWritesEmptyObject) {
  EXPECT_EQ(Render(Format::kJson, [](Output&) {}), "{}\n");
  const std::string text = Render(Format::kJson, [](Output& out) {
    out.BeginArray("calls");
    out.BeginObject("");
    out.String("call", "version");
    out.Unwind();
    out.BeginObject("error");
    out.Number("result", 65530);
    out.EndObject();
  });
  EXPECT_EQ(text, "{\"calls\":[{\"call\":\"version\"}],\"error\":{\"result\":65530}}\n");
}

TEST(OutputPrinter, TextIndentsRecordsAndMarksListEntries) {
  const std::string text = Render(Format::kText, [](Output& out) {
    out.Number("connection", 7);
    out.BeginArray("calls");
    out.BeginObject("");
    out.String("call", "version");
    out.String("version", "3.1");
    out.EndObject();
    out.BeginObject("");
    out.String("call", "server-type");
    out.BeginObject("gatewayInfo");
    out.Number("edition", 2);
    out.EndObject();
    out.EndObject();
    out.EndArray();
    out.BeginArray("headers");
    out.String("", "A: b");
    out.EndArray();
    out.Bool("done", true);
  });
  EXPECT_EQ(text,
            "connection: 7\n"
            "calls:\n"
            "  - call: version\n"
            "    version: 3.1\n"
            "  - call: server-type\n"
            "    gatewayInfo:\n"
            "      edition: 2\n"
            "headers:\n"
            "  A: b\n"
            "done: true\n");
}

TEST(ProgressText, ByteCountsSwitchUnitsAtPowersOf1024) {
  EXPECT_EQ(FormatBytes(0), "0 B");
  EXPECT_EQ(FormatBytes(1023), "1023 B");
  EXPECT_EQ(FormatBytes(1024), "1.0 KiB");
  EXPECT_EQ(FormatBytes(1536), "1.5 KiB");
  EXPECT_EQ(FormatBytes(1024u * 1024u), "1.0 MiB");
  EXPECT_EQ(FormatBytes(5ull * 1024u * 1024u * 1024u), "5.0 GiB");
}

TEST(ProgressText, NothingIsDrawnBelowTheThresholdOrWhenDisabled) {
  EXPECT_EQ(Written([](std::FILE* stream) {
              Progress quiet(stream, true, 100, 64);
              quiet.Update(63);
              quiet.Finish(63);
              Progress off(stream, false, 100, 1);
              off.Update(100);
              off.Finish(100);
            }),
            "");
  const std::string text = Written([](std::FILE* stream) {
    Progress shown(stream, true, 200, 64);
    shown.Update(64);
    shown.Finish(200);
  });
  EXPECT_NE(text.find("\rpalvonauth: received 64 B of 200 B (32%)"), std::string::npos) << text;
  EXPECT_NE(text.find("received 200 B of 200 B (100%)"), std::string::npos) << text;
  EXPECT_EQ(text.back(), '\n');
}
