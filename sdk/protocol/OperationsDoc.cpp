#include "protocol/OperationsDoc.h"

#include "protocol/Operations.h"

namespace PalvonAuthManagerSDK {
namespace protocol {

namespace {

std::string Narrow(const wchar_t* key) {
  std::string out;
  for (const wchar_t* c = key; *c != 0; ++c) out += static_cast<char>(*c);  // keys are ASCII
  return out;
}

std::string Describe(const Field* fields, size_t count) {
  if (count == 0) return "none";
  std::string out;
  for (size_t i = 0; i < count; ++i) {
    const Field& field = fields[i];
    const std::string key = Narrow(field.key);
    out += (i > 0 ? ", " : "") + std::string(1, static_cast<char>(field.type)) + " ";
    switch (field.presence) {
      case Presence::Always:
        out += "\"" + key + "\"";
        break;
      case Presence::IfGiven:
        out += "\"" + key + "\" (if given)";
        break;
      case Presence::Required:
        out += "\"" + key + "\" (required)";
        break;
      case Presence::IfGateway:
        out += "\"" + key + "\" (type 2 only)";
        break;
      case Presence::Series:
        out += "\"" + key + "0\" … \"" + key + "<n-1>\"";
        break;
    }
  }
  return out;
}

}  // namespace

std::string OperationsMarkdown() {
  static const char* const kTitles[] = {"Library messages", "API level 1", "API level 2"};
  size_t count = 0;
  const Operation* operations = Operations(count);
  std::string out;
  for (uint32_t level = 0; level < 3; ++level) {
    out += std::string(level > 0 ? "\n" : "") + "### " + kTitles[level] + "\n\n";
    out += "| Type | Operation | What it does | Request keys | Reply keys on 0 |\n";
    out += "|---|---|---|---|---|\n";
    for (size_t i = 0; i < count; ++i) {
      const Operation& op = operations[i];
      if (op.apiLevel != level) continue;
      out += "| " + std::to_string(op.number) + " | " + op.name + " | " + op.what + " | " +
             Describe(op.request, op.requestCount) + " | " + Describe(op.reply, op.replyCount) + " |\n";
    }
  }
  return out;
}

}  // namespace protocol
}  // namespace PalvonAuthManagerSDK
