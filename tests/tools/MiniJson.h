#ifndef PAM_TESTS_TOOLS_MINIJSON_H
#define PAM_TESTS_TOOLS_MINIJSON_H

// A strict little JSON reader for checking the tool's --json output: it
// accepts exactly RFC 8259 text (one value, optional surrounding blanks)
// and throws std::runtime_error on anything else.

#include <cstdint>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace pam_test {

struct Json {
  enum class Kind { kNull, kBool, kNumber, kString, kArray, kObject };
  Kind kind = Kind::kNull;
  bool boolean = false;
  double number = 0;
  std::string text;  // UTF-8
  std::vector<Json> items;
  std::vector<std::pair<std::string, Json>> members;  // in document order

  bool Has(const std::string& key) const;
  /** The member `key`; throws when absent or when this is no object. */
  const Json& operator[](const std::string& key) const;
  const Json& operator[](size_t index) const;
  uint64_t UInt() const;
  const std::string& Str() const;
  std::vector<std::string> Keys() const;

  static Json Parse(const std::string& document);
};

}  // namespace pam_test

#endif
