// Replays the transcripts in transcripts/: the palvonauth tool (and the
// service itself) run against the real palvonauthd. "$ program args" runs a
// program, "% palvonauthd args" (re)starts the service, "% stop" stops it,
// "% file NAME" starts a file in HOME whose lines follow after "| ", "% wait
// TEXT" waits for a line of the service's log (lines of launchers that
// ended are shown by waiting for them only). The indented lines under a
// command are what came of it: exit code, standard output and error, and
// the service's log meanwhile. The replay must reproduce the whole file;
// PAM_UPDATE_TRANSCRIPTS=1 rewrites it.
#include <gtest/gtest.h>
#include <httplib.h>

#include <cstdio>
#include <optional>
#include <regex>
#include <utility>

#include "support/ServiceHarness.h"
#include "support/ChildProcess.h"

using namespace pam_test;

namespace {

// Words of a command line: 'quoted' words keep their spaces, \xHH is a byte.
std::vector<std::string> Words(const std::string& line) {
  std::vector<std::string> words;
  const std::regex word(R"('([^']*)'|(\S+))");
  for (std::sregex_iterator it(line.begin(), line.end(), word), end; it != end; ++it) {
    std::string text = (*it)[1].matched ? (*it)[1].str() : (*it)[2].str();
    for (size_t at = text.find("\\x"); at != std::string::npos; at = text.find("\\x", at + 1)) {
      text.replace(at, 4, 1, static_cast<char>(std::stoi(text.substr(at + 2, 2), nullptr, 16)));
    }
    words.push_back(text);
  }
  return words;
}

// Appends `text` as lines "  tag ...", control characters as \xHH.
void Emit(std::string& out, const std::string& tag, std::string text) {
  if (!text.empty() && text.back() != '\n') text += " (no line end)\n";
  std::string line;
  for (const char c : text) {
    char hex[8];
    std::snprintf(hex, sizeof hex, "\\x%02X", static_cast<unsigned char>(c));
    line += c == '\n' || (static_cast<unsigned char>(c) >= 0x20 && c != 0x7F) ? std::string(1, c) : hex;
    if (c == '\n') out += "  " + tag + " " + std::exchange(line, "");
  }
}

class Transcript : public testing::TestWithParam<const char*> {};

}  // namespace

TEST_P(Transcript, IsReproduced) {
  Gate release;
  LoopbackHttp http;
  const auto echo = [](const httplib::Request& request, httplib::Response& response) {
    std::string text = request.method + " " + request.target + "\n";
    for (const auto& [name, value] : request.headers) {
      if (name.find('_') == std::string::npos) text += name + ": " + value + "\n";
    }
    response.set_content(text + "\n" + request.body, "text/plain");
  };
  http.Routes().Get("/echo", echo).Post("/echo", echo).Put("/echo", echo).Delete("/echo", echo);
  http.Routes().Get(R"(/status/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
    response.status = std::stoi(request.matches[1]);
    response.set_content("status " + request.matches[1].str() + "\n", "text/plain");
  });
  http.Routes().Get(R"(/bytes/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
    std::string bytes(std::stoul(request.matches[1]), 0);
    for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 131 + i / 251);
    response.set_content(bytes, "application/octet-stream");
  });
  const auto redirect = [](const httplib::Request& request, httplib::Response& response) {
    response.status = std::stoi(request.matches[1]);
    response.set_header("Location", request.get_param_value("to"));
  };
  const std::string redirects = R"(/redirect/(\d+))";
  http.Routes().Get(redirects, redirect).Post(redirects, redirect).Put(redirects, redirect);
  http.Routes().Get("/hold", [&](const httplib::Request&, httplib::Response& response) {
    release.WaitFor(1);
    response.set_content("late", "text/plain");
  });
  http.Start();
  const std::string data = PAM_TRANSCRIPTS "/";
  std::vector<std::pair<std::string, std::string>> variables = {
      {"$HOME", Home()},
      {"$DATA", data},
      {"$DAEMON", DaemonPath()},
      {"$HTTP", "http://127.0.0.1:" + std::to_string(http.Port())},
      {"$PORT", std::to_string(http.Port())}};
  std::vector<std::pair<std::string, std::string>> masks = {{std::to_string(http.Port()), "PORT"}};
  std::vector<std::unique_ptr<LoopbackHttp>> tls;
  for (const std::string name : {"good", "other", "old"}) {
    const std::string files = data + name;
    tls.push_back(std::make_unique<LoopbackHttp>(
        std::make_unique<httplib::SSLServer>((files + ".crt").c_str(), (files + ".key").c_str())));
    tls.back()->Routes().Get("/", [](const auto&, httplib::Response& r) { r.set_content("secret", "text/plain"); });
    tls.back()->Start();
    variables.push_back({"$" + name, "https://127.0.0.1:" + std::to_string(tls.back()->Port())});
    masks.push_back({std::to_string(tls.back()->Port()), name + "-PORT"});
  }
  masks.insert(masks.end(), {{R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[-+]\d{4})", "TIME"},
                             {R"((client=|pid=|process )\d+)", "$1N"},
                             {R"(.*launcher process N exited.*\n)", ""},
                             {R"(\d+ milliseconds)", "N milliseconds"},
                             {"\r[^\r\n]*(?=\r)", ""},
                             {R"(, [\d.]+ \w+/s *)", ""},
                             {R"(AuthManagerSDK-[^ "]*\.txt)", "AuthManagerSDK-N.txt"},
                             {R"(\(/\S*/libpalvonauthmanager)", "(LIBDIR/libpalvonauthmanager"}});
  const auto expand = [&](std::string text) {
    for (const auto& [name, value] : variables) {
      for (size_t at = text.find(name); at != std::string::npos; at = text.find(name, at + value.size())) {
        text.replace(at, name.size(), value);
      }
    }
    return text;
  };
  std::optional<Daemon> daemon;
  size_t seen = 0;
  std::string out, file;
  const auto emit = [&](const char* tag, const std::string& text) { Emit(out, tag, Mask(MaskLog(text), masks)); };
  const auto log = [&] {
    const std::string text = daemon->Log();
    emit("log", text.substr(seen));
    seen = text.size();
  };
  std::ifstream in(data + GetParam());
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("  ", 0) == 0) continue;
    out += line + "\n";
    if (line.empty()) continue;
    const std::vector<std::string> words = Words(expand(line.substr(std::min<size_t>(line.size(), 2))));
    if (line[0] == '|') {
      std::ofstream(file, std::ios::app) << expand(line.substr(std::min<size_t>(line.size(), 2))) << "\n";
    } else if (line.rfind("% file ", 0) == 0) {
      file = WriteFile(Home() + "/" + words[1], "");
    } else if (line.rfind("% wait ", 0) == 0 && !daemon->WaitForLog(line.substr(7))) {
      out += "  timed out\n";
    } else if (line.rfind("% palvonauthd", 0) == 0 || line == "% stop") {
      if (daemon) {
        out += "  stopped with " + std::to_string(daemon->Stop()) + "\n";
        log();
        daemon.reset();
        seen = 0;
      }
      if (words[0] == "palvonauthd") daemon.emplace(std::vector<std::string>(words.begin() + 1, words.end()));
      if (daemon) log();
    } else if (line.rfind("$ ", 0) == 0) {
      std::vector<std::string> argv = words;
      if (argv[0] == "palvonauth") argv[0] = PALVONAUTH_PATH;
      if (argv[0] == "palvonauthd") argv[0] = DaemonPath();
      const ChildResult run = RunChild(argv);
      if (daemon) daemon->WaitForLog("session ended", daemon->Count(" registered\n"));
      out += "  exit " + std::to_string(run.exitCode) + "\n";
      emit("out", run.out);
      emit("err", run.err);
      if (daemon) log();
    }
  }
  release.Arrive();
  ExpectGolden(std::string("tools/transcripts/") + GetParam(), out);
}

INSTANTIATE_TEST_SUITE_P(Tool, Transcript, testing::Values("tool.txt", "http.txt", "configuration.txt"),
                         [](const testing::TestParamInfo<const char*>& info) {
                           return std::string(info.param).substr(0, std::string(info.param).find('.'));
                         });
