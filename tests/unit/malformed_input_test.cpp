// Decoding of truncated, corrupted and otherwise malformed messages. Every
// message is decoded from an allocation of exactly its size, so under the
// address sanitizer any read past the end fails the test.
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "WireBytes.h"
#include "message/LinuxDictionary.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;
using pam_test::Bytes;
using pam_test::MessageBuilder;
using pam_test::ReadU32;

constexpr uint32_t kPid = 0x00C0FFEEu;

struct Sample {
  std::string name;
  Bytes bytes;
  std::vector<size_t> starts;  // where each value record starts
};

Sample Build(const std::string& name, MessageBuilder builder) {
  builder.End();
  return Sample{name, builder.Finish(), builder.RecordStarts()};
}

std::vector<Sample> Samples() {
  using pam_test::U32Value;
  using pam_test::WideValue;
  return {Build("empty", MessageBuilder(83, kPid)),
          Build("reply",
                MessageBuilder(84, kPid).Record(2, L"return", U32Value(0)).Record(0, L"version", WideValue(L"3.1.0"))),
          Build("request", MessageBuilder(31, kPid)
                               .Record(0, L"connectionName", WideValue(L"main"))
                               .Record(0, L"serviceUrl", WideValue(L"https://apps.example/"))
                               .Record(2, L"AuthManagerHandle", U32Value(7))
                               .Record(2, L"authenticationFlags", U32Value(0x10))),
          Build("mixed", MessageBuilder(260, kPid)
                             .Record(6, L"n5", pam_test::NarrowValue("abcd"), 3)
                             .Record(6, L"n4", pam_test::NarrowValue("xyz"))
                             .Record(0, L"w", WideValue(L"\u00e9\u20ac"))
                             .Record(3, L"i", U32Value(0x80000000u))
                             .Record(2, L"u", U32Value(1))
                             .Record(4, L"b1", {0x11})
                             .Record(4, L"b2", {0x22})
                             .Record(1, L"buf", {1, 0, 2, 0, 3})
                             .Record(1, std::wstring(31, L'K'), {0xFF}))};
}

template <typename Map>
bool IsSubset(const Map& part, const Map& whole) {
  for (const auto& [key, value] : part) {
    auto it = whole.find(key);
    if (it == whole.end() || !(it->second == value)) return false;
  }
  return true;
}

bool IsSubset(const LinuxDictionary& part, const LinuxDictionary& whole) {
  return IsSubset(part.IntValues(), whole.IntValues()) && IsSubset(part.UIntValues(), whole.UIntValues()) &&
         IsSubset(part.ByteValues(), whole.ByteValues()) &&
         IsSubset(part.NarrowStringValues(), whole.NarrowStringValues()) &&
         IsSubset(part.WideStringValues(), whole.WideStringValues()) &&
         IsSubset(part.BufferValues(), whole.BufferValues());
}

// Properties every decoded dictionary has, whatever the input: keys fit the
// key field, strings hold no terminator, buffer counts match, and encoding the
// result and decoding that again reproduces it.
void ExpectWellFormed(LinuxDictionary& d) {
  for (const auto& e : d.IntValues()) EXPECT_LE(e.first.size(), 31u);
  for (const auto& e : d.UIntValues()) EXPECT_LE(e.first.size(), 31u);
  for (const auto& e : d.ByteValues()) EXPECT_LE(e.first.size(), 31u);
  for (const auto& e : d.NarrowStringValues()) {
    EXPECT_TRUE(e.first.size() <= 31 && e.second.find('\0') == e.second.npos);
  }
  for (const auto& e : d.WideStringValues()) EXPECT_TRUE(e.first.size() <= 31 && e.second.find(L'\0') == e.second.npos);
  for (const auto& e : d.BufferValues()) EXPECT_TRUE(e.first.size() <= 31 && e.second.first.size() == e.second.second);

  d.Serialize(true);
  LinuxDictionary again;
  pam_test::DecodeInto(again, d.EncodedBuffer(), d.EncodedLength());
  EXPECT_TRUE(pam_test::SameValues(again, d));
}

TEST(MalformedInput, EveryTruncationDecodesTheCompleteRecords) {
  for (const Sample& sample : Samples()) {
    LinuxDictionary whole;
    pam_test::DecodeInto(whole, sample.bytes);
    ASSERT_EQ(pam_test::ValueCount(whole), sample.starts.size()) << sample.name;

    for (size_t length = 0; length <= sample.bytes.size(); ++length) {
      SCOPED_TRACE(sample.name + " cut to " + std::to_string(length));
      // A record is complete once its header and its value bytes are present;
      // narrow-string padding is not needed to take the value.
      size_t complete = 0;
      for (size_t start : sample.starts) {
        if (start + 136 + ReadU32(sample.bytes, start + 132) <= length) ++complete;
      }

      LinuxDictionary d;
      pam_test::DecodeInto(d, sample.bytes.data(), length);
      EXPECT_EQ(pam_test::ValueCount(d), complete);
      EXPECT_TRUE(IsSubset(d, whole));
      if (length >= 12) {
        EXPECT_EQ(d.Header().messageType, whole.Header().messageType);
        EXPECT_EQ(d.Header().processId, kPid);
      } else {
        EXPECT_EQ(d.Header().messageType, 0xFFFFFFFFu) << "no envelope to read";
      }
    }
  }
}

// Mutations of valid messages, driven by a fixed-state generator so every run
// checks the same inputs.
Bytes Corrupt(const Sample& sample, std::mt19937& rng) {
  Bytes bytes = sample.bytes;
  auto pick = [&rng](size_t bound) { return std::uniform_int_distribution<size_t>(0, bound - 1)(rng); };
  static const uint32_t kInteresting[] = {0, 1, 3, 4, 5, 135, 136, 137, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu};

  const size_t mutations = 1 + pick(6);
  for (size_t m = 0; m < mutations && !bytes.empty(); ++m) {
    switch (pick(7)) {
      case 0:  // any byte
        bytes[pick(bytes.size())] = static_cast<uint8_t>(pick(256));
        break;
      case 1:  // one bit
        bytes[pick(bytes.size())] ^= static_cast<uint8_t>(1u << pick(8));
        break;
      case 2:  // a record's type byte
        if (!sample.starts.empty()) bytes[sample.starts[pick(sample.starts.size())]] = static_cast<uint8_t>(pick(9));
        break;
      case 3:  // a record's valueLength
        if (!sample.starts.empty()) {
          const size_t at = sample.starts[pick(sample.starts.size())] + 132;
          const uint32_t v = kInteresting[pick(sizeof kInteresting / sizeof kInteresting[0])];
          for (size_t i = 0; i < 4; ++i) bytes[at + i] = static_cast<uint8_t>(v >> (8 * i));
        }
        break;
      case 4:  // a key or value character made non-zero
        bytes[pick(bytes.size())] = static_cast<uint8_t>(1 + pick(255));
        break;
      case 5:  // truncation
        bytes.resize(pick(bytes.size() + 1));
        break;
      default:  // trailing garbage
        for (size_t n = pick(300); n > 0; --n) bytes.push_back(static_cast<uint8_t>(pick(256)));
        break;
    }
  }
  return bytes;
}

TEST(MalformedInput, RandomCorruptionsStayInBoundsAndWellFormed) {
  const std::vector<Sample> samples = Samples();
  std::mt19937 rng(20240517u);
  for (int iteration = 0; iteration < 6000; ++iteration) {
    const Sample& sample = samples[static_cast<size_t>(iteration) % samples.size()];
    const Bytes bytes = Corrupt(sample, rng);
    SCOPED_TRACE(sample.name + " corruption #" + std::to_string(iteration));

    LinuxDictionary d;
    pam_test::DecodeInto(d, bytes);
    // Every decoded value needs a 136-byte header of its own inside the message.
    const size_t fit = bytes.size() < 12 ? 0 : (bytes.size() - 12) / 136;
    ASSERT_LE(pam_test::ValueCount(d), fit);
    ExpectWellFormed(d);
    if (HasFailure()) return;
  }
}

// Records that end decoding: each follows a valid "before" record, which is
// all that survives (a record behind the broken one is never read).
TEST(MalformedInput, BrokenRecordEndsDecodingAndKeepsEarlierValues) {
  Bytes unterminated;
  pam_test::AppendU32(unterminated, 'a');
  pam_test::AppendU32(unterminated, 'b');
  auto after = [](MessageBuilder& m) { m.Record(2, L"after", pam_test::U32Value(2)).End(); };
  auto pastTheEnd = [](uint32_t length) {
    return [length](MessageBuilder& m) { m.RawRecord(0, L"w", length, pam_test::WideValue(L"x")); };
  };
  const struct {
    const char* name;
    std::function<void(MessageBuilder&)> add;
  } cases[] = {
      // No end record; 8 value bytes present.
      {"value past the end (9)", pastTheEnd(9)},
      {"value past the end (1000)", pastTheEnd(1000)},
      {"value past the end (0x7FFFFFFF)", pastTheEnd(0x7FFFFFFFu)},
      {"value past the end (0xFFFFFFFF)", pastTheEnd(0xFFFFFFFFu)},
      {"key of 32 characters without terminator",
       [&](MessageBuilder& m) { after(m.Record(2, std::wstring(32, L'k'), pam_test::U32Value(2))); }},
      {"unterminated wide string", [&](MessageBuilder& m) { after(m.Record(0, L"w", unterminated)); }},
      {"unterminated wide string at the end", [&](MessageBuilder& m) { m.Record(0, L"w", unterminated); }},
      // valueLength 6 covers one whole character ('a') and half of the zero one.
      {"wide terminator outside the value",
       [](MessageBuilder& m) { m.RawRecord(0, L"w", 6, pam_test::WideValue(L"a")).End(); }},
      {"unterminated narrow string",
       [&](MessageBuilder& m) {
         after(m.Record(6, L"n", {'a', 'b', 'c', 'd'}));
       }},
      {"unterminated narrow string at the end",
       [](MessageBuilder& m) {
         m.Record(6, L"n", {'a', 'b', 'c', 'd'});
       }},
      // Nothing follows the last header, or only two of four value bytes.
      {"unsigned without value", [](MessageBuilder& m) { m.RawRecord(2, L"v", 0, {}); }},
      {"signed without value", [](MessageBuilder& m) { m.RawRecord(3, L"v", 0, {}); }},
      {"byte without value", [](MessageBuilder& m) { m.RawRecord(4, L"v", 0, {}); }},
      {"half an unsigned",
       [](MessageBuilder& m) {
         m.RawRecord(2, L"v", 2, {0xAA, 0xBB});
       }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    MessageBuilder m(2, kPid);
    m.Record(2, L"before", pam_test::U32Value(1));
    c.add(m);
    LinuxDictionary d;
    pam_test::DecodeInto(d, m.Finish());
    EXPECT_EQ(pam_test::ValueCount(d), 1u);
    EXPECT_EQ(d.UIntValues().count(L"before"), 1u);
  }
}

TEST(MalformedInput, MissingEndRecordKeepsAllRecords) {
  MessageBuilder m(2, kPid);
  m.Record(6, L"n", pam_test::NarrowValue("ab"), 1)
      .Record(2, L"u", pam_test::U32Value(3))
      .Record(4, L"b", {9});  // ends the message on an odd length
  LinuxDictionary d;
  pam_test::DecodeInto(d, m.Finish());
  EXPECT_EQ(pam_test::ValueCount(d), 3u);
  uint8_t b = 0;
  ASSERT_TRUE(d.GetByte(L"b", &b));
  EXPECT_EQ(b, 9);
}

TEST(MalformedInput, NarrowStringWithCutPaddingIsTheLastValue) {
  MessageBuilder m(2, kPid);
  m.Record(6, L"n", pam_test::NarrowValue("ab"));  // valueLength 3, its padding byte missing
  LinuxDictionary d;
  pam_test::DecodeInto(d, m.Finish());
  ASSERT_NE(d.FindNarrowString(L"n"), nullptr);
  EXPECT_EQ(*d.FindNarrowString(L"n"), "ab");
}

TEST(MalformedInput, FixedWidthValueShorterThanItsTypeAtTheEnd) {
  for (uint8_t type : {uint8_t{2}, uint8_t{3}, uint8_t{4}}) {
    SCOPED_TRACE(static_cast<int>(type));
    MessageBuilder m(2, kPid);
    m.Record(2, L"before", pam_test::U32Value(1)).RawRecord(type, L"v", 0, {});
    LinuxDictionary d;
    pam_test::DecodeInto(d, m.Finish());  // nothing follows the last header
    EXPECT_EQ(pam_test::ValueCount(d), 1u);
  }
  MessageBuilder m(2, kPid);
  m.RawRecord(2, L"v", 2, {0xAA, 0xBB});  // two of four value bytes
  LinuxDictionary d;
  pam_test::DecodeInto(d, m.Finish());
  EXPECT_EQ(pam_test::ValueCount(d), 0u);
}

TEST(MalformedInput, ShortOrHeaderOnlyMessages) {
  LinuxDictionary d;
  d.SetUInt(L"stale", 1);
  const Bytes prefix = {1, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0};
  pam_test::DecodeInto(d, prefix.data(), 11);
  EXPECT_EQ(pam_test::ValueCount(d), 0u) << "the maps are emptied first";
  EXPECT_EQ(d.Header().messageType, 0xFFFFFFFFu);

  pam_test::DecodeInto(d, prefix);
  EXPECT_EQ(d.Header().messageType, 1u);
  EXPECT_EQ(d.Header().processId, 2u);
  EXPECT_EQ(d.Header().bodyLength, 0u);
  EXPECT_EQ(pam_test::ValueCount(d), 0u);
}

TEST(MalformedInput, BodyLengthIsNotTrusted) {
  // A body length far beyond the bytes held changes nothing about decoding.
  MessageBuilder m(2, kPid);
  m.Record(2, L"u", pam_test::U32Value(5)).End();
  Bytes bytes = m.Finish();
  for (size_t i = 8; i < 12; ++i) bytes[i] = 0xFF;
  LinuxDictionary d;
  pam_test::DecodeInto(d, bytes);
  EXPECT_EQ(pam_test::ValueCount(d), 1u);
  EXPECT_EQ(d.Header().bodyLength, 0xFFFFFFFFu);
}

}  // namespace
