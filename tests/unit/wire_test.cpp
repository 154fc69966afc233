// LinuxDictionary: decoding and encoding of the hand-written messages of
// data/messages.txt (its notation is explained there), setters, getters, copies
// and the cached encoding.
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "message/LinuxDictionary.h"

namespace {

using PalvonAuthManagerSDK::LinuxDictionary;
using PalvonAuthManagerSDK::MessageCommon;
using Bytes = std::vector<uint8_t>;

void Put32(Bytes& out, uint32_t v) {
  for (int i = 0; i < 32; i += 8) out.push_back(static_cast<uint8_t>(v >> i));
}

// The bytes of a message, and where each item header starts.
std::pair<Bytes, std::vector<size_t>> Assemble(const std::string& notation) {
  Bytes b;
  std::vector<size_t> starts;
  std::istringstream in(notation);
  long body = -2;  // -2: no envelope, -1: the bytes that follow
  for (std::string t; in >> t;) {
    const std::string v = t.substr(t.find(':') + 1);
    unsigned type = 0, pid = 0;
    if (t == "end") {
      b.push_back(5);
      b.resize(b.size() + 135);
    } else if (t[0] == 'm') {
      body = -1;
      std::sscanf(v.c_str(), "%u:%u:%ld", &type, &pid, &body);
      Put32(b, type), Put32(b, pid), Put32(b, 0);
    } else if (t[0] == 'r') {
      const size_t key = t.find(':', 2) + 1, length = t.rfind(':') + 1;
      starts.push_back(b.size());
      Put32(b, static_cast<uint32_t>(std::stoul(v)));
      for (size_t i = 0; i < 32; ++i) Put32(b, key + i < length - 1 ? t[key + i] : 0);
      Put32(b, static_cast<uint32_t>(std::stoul(t.substr(length))));
    } else if (t[0] == 'u') {
      Put32(b, static_cast<uint32_t>(std::stoll(v, nullptr, 0)));
    } else if (t[0] == 'w' || t[0] == 'n') {
      for (char c : v + '\0') t[0] == 'w' ? Put32(b, c) : b.push_back(c);
    } else if (t[0] == 'x') {
      for (size_t i = 0; i < v.size(); i += 2)
        b.push_back(static_cast<uint8_t>(std::stoul(v.substr(i, 2), nullptr, 16)));
    } else {
      EXPECT_EQ(t[0], 'z') << t;
      b.resize(b.size() + std::stoul(v));
    }
  }
  const auto length = static_cast<uint32_t>(body == -1 ? b.size() - 12 : body);
  if (body != -2) std::memcpy(b.data() + 8, &length, 4);
  return {b, starts};
}

std::string Envelope(const LinuxDictionary& d) {
  return ::testing::PrintToString(std::make_tuple(d.Header().messageType, d.Header().processId, d.Header().bodyLength));
}

std::string Dump(const LinuxDictionary& d) {
  return Envelope(d) + " " +
         ::testing::PrintToString(std::make_tuple(d.NarrowStringValues(), d.WideStringValues(), d.IntValues(),
                                                  d.UIntValues(), d.ByteValues(), d.BufferValues()));
}

size_t Count(const LinuxDictionary& d) {
  return d.NarrowStringValues().size() + d.WideStringValues().size() + d.IntValues().size() + d.UIntValues().size() +
         d.ByteValues().size() + d.BufferValues().size();
}

template <typename Map>
bool Within(const Map& part, const Map& whole) {
  return std::includes(whole.begin(), whole.end(), part.begin(), part.end());
}

// Decodes from an allocation of exactly `length` bytes, so the address
// sanitizer reports any read past the message. The encoding and the values
// held before must go.
LinuxDictionary Decode(const Bytes& bytes, size_t length) {
  LinuxDictionary d(MessageCommon(0xFFFFFFFFu, 0));
  d.SetInt(L"stale", 1), d.SetUInt(L"stale", 1), d.SetByte(L"stale", 1), d.SetNarrowString(L"stale", "s");
  d.SetWideString(L"stale", L"s"), d.SetBuffer(L"stale", bytes.data(), 1), d.Serialize(true);
  auto* copy = static_cast<uint8_t*>(std::malloc(length + (length == 0)));
  std::copy_n(bytes.begin(), length, copy);
  d.AdoptEncoding(copy, static_cast<uint32_t>(length));
  d.Deserialize();
  return d;
}
LinuxDictionary Decode(const Bytes& bytes) { return Decode(bytes, bytes.size()); }

Bytes Encode(LinuxDictionary& d) {
  const uint8_t* data = d.Serialize(true);
  return Bytes(data, data + d.EncodedLength());
}

std::vector<std::vector<std::string>> Cases() {
  std::vector<std::vector<std::string>> cases;  // kind and name, message, expected
  std::ifstream in(PAM_UNIT_DATA "/messages.txt");
  for (std::string line; std::getline(in, line);) {
    const size_t a = line.find(" | "), b = line.rfind(" | ");
    if (line[0] != '#' && a != b)
      cases.push_back({line.substr(0, a), line.substr(a + 3, b - a - 3), line.substr(b + 3)});
  }
  EXPECT_EQ(cases.size(), 41u);
  return cases;
}

TEST(Wire, HandWrittenMessages) {
  for (const auto& c : Cases()) {
    SCOPED_TRACE(c[0]);
    const Bytes bytes = Assemble(c[1]).first;
    const LinuxDictionary decoded = Decode(bytes);
    EXPECT_EQ(Dump(decoded), c[2]);
    if (c[0][0] != 'E') continue;
    LinuxDictionary encoder(MessageCommon(decoded.Header().messageType, decoded.Header().processId));
    encoder.CopyValuesFrom(decoded);
    EXPECT_FALSE(encoder.EncodingValid());
    EXPECT_EQ(Encode(encoder), bytes);
  }
}

TEST(Wire, EveryTruncationKeepsTheCompleteRecords) {
  for (const auto& c : Cases()) {
    if (c[0][0] == 'D') continue;
    const auto [bytes, starts] = Assemble(c[1]);
    const LinuxDictionary whole = Decode(bytes);
    for (size_t length = 0; length <= bytes.size(); ++length) {
      SCOPED_TRACE(c[0] + " cut to " + std::to_string(length));
      size_t complete = 0;  // header and value present; narrow padding is not needed
      for (size_t s : starts) complete += s + 136 + (bytes[s + 132] | bytes[s + 133] << 8) <= length;
      const LinuxDictionary d = Decode(bytes, length);
      EXPECT_EQ(Count(d), complete);
      EXPECT_TRUE(Within(d.NarrowStringValues(), whole.NarrowStringValues()) &&
                  Within(d.WideStringValues(), whole.WideStringValues()) && Within(d.IntValues(), whole.IntValues()) &&
                  Within(d.UIntValues(), whole.UIntValues()) && Within(d.ByteValues(), whole.ByteValues()) &&
                  Within(d.BufferValues(), whole.BufferValues()));
      EXPECT_EQ(Envelope(d), length < 12 ? "(4294967295, 0, 974)" : Envelope(whole));
      if (HasFailure()) return;
    }
  }
}

TEST(Dictionary, SettersGettersCopiesAndCachedEncoding) {
  LinuxDictionary reply;  // default envelope, nothing encoded, nothing to decode
  reply.AdoptEncoding(nullptr, 5);
  reply.Deserialize();
  EXPECT_EQ(Envelope(reply), "(4294967295, " + std::to_string(getpid()) + ", 12)");
  EXPECT_TRUE(reply.EncodedBuffer() == nullptr && reply.EncodedLength() == 0 && !reply.EncodingValid());
  LinuxDictionary d(MessageCommon(5, 4242));  // encoded at once
  EXPECT_TRUE(d.EncodingValid() && d.EncodedLength() == 148 && d.Header().bodyLength == 136);

  // Null keys, null or empty buffers change nothing: the cache is still served.
  const uint8_t* cached = d.Serialize(true);
  const unsigned char one[] = {1}, three[] = {1, 2, 3};
  d.SetUInt(nullptr, 1), d.SetInt(nullptr, 1), d.SetByte(nullptr, 1), d.SetNarrowString(nullptr, "x");
  d.SetWideString(nullptr, L"x"), d.SetBuffer(L"b", nullptr, 5), d.SetBuffer(L"b", one, 0),
      d.SetBuffer(nullptr, one, 1);
  EXPECT_TRUE(Count(d) == 0 && d.EncodingValid() && d.Serialize(true) == cached);

  // Every setter invalidates; a later value replaces an earlier one; one key
  // may be in every map.
  for (const std::function<void()>& set : std::vector<std::function<void()>>{
           [&] { d.SetInt(L"k", -1); }, [&] { d.SetUInt(L"k", 1); }, [&] { d.SetUInt(L"k", 2); },
           [&] { d.SetByte(L"k", 3); }, [&] { d.SetNarrowString(L"k", "n"); }, [&] { d.SetWideString(L"k", L"a"); },
           [&] { d.SetWideString(L"k", L"w"); }, [&] { d.SetBuffer(L"k", three, 3); },
           [&] { d.SetBuffer(L"k", one, 1); }, [&] { d.SetWideString(L"e", L""); }}) {
    d.Serialize(true);
    set();
    EXPECT_FALSE(d.EncodingValid());
  }
  const Bytes image = Encode(d);
  EXPECT_EQ(Dump(Decode(image)), R"((5, 4242, 1114) ({ (L"k", "n") }, { (L"e", L""), (L"k", L"w") }, { (L"k", -1) }, )"
                                 R"({ (L"k", 2) }, { (L"k", '\x3' (3)) }, { (L"k", ({ '\x1' (1) }, 1)) }))");
  d.Serialize(false);
  d.Deserialize();  // decoding leaves the valid flag alone
  EXPECT_TRUE(d.EncodingValid() && Encode(d) == image && !Decode(image).EncodingValid());

  // Keys are cut to 31 characters, so keys differing later collide and the
  // later wins; embedded zeros cut texts; large values round-trip.
  const std::wstring key31 = L"abcdefghijklmnopqrstuvwxyz01234";
  LinuxDictionary cut(MessageCommon(5, 4242));
  cut.SetUInt((key31 + L"1").c_str(), 1);
  cut.SetUInt((key31 + L"56789ABCD").c_str(), 2);
  cut.SetNarrowString(L"n", std::string("ab\0cd", 5));
  cut.SetWideString(L"w", std::wstring(L"ab\0cd", 5));
  cut.SetNarrowString(L"z", "after");
  EXPECT_EQ(Dump(Decode(Encode(cut))), R"((5, 4242, 864) ({ (L"n", "ab"), (L"z", "after") }, { (L"w", L"ab") }, {}, )"
                                       R"({ (L"abcdefghijklmnopqrstuvwxyz01234", 2) }, {}, {}))");
  LinuxDictionary big(MessageCommon(5, 4242));
  big.SetBuffer(L"big", std::vector<uint8_t>(70000, 0xA5).data(), 70000);
  big.SetWideString(L"long", std::wstring(5000, L'z'));
  const LinuxDictionary decoded = Decode(Encode(big));
  EXPECT_TRUE(decoded.BufferValues() == big.BufferValues() && decoded.WideStringValues() == big.WideStringValues());

  // Getters read their own map only; a failed look-up leaves *out alone.
  unsigned int u = 9;
  int32_t i = 9;
  uint8_t b = 9;
  EXPECT_FALSE(d.GetUInt(L"k", nullptr) || d.GetUInt(nullptr, &u) || d.GetUInt(L"e", &u) || d.GetInt(L"e", &i) ||
               d.GetInt(L"k", nullptr) || d.GetByte(L"e", &b) || d.GetByte(L"k", nullptr));
  EXPECT_TRUE(u == 9 && i == 9 && b == 9 && d.GetUInt(L"k", &u) && d.GetInt(L"k", &i) && d.GetByte(L"k", &b) &&
              u == 2 && i == -1 && b == 3);
  EXPECT_TRUE(d.GetString(L"x") == nullptr && d.GetString(nullptr) == nullptr && d.GetString(L"e")[0] == L'\0');
  EXPECT_TRUE(std::wstring(d.GetString(L"k")) == L"w" && *d.FindNarrowString(L"k") == "n");
  EXPECT_TRUE(d.FindNarrowString(L"e") == nullptr && d.FindBuffer(L"e") == nullptr);

  // Copies are deep, the encoding included; values can be taken over or cleared.
  LinuxDictionary copy(d), assigned(MessageCommon(1, 1));
  assigned = d;
  copy.SetWideString(L"k", L"changed");
  EXPECT_TRUE(assigned.EncodingValid() && assigned.EncodedBuffer() != d.EncodedBuffer());
  EXPECT_TRUE(Encode(assigned) == image && Dump(assigned) == Dump(d) && Dump(copy) != Dump(d));
  copy.TakeValuesFrom(std::move(assigned));
  EXPECT_TRUE(Encode(copy) == image && Count(assigned) == 0);
  copy.ClearValues();
  EXPECT_TRUE(Count(copy) == 0 && !copy.EncodingValid());
}

}  // namespace
