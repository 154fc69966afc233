// `http`: a curl-like request performed by the service. The response body is
// read in chunks and written out as it arrives, never held whole.
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "CommandLine.h"
#include "Deadline.h"
#include "Progress.h"
#include "commands/Commands.h"
#include "commands/Gateway.h"
#include "http/HeaderFields.h"
#include "http/HttpExchange.h"
#include "http/Redirect.h"
#include "http/Url.h"
#include "http/WriteOut.h"

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
  bool head = false;
  bool follow = false;
  int maxRedirects = 50;
  std::optional<uint32_t> timeout;
  double maxTime = 0;
  std::optional<std::string> userAgent;
  std::optional<std::string> userAgentSuffix;
  std::optional<std::string> user;
  std::optional<std::string> writeOut;
  std::optional<std::string> referenceUrl;
  std::optional<uint32_t> flags;
  GatewayOptions route;
  bool fail = false;
  bool verbose = false;
  bool silent = false;
  bool showError = false;
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

// The request as the options describe it; -A and -u give way to a field
// of the same name given with -H, as with curl.
OutgoingRequest BuildRequest(const HttpOptions& options) {
  OutgoingRequest request;
  if (options.dataBinary) {
    request.body = LoadData(*options.dataBinary);
  } else if (options.data) {
    request.body = LoadData(*options.data);
  }
  request.method = options.method.value_or(options.head ? "HEAD" : request.body ? "POST" : "GET");
  request.url = WithScheme(options.url);
  request.headers = options.headers;
  if (options.userAgent && !FindField(request.headers, "User-Agent")) {
    request.headers.push_back("User-Agent: " + *options.userAgent);
  }
  if (options.user && !FindField(request.headers, "Authorization")) {
    Base64Encoder base64;
    std::string encoded =
        base64.Update(reinterpret_cast<const unsigned char*>(options.user->data()), options.user->size());
    encoded += base64.Finish();
    request.headers.push_back("Authorization: Basic " + encoded);
  }
  request.referenceUrl = options.referenceUrl;
  request.authenticationFlags = options.flags;
  request.timeoutSeconds = options.timeout;
  request.userAgentSuffix = options.userAgentSuffix;
  request.route = options.route;
  return request;
}

// -v: what the tool asks of the service, as curl shows a request ("> "),
// and each response head ("< "). The service adds fields of its own (its
// user agent, Accept, the body's length), which it does not report.
void ShowRequest(const OutgoingRequest& request) {
  std::string text = "> " + request.method + " " + RequestTarget(request.url) + " HTTP/1.1\n";
  text += "> Host: " + HostOf(request.url) + "\n";
  for (const std::string& header : request.headers) text += "> " + header + "\n";
  if (request.body) text += "* " + std::to_string(request.body->size()) + " bytes of request body\n";
  std::fputs((text + ">\n").c_str(), stderr);
}

std::string HeadText(const HttpResponseHead& head, const char* prefix) {
  std::string text = prefix + StatusLine(head) + "\n";
  for (const std::string& header : head.headers) text += prefix + header + "\n";
  return text;
}

int RunHttp(const Tool& tool, const HttpOptions& options, Output& out) {
  if (options.silent && !options.showError) ShowErrorMessages(false);
  if (options.writeOut && out.Json()) {
    throw LocalError("-w/--write-out does not combine with --json: the JSON object holds the status, size and URL",
                     kExitUsage);
  }
  // Everything local is checked before the service is asked anything.
  OutgoingRequest request = BuildRequest(options);
  std::unique_ptr<std::FILE, FileCloser> file;
  std::string destinationName = "standard output";
  if (options.output && *options.output != "-") {
    file.reset(std::fopen(options.output->c_str(), "wb"));
    if (!file) throw LocalError("cannot open " + *options.output + ": " + std::strerror(errno));
    destinationName = *options.output;
  }
  std::FILE* destination = file ? file.get() : stdout;
  const bool bodyInJson = out.Json() && !file;
  // In text mode the output is the response itself, as with curl; the
  // record of the exchange is written only in JSON mode.
  const bool json = out.Json();
  TransferSummary summary;
  summary.url = request.url;
  const auto writeOut = [&options, &summary] {
    if (options.writeOut) std::fputs(RenderWriteOut(*options.writeOut, summary).c_str(), stdout);
  };

  LibrarySession session(tool.options, out);
  Connection connection(tool.options);
  std::optional<Progress> progress;
  // --max-time counts from the request on; the wait for the service has --wait.
  Deadline deadline(options.maxTime, [&] {
    if (progress) progress->Finish(summary.bodyBytes);
    writeOut();
    out.Unwind();
    char seconds[32];
    std::snprintf(seconds, sizeof seconds, "%g", options.maxTime);
    ReportLocalError(out, std::string("the request took longer than --max-time ") + seconds + " s", kExitTimedOut);
    out.Finish();
    RemoveOwnPipes();
    return kExitTimedOut;
  });
  std::string failure;
  try {
    std::optional<HttpExchange> exchange;
    HttpResponseHead head;
    for (;;) {
      exchange.emplace(connection.Handle());
      if (json && summary.redirects == 0) {
        out.Number("connection", connection.Handle());
        out.Number("request", exchange->Handle());
      }
      if (options.verbose) ShowRequest(request);
      head = deadline.Blocking([&] {
        exchange->Send(request);
        return exchange->ReadHead();
      });
      summary.status = head.status;
      if (options.verbose) std::fputs((HeadText(head, "< ") + "<\n").c_str(), stderr);
      if (!json && (options.include || options.head)) {
        const std::string text = HeadText(head, "") + "\n";
        WriteAll(destination, destinationName, text.data(), text.size());
      }
      const std::optional<std::string> target = options.follow ? RedirectTarget(head, request.url) : std::nullopt;
      if (!target) break;
      if (options.maxRedirects >= 0 && summary.redirects >= static_cast<uint32_t>(options.maxRedirects)) {
        throw LocalError("more redirects than --max-redirs " + std::to_string(options.maxRedirects),
                         kExitTooManyRedirects);
      }
      request = RedirectedRequest(request, head.status, *target);
      ++summary.redirects;
      summary.url = request.url;
      if (options.verbose) std::fprintf(stderr, "* following the redirect to %s\n", target->c_str());
      deadline.Blocking([&] { exchange->Close(); });
    }
    request.body.reset();

    if (json) {
      if (options.follow) {
        out.String("url", summary.url);
        out.Number("redirects", summary.redirects);
      }
      out.Number("status", head.status);
      out.String("reason", head.reason);
      out.BeginArray("headers");
      for (const std::string& header : head.headers) out.String("", header);
      out.EndArray();
      out.Number("trustFailureFlags", head.trustFailureFlags);
    }

    if (options.fail && head.status >= 400) {
      failure = "HTTP status " + std::to_string(head.status) + (head.reason.empty() ? "" : " " + head.reason);
    } else {
      bool showProgress = isatty(STDERR_FILENO) != 0 && (file || isatty(STDOUT_FILENO) == 0);
      if (options.progress) showProgress = true;
      if (options.noProgress || options.silent) showProgress = false;
      progress.emplace(stderr, showProgress, ContentLength(head.headers).value_or(0), options.chunkSize);
      std::vector<AMByte> chunk(options.chunkSize);
      Base64Encoder base64;
      if (bodyInJson) out.BeginStreamedString("bodyBase64");
      for (;;) {
        const AMUint got = deadline.Blocking([&] { return exchange->ReadBody(chunk.data(), options.chunkSize); });
        if (got == 0) break;
        summary.bodyBytes += got;
        if (bodyInJson) {
          out.StreamChunk(base64.Update(chunk.data(), got));
        } else {
          WriteAll(destination, destinationName, chunk.data(), got);
        }
        progress->Update(summary.bodyBytes);
      }
      if (bodyInJson) {
        out.StreamChunk(base64.Finish());
        out.EndStreamedString();
      }
      progress->Finish(summary.bodyBytes);
      progress.reset();
    }
    if (file) {
      if (std::fclose(file.release()) != 0) throw LocalError("cannot write " + destinationName);
      if (json) out.String("output", *options.output);
    }
    if (json) out.Number("bodyBytes", summary.bodyBytes);
    deadline.Blocking([&] { exchange->Close(); });
  } catch (...) {
    if (progress) progress->Finish(summary.bodyBytes);
    writeOut();
    throw;
  }
  writeOut();

  connection.Close();
  session.Close();
  if (!failure.empty()) {
    ReportLocalError(out, failure, kExitHttpStatus);
    return kExitHttpStatus;
  }
  return kExitOk;
}

// Options of curl's for things the service decides by itself are refused
// with the reason, rather than taken and ignored.
void Refuse(CLI::App& command, const std::string& names, bool takesValue, const std::string& reason) {
  std::string shown = names;
  for (char& c : shown) {
    if (c == ',') c = '/';
  }
  const std::string message = shown + " is not available: " + reason;
  const auto refuse = [message] { throw CLI::ValidationError(message); };
  CLI::Option* option =
      takesValue ? command.add_option_function<std::string>(names, [refuse](const std::string&) { refuse(); })
                 : command.add_flag_callback(names, refuse);
  option->group("");
}

}  // namespace

void AddHttpCommand(CLI::App& app, Tool& tool) {
  CLI::App* command =
      app.add_subcommand("http", "Have the service perform an HTTP request and print the response body (curl-like)");
  auto options = std::make_shared<HttpOptions>();
  command->add_option("URL", options->url, "Request URL")->required();
  CLI::Option* method =
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
  command->add_flag("-I,--head", options->head, "Send a HEAD request and print the status line and headers")
      ->excludes(method)
      ->excludes(data)
      ->excludes(dataBinary);
  command->add_flag("-L,--location", options->follow, "Follow redirects (301, 302, 303, 307, 308) to their Location");
  command->add_option("--max-redirs", options->maxRedirects, "Redirects -L follows at most (-1: without limit)")
      ->check(CLI::Range(-1, 1000000))
      ->capture_default_str();
  command->add_option("-m,--max-time", options->maxTime, "Seconds the whole request may take (exit code 28)")
      ->check(Seconds(false));
  command->add_option("--timeout", options->timeout,
                      "Seconds the service waits for the headers and for each further piece of the body");
  CLI::Option* userAgent =
      command->add_option("-A,--user-agent", options->userAgent, "User-Agent field in place of the service's");
  command->add_option("--user-agent-suffix", options->userAgentSuffix, "Suffix the service appends to its user agent")
      ->excludes(userAgent);
  command->add_option("-u,--user", options->user, "Basic authentication as USER with PASSWORD")
      ->type_name("USER:PASSWORD")
      ->check([](const std::string& value) {
        return value.find(':') != std::string::npos
                   ? std::string()
                   : std::string("give USER:PASSWORD; the tool does not ask for a password");
      });
  command
      ->add_option("-w,--write-out", options->writeOut,
                   std::string("Print FORMAT after the transfer: %{VARIABLE} for ") + kWriteOutVariables +
                       "; \\n for a line end")
      ->type_name("FORMAT")
      ->check([](const std::string& format) {
        try {
          (void)RenderWriteOut(format, TransferSummary());
          return std::string();
        } catch (const std::invalid_argument& error) {
          return std::string(error.what());
        }
      });
  command->add_option("--ref", options->referenceUrl, "Reference URL of the request");
  command->add_option("--flags", options->flags, "Authentication flags, passed unchanged");
  command->add_option("--route", options->route.logonPoint, "Route the request through the gateway at this URL");
  command->add_option("--route-name", options->route.name, "Friendly name of the --route gateway");
  command->add_option("--route-edition", options->route.edition, "Edition of the --route gateway");
  command->add_option("--route-auth-type", options->route.authType, "Authentication type of the --route gateway");
  command->add_flag("-f,--fail", options->fail, "Exit with code 22 and no body when the status is 400 or above");
  command->add_flag("-v,--verbose", options->verbose, "Show the request and the response heads on stderr");
  CLI::Option* silent = command->add_flag("-s,--silent", options->silent, "No progress display and no error messages");
  command->add_flag("-S,--show-error", options->showError, "With -s, still print error messages");
  CLI::Option* progress =
      command->add_flag("--progress", options->progress, "Show the progress display even when stderr is no terminal");
  CLI::Option* noProgress = command->add_flag("--no-progress", options->noProgress, "Never show the progress display");
  progress->excludes(noProgress)->excludes(silent);
  command->add_option("--chunk-size", options->chunkSize, "Bytes asked for per body read")
      ->check(CLI::Range(1u, 16u * 1024u * 1024u))
      ->capture_default_str();
  Refuse(*command, "-k,--insecure", false,
         "the service checks TLS certificates as its configuration says (palvonauthd(8), 'http.verify_tls')");
  Refuse(*command, "--cacert", true,
         "the service trusts the certificates its configuration names (palvonauthd(8), 'http.ca_file')");
  Refuse(*command, "--capath", true,
         "the service trusts the certificates its configuration names (palvonauthd(8), 'http.ca_file')");
  Refuse(*command, "-x,--proxy", true,
         "the service connects by itself, through the proxy its own environment names (http_proxy, https_proxy)");
  Refuse(*command, "--connect-timeout", true,
         "the service bounds connecting by its configuration (palvonauthd(8), 'http.connect_timeout_s'); "
         "-m/--max-time bounds the whole request");
  Refuse(*command, "--compressed", false,
         "the service hands bodies on as the server sent them and the tool does not decode them; "
         "ask with -H 'Accept-Encoding: gzip' and decode the output yourself");
  command->callback(
      [&tool, options] { tool.run = [&tool, options](Output& out) { return RunHttp(tool, *options, out); }; });
}

}  // namespace palvonauth
