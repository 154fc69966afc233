#ifndef PALVONAUTH_TOOLS_OUTPUT_H
#define PALVONAUTH_TOOLS_OUTPUT_H

// The tool's result printer. Every subcommand reports through it, so that
// --json gives one JSON object per run and the default gives readable
// "key: value" lines (nested records indented, list entries marked "- ").
// Members are written as they are produced, never collected first, so a
// long value can be streamed in pieces.

#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace palvonauth {

enum class Format { kText, kJson };

/** Base64 (RFC 4648, with padding) fed in pieces of any size. */
class Base64Encoder {
 public:
  /** Encodes what can be encoded so far; up to two bytes wait for the next call. */
  std::string Update(const unsigned char* data, size_t size);
  /** Encodes the waiting bytes with padding. */
  std::string Finish();

 private:
  unsigned char pending_[3] = {0, 0, 0};
  size_t pendingCount_ = 0;
};

class Output {
 public:
  Output(Format format, std::FILE* stream);
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  bool Json() const { return format_ == Format::kJson; }

  // Members of the current object; inside an array the key is ignored.
  void String(std::string_view key, std::string_view utf8);
  void Number(std::string_view key, uint64_t value);
  void Integer(std::string_view key, int64_t value);
  void Bool(std::string_view key, bool value);
  void Null(std::string_view key);
  void BeginObject(std::string_view key);
  void EndObject();
  void BeginArray(std::string_view key);
  void EndArray();

  /** A string member written in pieces (JSON-escaped in JSON mode, raw otherwise). */
  void BeginStreamedString(std::string_view key);
  void StreamChunk(std::string_view utf8);
  void EndStreamedString();

  /** Ends a streamed string and closes every nested record, back to the top level (for reporting a failure). */
  void Unwind();
  /** Closes every open record and flushes; false when anything could not be written. */
  bool Finish();

 private:
  struct Frame {
    bool array = false;
    size_t count = 0;
    // Text mode: indentation of this frame's lines, and whether the next
    // line starts a list entry ("- ").
    size_t indent = 0;
    bool dash = false;
  };

  void Write(std::string_view text);
  void StartMember(std::string_view key);
  // Text mode: the indentation (with a list marker when due) for the next line.
  std::string TextPrefix();
  void TextScalar(std::string_view key, std::string_view value);

  Format format_;
  std::FILE* stream_;
  std::vector<Frame> frames_;
  bool opened_ = false;
  bool finished_ = false;
  /** A streamed string is open; Unwind() ends it. */
  bool streaming_ = false;
};

}  // namespace palvonauth

#endif
