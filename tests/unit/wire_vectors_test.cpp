// Byte-exact encodings of known messages. Expected images are assembled by
// hand (field by field, little-endian), never by the encoder under test. The
// encoder zero-fills the unused header bytes and the narrow-string padding, so
// the images do too.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "WireBytes.h"
#include "message/LinuxDictionary.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;
using pam_test::Bytes;
using pam_test::EncodingOf;
using pam_test::MessageBuilder;
using pam_test::ReadU32;

// A process id whose four bytes differ, so a byte-order mistake shows.
constexpr uint32_t kPid = 0x0A0B0C0Du;

LinuxDictionary Decode(const Bytes& bytes) {
  LinuxDictionary d;
  pam_test::DecodeInto(d, bytes);
  return d;
}

TEST(WireVectors, EmptyVersionQueryIs148Bytes) {
  LinuxDictionary request(MessageCommon(83, kPid));
  Bytes expected = {83, 0, 0, 0, 0x0D, 0x0C, 0x0B, 0x0A, 136, 0, 0, 0, 5};
  expected.resize(148, 0);  // the end record: type 5 followed by 135 zero bytes

  EXPECT_EQ(EncodingOf(request), expected);
  EXPECT_EQ(request.EncodedLength(), 148u);
  EXPECT_EQ(request.Header().bodyLength, 136u);

  const LinuxDictionary decoded = Decode(expected);
  EXPECT_EQ(decoded.Header().messageType, 83u);
  EXPECT_EQ(decoded.Header().processId, kPid);
  EXPECT_EQ(decoded.Header().bodyLength, 136u);
  EXPECT_EQ(pam_test::ValueCount(decoded), 0u);
}

TEST(WireVectors, ReplyWithOnlyReturnZeroHasBody276) {
  LinuxDictionary reply(MessageCommon(83, kPid));
  reply.SetUInt(L"return", 0);
  reply.Serialize(true);

  Bytes expected(12 + 140 + 136, 0);
  expected[0] = 83;
  expected[4] = 0x0D;
  expected[5] = 0x0C;
  expected[6] = 0x0B;
  expected[7] = 0x0A;
  expected[8] = 0x14;  // 276 = 0x0114
  expected[9] = 0x01;
  expected[12] = 2;  // unsigned-integer record
  const char key[] = "return";
  for (size_t i = 0; i < 6; ++i) expected[12 + 4 + 4 * i] = static_cast<uint8_t>(key[i]);
  expected[12 + 132] = 4;  // valueLength; the value 0 follows as four zero bytes
  expected[12 + 140] = 5;  // end record

  EXPECT_EQ(EncodingOf(reply), expected);
  EXPECT_EQ(reply.Header().bodyLength, 276u);

  unsigned int value = 99;
  const LinuxDictionary decoded = Decode(expected);
  ASSERT_TRUE(decoded.GetUInt(L"return", &value));
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(pam_test::ValueCount(decoded), 1u);
}

TEST(WireVectors, NarrowStringsArePaddedToFourBytes) {
  LinuxDictionary d(MessageCommon(7, kPid));
  d.SetNarrowString(L"a", "abcd");  // valueLength 5, 3 padding bytes
  d.SetNarrowString(L"b", "xyz");   // valueLength 4, no padding
  d.Serialize(true);
  const Bytes actual = EncodingOf(d);

  MessageBuilder expected(7, kPid);
  expected.Record(6, L"a", {'a', 'b', 'c', 'd', 0}, 3).Record(6, L"b", {'x', 'y', 'z', 0}).End();
  EXPECT_EQ(actual, expected.Finish());

  // Sizes and offsets for every length are checked independently of the builder below.
  const LinuxDictionary decoded = Decode(actual);
  EXPECT_EQ(decoded.NarrowStringValues(), d.NarrowStringValues());
}

TEST(WireVectors, NarrowPaddingForEveryLengthModFour) {
  for (size_t chars = 0; chars < 8; ++chars) {
    SCOPED_TRACE(chars);
    LinuxDictionary d(MessageCommon(7, kPid));
    d.SetNarrowString(L"s", std::string(chars, 'q'));
    d.Serialize(true);
    const size_t valueLength = chars + 1;
    const size_t padded = (valueLength + 3) / 4 * 4;
    const Bytes actual = EncodingOf(d);
    ASSERT_EQ(actual.size(), 12 + 136 + padded + 136);
    EXPECT_EQ(ReadU32(actual, 12 + 132), valueLength);
    EXPECT_EQ(actual[12 + 136 + padded], 5);
    EXPECT_EQ(Decode(actual).NarrowStringValues(), d.NarrowStringValues());
  }
}

TEST(WireVectors, RecordAfterByteValueIsUnaligned) {
  LinuxDictionary d(MessageCommon(9, kPid));
  const unsigned char blob[] = {1, 2, 3};
  d.SetBuffer(L"blob", blob, sizeof blob);
  d.SetByte(L"flag", 0x7F);
  d.Serialize(true);

  MessageBuilder expected(9, kPid);
  expected.Record(4, L"flag", {0x7F}).Record(1, L"blob", {1, 2, 3}).End();
  const Bytes image = expected.Finish();
  EXPECT_EQ(EncodingOf(d), image);
  EXPECT_EQ(expected.RecordStarts().at(1), 149u) << "the buffer record starts off 4-byte alignment";

  const LinuxDictionary decoded = Decode(image);
  uint8_t flag = 0;
  ASSERT_TRUE(decoded.GetByte(L"flag", &flag));
  EXPECT_EQ(flag, 0x7F);
  ASSERT_NE(decoded.FindBuffer(L"blob"), nullptr);
  EXPECT_EQ(decoded.FindBuffer(L"blob")->first, (std::vector<uint8_t>{1, 2, 3}));
  EXPECT_EQ(decoded.FindBuffer(L"blob")->second, 3u);
}

TEST(WireVectors, DecoderReadsIntegersAndTextAtUnalignedOffsets) {
  // Not an order the encoder produces, but the decoder takes records in any
  // order: every record after the byte value starts at an odd offset.
  MessageBuilder builder(9, kPid);
  builder.Record(4, L"b", {0xFE})
      .Record(2, L"u", pam_test::U32Value(0xA1B2C3D4u))
      .Record(3, L"i", pam_test::U32Value(0xFFFFFFFEu))
      .Record(0, L"w", pam_test::WideValue(L"h\u00e9llo"))
      .Record(6, L"n", pam_test::NarrowValue("odd"))
      .End();
  const LinuxDictionary decoded = Decode(builder.Finish());

  unsigned int u = 0;
  int32_t i = 0;
  ASSERT_TRUE(decoded.GetUInt(L"u", &u));
  ASSERT_TRUE(decoded.GetInt(L"i", &i));
  EXPECT_EQ(u, 0xA1B2C3D4u);
  EXPECT_EQ(i, -2);
  ASSERT_NE(decoded.GetString(L"w"), nullptr);
  EXPECT_EQ(std::wstring(decoded.GetString(L"w")), L"h\u00e9llo");
  ASSERT_NE(decoded.FindNarrowString(L"n"), nullptr);
  EXPECT_EQ(*decoded.FindNarrowString(L"n"), "odd");
  EXPECT_EQ(pam_test::ValueCount(decoded), 5u);
}

TEST(WireVectors, LongKeysAreCutTo31CharactersAndMayCollide) {
  const std::wstring key40 = L"abcdefghijklmnopqrstuvwxyz0123456789ABCD";
  ASSERT_EQ(key40.size(), 40u);
  const std::wstring key31 = key40.substr(0, 31);

  LinuxDictionary d(MessageCommon(11, kPid));
  d.SetUInt(key40.c_str(), 7);
  d.Serialize(true);

  MessageBuilder expected(11, kPid);
  expected.Record(2, key31, pam_test::U32Value(7)).End();
  const Bytes image = expected.Finish();
  EXPECT_EQ(EncodingOf(d), image);
  EXPECT_EQ(ReadU32(image, 12 + 4 + 4 * 31), 0u) << "the 32nd key character is always zero";

  const LinuxDictionary decoded = Decode(image);
  ASSERT_EQ(decoded.UIntValues().size(), 1u);
  EXPECT_EQ(decoded.UIntValues().begin()->first, key31);
  EXPECT_EQ(decoded.UIntValues().begin()->second, 7u);

  // Keys differing only after character 31 collide on the wire; the later record wins.
  LinuxDictionary twin(MessageCommon(11, kPid));
  twin.SetUInt((key31 + L"1").c_str(), 1);
  twin.SetUInt((key31 + L"2").c_str(), 2);
  twin.Serialize(true);
  const LinuxDictionary collided = Decode(EncodingOf(twin));
  ASSERT_EQ(collided.UIntValues().size(), 1u);
  EXPECT_EQ(collided.UIntValues().begin()->first, key31);
  EXPECT_EQ(collided.UIntValues().begin()->second, 2u);
}

TEST(WireVectors, RecordsFollowTypeOrderThenKeyOrder) {
  LinuxDictionary d(MessageCommon(259, kPid));
  // Inserted in an order that matches neither the type order nor key order.
  const unsigned char two[] = {0xB2, 0x22};
  const unsigned char one[] = {0xB1};
  d.SetBuffer(L"buf2", two, sizeof two);
  d.SetByte(L"y", 0x80);
  d.SetUInt(L"ub", 0xFFFFFFFFu);
  d.SetUInt(L"ua", 1);
  d.SetInt(L"i", -1);
  d.SetWideString(L"wb", L"B");
  d.SetWideString(L"w", L"");
  d.SetNarrowString(L"nab", "2");
  d.SetNarrowString(L"na", "1");
  d.SetBuffer(L"buf1", one, sizeof one);
  d.SetWideString(L"wa", L"A");
  d.Serialize(true);

  MessageBuilder expected(259, kPid);
  expected.Record(6, L"na", {'1', 0}, 2)
      .Record(6, L"nab", {'2', 0}, 2)  // a key that is a prefix of another comes first
      .Record(0, L"w", {0, 0, 0, 0})
      .Record(0, L"wa", {'A', 0, 0, 0, 0, 0, 0, 0})
      .Record(0, L"wb", {'B', 0, 0, 0, 0, 0, 0, 0})
      .Record(3, L"i", {0xFF, 0xFF, 0xFF, 0xFF})
      .Record(2, L"ua", {1, 0, 0, 0})
      .Record(2, L"ub", {0xFF, 0xFF, 0xFF, 0xFF})
      .Record(4, L"y", {0x80})
      .Record(1, L"buf1", {0xB1})
      .Record(1, L"buf2", {0xB2, 0x22})
      .End();
  const Bytes image = expected.Finish();
  EXPECT_EQ(EncodingOf(d), image);
  EXPECT_EQ(d.Header().bodyLength, image.size() - 12);

  const LinuxDictionary decoded = Decode(image);
  EXPECT_TRUE(pam_test::SameValues(decoded, d));
  EXPECT_EQ(decoded.Header().messageType, 259u);
}

}  // namespace
