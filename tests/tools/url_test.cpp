// Reference resolution of the tool's redirects against the examples of
// RFC 3986, section 5.4, and the URL parts a request line and the
// credentials rule take.
#include <gtest/gtest.h>

#include "http/Url.h"

using namespace palvonauth;

TEST(Url, ResolvesTheRfcExamples) {
  // clang-format off
  const std::pair<const char*, const char*> cases[] = {
      {"g:h", "g:h"}, {"g", "http://a/b/c/g"}, {"./g", "http://a/b/c/g"}, {"g/", "http://a/b/c/g/"},
      {"/g", "http://a/g"}, {"//g", "http://g"}, {"?y", "http://a/b/c/d;p?y"}, {"g?y", "http://a/b/c/g?y"},
      {"#s", "http://a/b/c/d;p?q#s"}, {"g#s", "http://a/b/c/g#s"}, {"g?y#s", "http://a/b/c/g?y#s"},
      {";x", "http://a/b/c/;x"}, {"g;x", "http://a/b/c/g;x"}, {"", "http://a/b/c/d;p?q"}, {".", "http://a/b/c/"},
      {"./", "http://a/b/c/"}, {"..", "http://a/b/"}, {"../", "http://a/b/"}, {"../g", "http://a/b/g"},
      {"../..", "http://a/"}, {"../../", "http://a/"}, {"../../g", "http://a/g"}, {"../../../g", "http://a/g"},
      {"../../../../g", "http://a/g"}, {"/./g", "http://a/g"}, {"/../g", "http://a/g"}, {"g.", "http://a/b/c/g."},
      {".g", "http://a/b/c/.g"}, {"g..", "http://a/b/c/g.."}, {"..g", "http://a/b/c/..g"},
      {"./../g", "http://a/b/g"}, {"./g/.", "http://a/b/c/g/"}, {"g/./h", "http://a/b/c/g/h"},
      {"g/../h", "http://a/b/c/h"}, {"g;x=1/./y", "http://a/b/c/g;x=1/y"}, {"g;x=1/../y", "http://a/b/c/y"},
      {"g?y/./x", "http://a/b/c/g?y/./x"}, {"g?y/../x", "http://a/b/c/g?y/../x"}, {"g#s/./x", "http://a/b/c/g#s/./x"},
      {"g#s/../x", "http://a/b/c/g#s/../x"}, {"http:g", "http:g"}};
  // clang-format on
  for (const auto& [reference, expected] : cases) {
    EXPECT_EQ(ResolveReference("http://a/b/c/d;p?q", reference), expected) << reference;
  }
  EXPECT_EQ(ResolveReference("http://h:8", "x"), "http://h:8/x");
}

TEST(Url, NamesTheOriginHostAndTarget) {
  struct Case {
    const char* url;
    const char* origin;
    const char* host;
    const char* target;
  };
  const Case cases[] = {
      {"HTTP://Ann:pw@Example.COM:81/a/b?c=d#f", "http://example.com:81", "Example.COM:81", "/a/b?c=d"},
      {"https://h", "https://h", "h", "/"},
      {"http://h?q", "http://h", "h", "/?q"}};
  for (const Case& c : cases) {
    EXPECT_EQ(Origin(c.url), c.origin) << c.url;
    EXPECT_EQ(HostOf(c.url), c.host) << c.url;
    EXPECT_EQ(RequestTarget(c.url), c.target) << c.url;
  }
}
