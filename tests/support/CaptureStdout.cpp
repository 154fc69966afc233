#include "support/CaptureStdout.h"

#include <unistd.h>

#include <cstdio>

namespace pam_test {

std::string CaptureStdout(const std::function<void()>& body) {
  std::fflush(stdout);
  FILE* sink = std::tmpfile();
  if (sink == nullptr) return "<tmpfile failed>";
  const int saved = dup(STDOUT_FILENO);
  dup2(fileno(sink), STDOUT_FILENO);
  body();
  std::fflush(stdout);
  dup2(saved, STDOUT_FILENO);
  close(saved);
  std::string text;
  std::rewind(sink);
  char chunk[4096];
  for (size_t n; (n = std::fread(chunk, 1, sizeof chunk, sink)) > 0;) text.append(chunk, n);
  std::fclose(sink);
  return text;
}

}  // namespace pam_test
