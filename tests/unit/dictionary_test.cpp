// LinuxDictionary: setters and getters, the cached encoding, and decoding of
// well-formed messages.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "WireBytes.h"
#include "message/LinuxDictionary.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;
using pam_test::Bytes;
using pam_test::MessageBuilder;

constexpr uint32_t kPid = 4242;

LinuxDictionary Request() { return LinuxDictionary(MessageCommon(5, kPid)); }

LinuxDictionary RoundTrip(LinuxDictionary& source) {
  source.Serialize(true);
  LinuxDictionary decoded;
  pam_test::DecodeInto(decoded, source.EncodedBuffer(), source.EncodedLength());
  return decoded;
}

// ---------------------------------------------------------------------------
// Construction and envelope

TEST(DictionaryConstruction, DefaultReplyHasNoEncoding) {
  LinuxDictionary d;
  EXPECT_EQ(d.Header().messageType, 0xFFFFFFFFu);
  EXPECT_EQ(d.Header().processId, static_cast<uint32_t>(getpid()));
  EXPECT_EQ(d.Header().bodyLength, 12u);
  EXPECT_EQ(d.EncodedBuffer(), nullptr);
  EXPECT_EQ(d.EncodedLength(), 0u);
  EXPECT_FALSE(d.EncodingValid());

  d.Deserialize();  // nothing to decode: nothing changes
  EXPECT_EQ(d.Header().messageType, 0xFFFFFFFFu);
  EXPECT_EQ(d.Header().bodyLength, 12u);
  EXPECT_FALSE(d.EncodingValid());
}

TEST(DictionaryConstruction, CopiesAreDeep) {
  LinuxDictionary original = Request();
  original.SetWideString(L"k", L"one");
  const unsigned char data[] = {9, 8};
  original.SetBuffer(L"b", data, sizeof data);
  original.Serialize(true);

  LinuxDictionary copy(original);
  EXPECT_TRUE(pam_test::SameValues(copy, original));
  EXPECT_TRUE(copy.EncodingValid());
  EXPECT_NE(copy.EncodedBuffer(), original.EncodedBuffer());
  EXPECT_EQ(pam_test::EncodingOf(copy), pam_test::EncodingOf(original));

  copy.SetWideString(L"k", L"two");
  EXPECT_EQ(std::wstring(original.GetString(L"k")), L"one");
  EXPECT_TRUE(original.EncodingValid());

  LinuxDictionary assigned;
  assigned = original;
  EXPECT_TRUE(pam_test::SameValues(assigned, original));
  EXPECT_EQ(pam_test::EncodingOf(assigned), pam_test::EncodingOf(original));
}

// ---------------------------------------------------------------------------
// Setters and getters

TEST(DictionarySetters, SettingAnExistingKeyReplacesItAndMapsAreIndependent) {
  LinuxDictionary d = Request();
  d.SetUInt(L"k", 1);
  d.SetUInt(L"k", 2);
  d.SetWideString(L"s", L"first");
  d.SetWideString(L"s", L"second");
  const unsigned char a[] = {1, 2, 3};
  const unsigned char b[] = {4};
  d.SetBuffer(L"b", a, sizeof a);
  d.SetBuffer(L"b", b, sizeof b);

  unsigned int value = 0;
  ASSERT_TRUE(d.GetUInt(L"k", &value));
  EXPECT_EQ(value, 2u);
  EXPECT_EQ(d.UIntValues().size(), 1u);
  EXPECT_EQ(std::wstring(d.GetString(L"s")), L"second");
  EXPECT_EQ(d.WideStringValues().size(), 1u);
  ASSERT_EQ(d.BufferValues().size(), 1u);
  EXPECT_EQ(d.FindBuffer(L"b")->first, std::vector<uint8_t>{4});
  EXPECT_EQ(d.FindBuffer(L"b")->second, 1u);

  // One key in four maps: four values, all surviving a round trip.
  LinuxDictionary same = Request();
  same.SetUInt(L"k", 1);
  same.SetInt(L"k", -1);
  same.SetNarrowString(L"k", "n");
  same.SetWideString(L"k", L"w");
  EXPECT_EQ(pam_test::ValueCount(same), 4u);
  EXPECT_TRUE(pam_test::SameValues(RoundTrip(same), same));
}

TEST(DictionarySetters, NullKeysAndEmptyBuffersChangeNothing) {
  LinuxDictionary d = Request();
  const unsigned char data[] = {1};
  const uint8_t* cached = d.Serialize(true);
  const Bytes before = pam_test::EncodingOf(d);

  d.SetUInt(nullptr, 1);
  d.SetInt(nullptr, 1);
  d.SetByte(nullptr, 1);
  d.SetNarrowString(nullptr, "x");
  d.SetWideString(nullptr, L"x");
  d.SetBuffer(L"b", nullptr, 5);
  d.SetBuffer(L"b", data, 0);
  d.SetBuffer(nullptr, data, sizeof data);

  EXPECT_EQ(pam_test::ValueCount(d), 0u);
  EXPECT_TRUE(d.EncodingValid());
  EXPECT_EQ(d.Serialize(true), cached) << "the cached encoding is still served";
  EXPECT_EQ(pam_test::EncodingOf(d), before);
}

TEST(DictionaryGetters, ReadOnlyTheirOwnMapAndRejectNulls) {
  LinuxDictionary d = Request();
  d.SetNarrowString(L"narrow", "text");
  d.SetWideString(L"wide", L"text");
  d.SetWideString(L"empty", L"");
  d.SetUInt(L"present", 17);
  d.SetInt(L"signed", 17);

  EXPECT_EQ(d.GetString(L"narrow"), nullptr);
  EXPECT_EQ(d.GetString(L"absent"), nullptr);
  EXPECT_EQ(d.GetString(nullptr), nullptr);
  ASSERT_NE(d.GetString(L"wide"), nullptr);
  EXPECT_EQ(std::wstring(d.GetString(L"wide")), L"text");
  ASSERT_NE(d.GetString(L"empty"), nullptr);
  EXPECT_EQ(d.GetString(L"empty")[0], L'\0');

  unsigned int value = 3;
  EXPECT_FALSE(d.GetUInt(L"present", nullptr));
  EXPECT_FALSE(d.GetUInt(nullptr, &value));
  EXPECT_FALSE(d.GetUInt(L"absent", &value));
  EXPECT_FALSE(d.GetUInt(L"signed", &value)) << "only the unsigned map is consulted";
  EXPECT_EQ(value, 3u) << "a failed look-up leaves *out alone";
  ASSERT_TRUE(d.GetUInt(L"present", &value));
  EXPECT_EQ(value, 17u);
}

// ---------------------------------------------------------------------------
// Cached encoding

TEST(DictionaryCacheBehaviour, EverySetterInvalidatesAndSerializeTrueReencodes) {
  const unsigned char byte[] = {1};
  const std::pair<const char*, std::function<void(LinuxDictionary&)>> setters[] = {
      {"Int", [](LinuxDictionary& d) { d.SetInt(L"k", 1); }},
      {"UInt", [](LinuxDictionary& d) { d.SetUInt(L"k", 1); }},
      {"Byte", [](LinuxDictionary& d) { d.SetByte(L"k", 1); }},
      {"Narrow", [](LinuxDictionary& d) { d.SetNarrowString(L"k", "v"); }},
      {"Wide", [](LinuxDictionary& d) { d.SetWideString(L"k", L"v"); }},
      {"Buffer", [&byte](LinuxDictionary& d) { d.SetBuffer(L"k", byte, 1); }},
  };
  for (const auto& [name, apply] : setters) {
    SCOPED_TRACE(name);
    LinuxDictionary d = Request();
    const Bytes empty = pam_test::EncodingOf(d);
    ASSERT_TRUE(d.EncodingValid());

    apply(d);
    EXPECT_FALSE(d.EncodingValid());

    d.Serialize(true);
    EXPECT_TRUE(d.EncodingValid());
    EXPECT_GT(d.EncodedLength(), empty.size());
    EXPECT_EQ(d.Header().bodyLength, d.EncodedLength() - 12);
    EXPECT_TRUE(pam_test::SameValues(RoundTrip(d), d));
  }
}

TEST(DictionaryCacheBehaviour, SerializeTrueServesCacheAndFalseReencodes) {
  LinuxDictionary d = Request();
  d.SetUInt(L"k", 5);
  const uint8_t* first = d.Serialize(true);
  const Bytes image = pam_test::EncodingOf(d);
  EXPECT_EQ(d.Serialize(true), first);

  d.Serialize(false);
  EXPECT_TRUE(d.EncodingValid());
  EXPECT_EQ(pam_test::EncodingOf(d), image) << "a forced re-encoding gives the same bytes";
}

TEST(DictionaryCacheBehaviour, DeserializeLeavesTheValidFlagAlone) {
  LinuxDictionary valid = Request();
  valid.SetUInt(L"k", 1);
  valid.Serialize(true);
  valid.Deserialize();
  EXPECT_TRUE(valid.EncodingValid());
  EXPECT_EQ(valid.UIntValues().size(), 1u);

  LinuxDictionary adopted;
  pam_test::DecodeInto(adopted, pam_test::EncodingOf(valid));
  EXPECT_FALSE(adopted.EncodingValid());
  EXPECT_EQ(adopted.UIntValues().size(), 1u);
}

// ---------------------------------------------------------------------------
// Decoding

TEST(DictionaryDecoding, EveryValueTypeRoundTrips) {
  LinuxDictionary d(MessageCommon(0xFFFFFFFFu, 0xFFFFFFFEu));
  d.SetInt(L"intMin", INT32_MIN);
  d.SetInt(L"intMax", INT32_MAX);
  d.SetInt(L"zero", 0);
  d.SetUInt(L"uintMax", UINT32_MAX);
  d.SetUInt(L"zero", 0);
  d.SetByte(L"byte0", 0);
  d.SetByte(L"byteFF", 0xFF);
  d.SetNarrowString(L"empty", "");
  d.SetNarrowString(L"bytes", "\x01\x7f\x80\xff");
  d.SetWideString(L"empty", L"");
  d.SetWideString(L"unicode", L"\u00e9\u20ac\U0001F600");
  d.SetWideString(L"long", std::wstring(5000, L'z'));
  const std::vector<uint8_t> big(70000, 0xA5);
  d.SetBuffer(L"big", big.data(), static_cast<unsigned int>(big.size()));
  const unsigned char zeros[] = {0, 0, 0};
  d.SetBuffer(L"zeros", zeros, sizeof zeros);
  d.SetUInt(L"", 77);  // the empty key is a key like any other

  const LinuxDictionary decoded = RoundTrip(d);
  EXPECT_TRUE(pam_test::SameValues(decoded, d));
  EXPECT_EQ(decoded.Header().messageType, 0xFFFFFFFFu);
  EXPECT_EQ(decoded.Header().processId, 0xFFFFFFFEu);
  EXPECT_EQ(decoded.Header().bodyLength, d.EncodedLength() - 12);
  EXPECT_EQ(decoded.FindBuffer(L"big")->second, 70000u);
}

TEST(DictionaryDecoding, EmbeddedZerosCutStrings) {
  LinuxDictionary d = Request();
  d.SetNarrowString(L"n", std::string("ab\0cd", 5));
  d.SetWideString(L"w", std::wstring(L"ab\0cd", 5));
  d.SetNarrowString(L"z", "after");  // must still be found behind the cut strings

  const LinuxDictionary decoded = RoundTrip(d);
  EXPECT_EQ(*decoded.FindNarrowString(L"n"), "ab");
  EXPECT_EQ(std::wstring(decoded.GetString(L"w")), L"ab");
  EXPECT_EQ(*decoded.FindNarrowString(L"z"), "after");
}

TEST(DictionaryDecoding, RepeatedKeyKeepsTheLaterValue) {
  MessageBuilder m(2, kPid);
  m.Record(2, L"k", pam_test::U32Value(1))
      .Record(0, L"s", pam_test::WideValue(L"old"))
      .Record(2, L"k", pam_test::U32Value(2))
      .Record(0, L"s", pam_test::WideValue(L"new"))
      .End();
  LinuxDictionary d;
  pam_test::DecodeInto(d, m.Finish());

  unsigned int value = 0;
  ASSERT_TRUE(d.GetUInt(L"k", &value));
  EXPECT_EQ(value, 2u);
  EXPECT_EQ(std::wstring(d.GetString(L"s")), L"new");
  EXPECT_EQ(pam_test::ValueCount(d), 2u);
}

TEST(DictionaryDecoding, EndRecordOrUnknownTypeStopsAndKeepsEarlierValues) {
  // -1 stands for the end record, with bytes behind it.
  for (int type : {-1, 7, 8, 0x80, 0xFF}) {
    SCOPED_TRACE(type);
    MessageBuilder m(2, kPid);
    m.Record(2, L"before", pam_test::U32Value(1));
    type < 0 ? m.End() : m.Record(static_cast<uint8_t>(type), L"odd", pam_test::U32Value(2));
    m.Record(2, L"after", pam_test::U32Value(3)).End();
    LinuxDictionary d;
    pam_test::DecodeInto(d, m.Finish());
    EXPECT_EQ(d.UIntValues().size(), 1u);
    EXPECT_EQ(d.UIntValues().count(L"before"), 1u);
  }
}

TEST(DictionaryDecoding, FixedWidthValuesIgnoreValueLengthButAdvanceByIt) {
  // valueLength 8 for an unsigned value: 4 bytes are read, 8 are skipped.
  Bytes value = pam_test::U32Value(0x01020304u);
  pam_test::AppendU32(value, 0xDEADBEEFu);
  MessageBuilder m(2, kPid);
  m.Record(2, L"u", value).Record(3, L"i", pam_test::U32Value(5)).End();
  LinuxDictionary d;
  pam_test::DecodeInto(d, m.Finish());

  unsigned int u = 0;
  int32_t i = 0;
  ASSERT_TRUE(d.GetUInt(L"u", &u));
  ASSERT_TRUE(d.GetInt(L"i", &i));
  EXPECT_EQ(u, 0x01020304u);
  EXPECT_EQ(i, 5);
}

TEST(DictionaryDecoding, DecodingTwiceGivesTheSameMaps) {
  LinuxDictionary source = Request();
  source.SetUInt(L"return", 0);
  source.SetWideString(L"version", L"1.2.3");
  source.SetByte(L"b", 1);
  source.Serialize(true);

  LinuxDictionary d;
  d.SetUInt(L"stale", 1);  // values present before decoding are dropped
  pam_test::DecodeInto(d, pam_test::EncodingOf(source));
  const LinuxDictionary first = d;
  d.Deserialize();

  EXPECT_TRUE(pam_test::SameValues(d, first));
  EXPECT_TRUE(pam_test::SameValues(d, source));
  EXPECT_EQ(d.UIntValues().count(L"stale"), 0u);
}

}  // namespace
