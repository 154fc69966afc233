#ifndef PALVONAUTH_TOOLS_HTTP_WRITEOUT_H
#define PALVONAUTH_TOOLS_HTTP_WRITEOUT_H

// `http -w FORMAT`: text written after the transfer with %{variable}s
// replaced, as curl's --write-out.

#include <cstdint>
#include <string>
#include <string_view>

namespace palvonauth {

/** What the variables report; a transfer that failed before a response has status 0. */
struct TransferSummary {
  uint32_t status = 0;
  uint64_t bodyBytes = 0;
  std::string url;
  uint32_t redirects = 0;
};

/** The variables FORMAT may name, for messages. */
extern const char* const kWriteOutVariables;

/**
 * FORMAT with %{http_code} and %{response_code} (three digits),
 * %{size_download}, %{url_effective} and %{num_redirects} replaced, "%%" as
 * "%", and \n, \r, \t and \\ as their characters; other text is kept.
 * Throws std::invalid_argument naming an unknown variable.
 */
std::string RenderWriteOut(std::string_view format, const TransferSummary& summary);

}  // namespace palvonauth

#endif
