// `http`: a curl-like request performed by the service. The response body is
// read in chunks and written out as it arrives, never held whole.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <vector>

#include "Progress.h"
#include "commands/Commands.h"
#include "commands/Gateway.h"
#include "http/HeaderFields.h"
#include "http/HttpExchange.h"

namespace palvonauth {

using namespace PalvonAuthManagerSDK;

namespace {

constexpr uint32_t kDefaultChunkSize = 64u * 1024u;

struct HttpOptions {
  std::string url;
  std::optional<std::string> method;
  std::vector<std::string> headers;
  std::optional<std::string> data;
  std::optional<std::string> dataBinary;
  std::optional<std::string> output;
  bool include = false;
  std::optional<uint32_t> timeout;
  std::optional<std::string> userAgentSuffix;
  std::optional<std::string> referenceUrl;
  std::optional<uint32_t> flags;
  GatewayOptions route;
  bool fail = false;
  bool progress = false;
  bool noProgress = false;
  uint32_t chunkSize = kDefaultChunkSize;
};

// "@file" reads a file, "@-" standard input; anything else is the data itself.
std::vector<AMByte> LoadData(const std::string& source) {
  if (source.empty() || source[0] != '@') return std::vector<AMByte>(source.begin(), source.end());
  const std::string path = source.substr(1);
  std::vector<AMByte> bytes;
  if (path == "-") {
    char buffer[65536];
    for (;;) {
      const ssize_t got = read(STDIN_FILENO, buffer, sizeof buffer);
      if (got < 0 && errno == EINTR) continue;
      if (got < 0) throw LocalError(std::string("cannot read standard input: ") + std::strerror(errno));
      if (got == 0) break;
      bytes.insert(bytes.end(), buffer, buffer + got);
    }
    return bytes;
  }
  std::ifstream file(path, std::ios::binary);
  if (!file) throw LocalError("cannot read " + path + ": " + std::strerror(errno));
  bytes.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
  if (file.bad()) throw LocalError("cannot read " + path);
  return bytes;
}

struct FileCloser {
  void operator()(std::FILE* file) const {
    if (file != nullptr) std::fclose(file);
  }
};

// Writes to the body's destination; a failure ends the command.
void WriteAll(std::FILE* file, const std::string& name, const void* data, size_t size) {
  if (size > 0 && std::fwrite(data, 1, size, file) != size) {
    throw LocalError("cannot write " + name + ": " + std::strerror(errno));
  }
}

int RunHttp(const Tool& tool, const HttpOptions& options, Output& out) {
  // Everything local is checked before the service is asked anything.
  HttpRequestSpec request;
  if (options.dataBinary) {
    request.body = LoadData(*options.dataBinary);
  } else if (options.data) {
    request.body = LoadData(*options.data);
  }
  request.method = options.method.value_or(request.body ? "POST" : "GET");
  request.url = options.url;
  request.headers = options.headers;
  request.referenceUrl = options.referenceUrl;
  request.authenticationFlags = options.flags;
  request.timeoutSeconds = options.timeout;
  request.userAgentSuffix = options.userAgentSuffix;
  request.route = options.route;
  std::unique_ptr<std::FILE, FileCloser> file;
  std::string destinationName = "standard output";
  if (options.output && *options.output != "-") {
    file.reset(std::fopen(options.output->c_str(), "wb"));
    if (!file) throw LocalError("cannot open " + *options.output + ": " + std::strerror(errno));
    destinationName = *options.output;
  }
  std::FILE* destination = file ? file.get() : stdout;
  const bool bodyInJson = out.Json() && !file;

  LibrarySession session(tool.options, out);
  Connection connection(tool.options);
  HttpExchange exchange(connection.Handle());
  // In text mode the output is the response itself, as with curl; the
  // record of the exchange is written only in JSON mode.
  const bool json = out.Json();
  if (json) {
    out.Number("connection", connection.Handle());
    out.Number("request", exchange.Handle());
  }
  exchange.Send(request);
  request.body.reset();
  const HttpResponseHead head = exchange.ReadHead();
  const AMUint status = head.status;
  const std::string& reason = head.reason;
  const std::vector<std::string>& headers = head.headers;

  if (json) {
    out.Number("status", status);
    out.String("reason", reason);
    out.BeginArray("headers");
    for (const std::string& header : headers) out.String("", header);
    out.EndArray();
    out.Number("trustFailureFlags", head.trustFailureFlags);
  } else if (options.include) {
    std::string text = "HTTP " + std::to_string(status);
    if (!reason.empty()) text += " " + reason;
    text += "\n";
    for (const std::string& header : headers) text += header + "\n";
    text += "\n";
    WriteAll(destination, destinationName, text.data(), text.size());
  }

  const bool failed = options.fail && status >= 400;
  uint64_t received = 0;
  if (!failed) {
    bool showProgress = isatty(STDERR_FILENO) != 0 && (file || isatty(STDOUT_FILENO) == 0);
    if (options.progress) showProgress = true;
    if (options.noProgress) showProgress = false;
    Progress progress(stderr, showProgress, ContentLength(headers).value_or(0), options.chunkSize);
    std::vector<AMByte> chunk(options.chunkSize);
    Base64Encoder base64;
    if (bodyInJson) out.BeginStreamedString("bodyBase64");
    for (;;) {
      const AMUint got = exchange.ReadBody(chunk.data(), options.chunkSize);
      if (got == 0) break;
      received += got;
      if (bodyInJson) {
        out.StreamChunk(base64.Update(chunk.data(), got));
      } else {
        WriteAll(destination, destinationName, chunk.data(), got);
      }
      progress.Update(received);
    }
    if (bodyInJson) {
      out.StreamChunk(base64.Finish());
      out.EndStreamedString();
    }
    progress.Finish(received);
  }
  if (file) {
    if (std::fclose(file.release()) != 0) throw LocalError("cannot write " + destinationName);
    if (json) out.String("output", *options.output);
  }
  if (json) out.Number("bodyBytes", received);

  exchange.Close();
  connection.Close();
  session.Close();
  if (failed) {
    ReportLocalError(out, "HTTP status " + std::to_string(status) + (reason.empty() ? "" : " " + reason),
                     kExitHttpStatus);
    return kExitHttpStatus;
  }
  return kExitOk;
}

}  // namespace

void AddHttpCommand(CLI::App& app, Tool& tool) {
  CLI::App* command =
      app.add_subcommand("http", "Have the service perform an HTTP request and print the response body (curl-like)");
  auto options = std::make_shared<HttpOptions>();
  command->add_option("URL", options->url, "Request URL")->required();
  command->add_option("-X,--request", options->method, "Request method (default GET, or POST with data)");
  command->add_option("-H,--header", options->headers, "Request header 'Name: value'; repeatable")
      ->allow_extra_args(false);
  CLI::Option* data =
      command->add_option("-d,--data", options->data, "Request body: the text itself, @FILE, or @- for stdin");
  CLI::Option* dataBinary = command->add_option("--data-binary", options->dataBinary,
                                                "Request body, sent byte for byte: the text itself, @FILE, or @-");
  data->excludes(dataBinary);
  command->add_option("-o,--output", options->output, "Write the body (and with -i the head) to FILE");
  command->add_flag("-i,--include", options->include, "Print the status line and headers before the body");
  command->add_option("--timeout", options->timeout, "Request time-out in seconds");
  command->add_option("--user-agent-suffix", options->userAgentSuffix, "Suffix the service appends to its user agent");
  command->add_option("--ref", options->referenceUrl, "Reference URL of the request");
  command->add_option("--flags", options->flags, "Authentication flags, passed unchanged");
  command->add_option("--route", options->route.logonPoint, "Route the request through the gateway at this URL");
  command->add_option("--route-name", options->route.name, "Friendly name of the --route gateway");
  command->add_option("--route-edition", options->route.edition, "Edition of the --route gateway");
  command->add_option("--route-auth-type", options->route.authType, "Authentication type of the --route gateway");
  command->add_flag("-f,--fail", options->fail, "Exit with code 5 and no body when the status is 400 or above");
  CLI::Option* progress =
      command->add_flag("--progress", options->progress, "Show the progress display even when stderr is no terminal");
  CLI::Option* noProgress =
      command->add_flag("-s,--silent,--no-progress", options->noProgress, "Never show the progress display");
  progress->excludes(noProgress);
  command->add_option("--chunk-size", options->chunkSize, "Bytes asked for per body read")
      ->check(CLI::Range(1u, 16u * 1024u * 1024u))
      ->capture_default_str();
  command->callback(
      [&tool, options] { tool.run = [&tool, options](Output& out) { return RunHttp(tool, *options, out); }; });
}

}  // namespace palvonauth
