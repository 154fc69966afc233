#include "http/Url.h"

namespace palvonauth {

namespace {

std::string Lower(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

// Removes "." and ".." segments (RFC 3986, section 5.2.4).
std::string RemoveDotSegments(std::string_view input) {
  std::string output;
  const auto dropLastSegment = [&output] {
    const size_t slash = output.rfind('/');
    output.erase(slash == std::string::npos ? 0 : slash);
  };
  while (!input.empty()) {
    if (input.substr(0, 3) == "../") {
      input.remove_prefix(3);
    } else if (input.substr(0, 2) == "./") {
      input.remove_prefix(2);
    } else if (input.substr(0, 3) == "/./") {
      input.remove_prefix(2);
    } else if (input == "/.") {
      input = "/";
    } else if (input.substr(0, 4) == "/../") {
      input.remove_prefix(3);
      dropLastSegment();
    } else if (input == "/..") {
      input = "/";
      dropLastSegment();
    } else if (input == "." || input == "..") {
      input = {};
    } else {
      const size_t end = input.find('/', 1);
      output += input.substr(0, end);
      input.remove_prefix(end == std::string_view::npos ? input.size() : end);
    }
  }
  return output;
}

// The authority without "user:password@".
std::string_view HostPart(std::string_view authority) {
  const size_t at = authority.rfind('@');
  return at == std::string_view::npos ? authority : authority.substr(at + 1);
}

}  // namespace

UrlParts SplitUrl(std::string_view url) {
  UrlParts parts;
  const size_t hash = url.find('#');
  if (hash != std::string_view::npos) {
    parts.fragment = std::string(url.substr(hash + 1));
    url = url.substr(0, hash);
  }
  const size_t question = url.find('?');
  if (question != std::string_view::npos) {
    parts.query = std::string(url.substr(question + 1));
    url = url.substr(0, question);
  }
  const size_t colon = url.find(':');
  if (colon != std::string_view::npos && colon > 0 && url.substr(0, colon).find('/') == std::string_view::npos) {
    parts.scheme = std::string(url.substr(0, colon));
    url.remove_prefix(colon + 1);
  }
  if (url.substr(0, 2) == "//") {
    const size_t end = url.find('/', 2);
    parts.authority = std::string(url.substr(2, end == std::string_view::npos ? std::string_view::npos : end - 2));
    url.remove_prefix(end == std::string_view::npos ? url.size() : end);
  }
  parts.path = std::string(url);
  return parts;
}

std::string JoinUrl(const UrlParts& parts) {
  std::string url;
  if (parts.scheme) url += *parts.scheme + ":";
  if (parts.authority) url += "//" + *parts.authority;
  url += parts.path;
  if (parts.query) url += "?" + *parts.query;
  if (parts.fragment) url += "#" + *parts.fragment;
  return url;
}

std::string WithScheme(std::string_view url) {
  const size_t end = url.find("://");
  const bool named = end != std::string_view::npos && end > 0 &&
                     url.substr(0, end).find_first_not_of(
                         "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ"
                         "0123456789+-.") == std::string_view::npos;
  return named ? std::string(url) : "http://" + std::string(url);
}

std::string ResolveReference(std::string_view base, std::string_view reference) {
  const UrlParts from = SplitUrl(base);
  const UrlParts relative = SplitUrl(reference);
  UrlParts target;
  target.fragment = relative.fragment;
  if (relative.scheme) {
    target = relative;
    target.path = RemoveDotSegments(relative.path);
    return JoinUrl(target);
  }
  target.scheme = from.scheme;
  if (relative.authority) {
    target.authority = relative.authority;
    target.path = RemoveDotSegments(relative.path);
    target.query = relative.query;
    return JoinUrl(target);
  }
  target.authority = from.authority;
  if (relative.path.empty()) {
    target.path = from.path;
    target.query = relative.query ? relative.query : from.query;
  } else if (relative.path.front() == '/') {
    target.path = RemoveDotSegments(relative.path);
    target.query = relative.query;
  } else {
    const std::string merged = from.authority && from.path.empty()
                                   ? "/" + relative.path
                                   : from.path.substr(0, from.path.rfind('/') + 1) + relative.path;
    target.path = RemoveDotSegments(merged);
    target.query = relative.query;
  }
  return JoinUrl(target);
}

std::string Origin(std::string_view url) {
  const UrlParts parts = SplitUrl(url);
  return Lower(parts.scheme.value_or("") + "://" + std::string(HostPart(parts.authority.value_or(""))));
}

std::string HostOf(std::string_view url) { return std::string(HostPart(SplitUrl(url).authority.value_or(""))); }

std::string RequestTarget(std::string_view url) {
  const UrlParts parts = SplitUrl(url);
  std::string target = parts.path.empty() ? "/" : parts.path;
  if (parts.query) target += "?" + *parts.query;
  return target;
}

}  // namespace palvonauth
