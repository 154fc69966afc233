#include "Output.h"

#include "util/Utf8.h"

namespace palvonauth {

namespace {

// Escapes UTF-8 for a JSON string (without the quotes); ill-formed bytes
// become U+FFFD.
std::string JsonEscape(std::string_view utf8) {
  std::string clean;
  if (!PalvonAuthManagerSDK::IsValidUtf8(utf8)) {
    clean = PalvonAuthManagerSDK::ToUtf8(PalvonAuthManagerSDK::FromUtf8(utf8));
    utf8 = clean;
  }
  static const char kHex[] = "0123456789abcdef";
  std::string out;
  out.reserve(utf8.size() + 8);
  for (char ch : utf8) {
    const auto c = static_cast<unsigned char>(ch);
    switch (c) {
      case '"':
        out += "\\\"";
        break;
      case '\\':
        out += "\\\\";
        break;
      case '\b':
        out += "\\b";
        break;
      case '\f':
        out += "\\f";
        break;
      case '\n':
        out += "\\n";
        break;
      case '\r':
        out += "\\r";
        break;
      case '\t':
        out += "\\t";
        break;
      default:
        if (c < 0x20) {
          out += "\\u00";
          out += kHex[c >> 4];
          out += kHex[c & 0xF];
        } else {
          out += ch;
        }
    }
  }
  return out;
}

const char kBase64[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void EncodeTriple(std::string& out, unsigned char a, unsigned char b, unsigned char c) {
  out += kBase64[a >> 2];
  out += kBase64[((a & 0x03) << 4) | (b >> 4)];
  out += kBase64[((b & 0x0F) << 2) | (c >> 6)];
  out += kBase64[c & 0x3F];
}
}  // namespace

std::string Base64Encoder::Update(const unsigned char* data, size_t size) {
  std::string out;
  out.reserve((pendingCount_ + size) / 3 * 4);
  size_t i = 0;
  // Complete the group left over from the last call first.
  while (pendingCount_ > 0 && pendingCount_ < 3 && i < size) pending_[pendingCount_++] = data[i++];
  if (pendingCount_ == 3) {
    EncodeTriple(out, pending_[0], pending_[1], pending_[2]);
    pendingCount_ = 0;
  }
  for (; i + 3 <= size; i += 3) EncodeTriple(out, data[i], data[i + 1], data[i + 2]);
  for (; i < size; ++i) pending_[pendingCount_++] = data[i];
  return out;
}

std::string Base64Encoder::Finish() {
  std::string out;
  if (pendingCount_ == 1) {
    out += kBase64[pending_[0] >> 2];
    out += kBase64[(pending_[0] & 0x03) << 4];
    out += "==";
  } else if (pendingCount_ == 2) {
    out += kBase64[pending_[0] >> 2];
    out += kBase64[((pending_[0] & 0x03) << 4) | (pending_[1] >> 4)];
    out += kBase64[(pending_[1] & 0x0F) << 2];
    out += '=';
  }
  pendingCount_ = 0;
  return out;
}

Output::Output(Format format, std::FILE* stream) : format_(format), stream_(stream) {}

void Output::Write(std::string_view text) {
  if (!text.empty()) (void)std::fwrite(text.data(), 1, text.size(), stream_);
}

std::string Output::TextPrefix() {
  if (frames_.empty()) return std::string();
  Frame& frame = frames_.back();
  std::string prefix(frame.indent, ' ');
  if (frame.dash && frame.indent >= 2) {
    prefix[frame.indent - 2] = '-';
    frame.dash = false;
  }
  return prefix;
}

void Output::StartMember(std::string_view key) {
  if (!opened_) {
    opened_ = true;
    frames_.push_back(Frame{});
    if (Json()) Write("{");
  }
  Frame& frame = frames_.back();
  if (Json()) {
    if (frame.count > 0) Write(",");
    if (!frame.array) {
      Write("\"");
      Write(JsonEscape(key));
      Write("\":");
    }
  }
  ++frame.count;
}

void Output::TextScalar(std::string_view key, std::string_view value) {
  std::string line = TextPrefix();
  if (!frames_.back().array) {
    line += key;
    line += ": ";
  }
  line += value;
  line += '\n';
  Write(line);
}

void Output::String(std::string_view key, std::string_view utf8) {
  StartMember(key);
  if (Json()) {
    Write("\"");
    Write(JsonEscape(utf8));
    Write("\"");
  } else {
    TextScalar(key, utf8);
  }
}

void Output::Number(std::string_view key, uint64_t value) {
  StartMember(key);
  if (Json()) {
    Write(std::to_string(value));
  } else {
    TextScalar(key, std::to_string(value));
  }
}

void Output::Integer(std::string_view key, int64_t value) {
  StartMember(key);
  if (Json()) {
    Write(std::to_string(value));
  } else {
    TextScalar(key, std::to_string(value));
  }
}

void Output::Bool(std::string_view key, bool value) {
  StartMember(key);
  if (Json()) {
    Write(value ? "true" : "false");
  } else {
    TextScalar(key, value ? "true" : "false");
  }
}

void Output::Null(std::string_view key) {
  StartMember(key);
  if (Json()) {
    Write("null");
  } else {
    TextScalar(key, "(none)");
  }
}

void Output::BeginObject(std::string_view key) {
  StartMember(key);
  Frame& parent = frames_.back();
  Frame frame;
  if (Json()) {
    Write("{");
  } else if (parent.array) {
    // A list entry: its lines sit two columns in, the first one marked.
    frame.indent = parent.indent + 2;
    frame.dash = true;
  } else {
    std::string line = TextPrefix();
    line += key;
    line += ":\n";
    Write(line);
    frame.indent = parent.indent + 2;
  }
  frames_.push_back(frame);
}

void Output::EndObject() {
  if (frames_.size() < 2) return;
  const Frame frame = frames_.back();
  frames_.pop_back();
  if (Json()) {
    Write("}");
  } else if (frame.dash) {
    // An entry without members still shows up in the list.
    Write(std::string(frame.indent - 2, ' ') + "-\n");
  }
}

void Output::BeginArray(std::string_view key) {
  StartMember(key);
  const Frame& parent = frames_.back();
  Frame frame;
  frame.array = true;
  if (Json()) {
    Write("[");
  } else {
    std::string line = TextPrefix();
    if (!parent.array) line += key;
    line += ":\n";
    Write(line);
    frame.indent = parent.indent + 2;
  }
  frames_.push_back(frame);
}

void Output::EndArray() {
  if (frames_.size() < 2) return;
  frames_.pop_back();
  if (Json()) Write("]");
}

void Output::BeginStreamedString(std::string_view key) {
  StartMember(key);
  streaming_ = true;
  if (Json()) {
    Write("\"");
  } else {
    std::string line = TextPrefix();
    if (!frames_.back().array) {
      line += key;
      line += ": ";
    }
    Write(line);
  }
}

void Output::StreamChunk(std::string_view utf8) {
  if (Json()) {
    Write(JsonEscape(utf8));
  } else {
    Write(utf8);
  }
}

void Output::EndStreamedString() {
  streaming_ = false;
  Write(Json() ? "\"" : "\n");
}

void Output::Unwind() {
  if (streaming_) EndStreamedString();
  while (frames_.size() > 1) {
    if (frames_.back().array) {
      EndArray();
    } else {
      EndObject();
    }
  }
}

bool Output::Finish() {
  if (!finished_) {
    finished_ = true;
    if (Json()) {
      if (!opened_) Write("{");
      while (frames_.size() > 1) {
        Write(frames_.back().array ? "]" : "}");
        frames_.pop_back();
      }
      Write("}\n");
    }
    frames_.clear();
  }
  return std::fflush(stream_) == 0 && std::ferror(stream_) == 0;
}

}  // namespace palvonauth
