// `palvonauth proxy` between unmodified HTTP clients (curl and python3's
// urllib) and a loopback web server, through the real palvonauthd, in both
// modes; hostile requests on raw sockets; the service going away.
#include <netinet/in.h>
#include <sys/socket.h>

#include <optional>
#include <sstream>
#include <thread>

#include "support/ProxyProcess.h"
#include "support/ServiceHarness.h"

using namespace pam_test;

namespace {

std::string Pattern(size_t size) {
  std::string bytes(size, 0);
  for (size_t i = 0; i < size; ++i) bytes[i] = static_cast<char>(i * 131 + i / 251);
  return bytes;
}

std::string Reversed(std::string text) { return std::string(text.rbegin(), text.rend()); }

// Every route also answers under /app, the reverse proxy's upstream path.
void AddRoutes(httplib::Server& server) {
  server.Get(R"((?:/app)?/bytes/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
    response.set_content(Pattern(std::stoul(request.matches[1])), "application/octet-stream");
  });
  server.Get(R"((?:/app)?/chunked/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
    auto body = std::make_shared<std::string>(Pattern(std::stoul(request.matches[1])));
    response.set_chunked_content_provider("application/octet-stream", [body](size_t offset, httplib::DataSink& sink) {
      if (offset < body->size())
        return sink.write(body->data() + offset, std::min<size_t>(body->size() - offset, 70000));
      sink.done();
      return true;
    });
  });
  server.Post(R"((?:/app)?/echo)", [](const httplib::Request& request, httplib::Response& response) {
    response.set_content(request.body, "application/octet-stream");
  });
  server.Get(R"((?:/app)?/status/(\d+))", [](const httplib::Request& request, httplib::Response& response) {
    response.status = std::stoi(request.matches[1]);
    response.set_content("status " + request.matches[1].str() + "\n", "text/plain");
  });
  server.Get(R"((?:/app)?/redirect)", [](const httplib::Request&, httplib::Response& response) {
    response.set_redirect("/elsewhere", 302);
    response.set_content("moved\n", "text/plain");
  });
  server.Get(R"((?:/app)?/headers)", [](const httplib::Request& request, httplib::Response& response) {
    std::string text;
    for (const auto& [name, value] : request.headers) text += name + ": " + value + "\n";
    response.set_content(text, "text/plain");
  });
}

struct Fetched {
  int status = 0;
  std::string location = "-";
  std::string body;
};

// A proxy setting in the environment must never interfere.
const ChildOptions kNoProxyEnvironment{{"http_proxy=", "HTTP_PROXY=", "no_proxy=", "NO_PROXY="}};

const char* const kPythonClient = R"(
import sys, urllib.request, urllib.error
proxy, url, method, upload, out = sys.argv[1:]
class KeepRedirects(urllib.request.HTTPRedirectHandler):
    def redirect_request(self, *args): return None
opener = urllib.request.build_opener(KeepRedirects, urllib.request.ProxyHandler({'http': proxy} if proxy else {}))
data = open(upload, 'rb').read() if upload else None
# An iterable body has no length: urllib sends it chunked.
body = iter([data[:len(data) // 2], data[len(data) // 2:]]) if data else None
request = urllib.request.Request(url, data=body, method=method, headers={'Content-Type': 'x/y'} if data else {})
try: response = opener.open(request)
except urllib.error.HTTPError as error: response = error
open(out, 'wb').write(response.read())
print(response.getcode(), response.headers.get('Location', '-'))
)";

enum class Client { kCurl, kCurlHttp10, kPython };

/** Fetches `url` with the client program, through `proxy` when it is not empty. */
Fetched Fetch(Client client, const std::string& proxy, const std::string& url, const std::string& method,
              const std::string& upload, const std::string& name) {
  const std::string in = Home() + "/" + name + ".in", out = Home() + "/" + name + ".out";
  const std::string headers = Home() + "/" + name + ".head";
  if (!upload.empty()) WriteFile(in, upload);
  std::vector<std::string> argv;
  if (client == Client::kPython) {
    argv = {"/usr/bin/python3", "-c", kPythonClient, proxy, url, method, upload.empty() ? "" : in, out};
  } else {
    argv = {"/usr/bin/curl", "-sS", "-o", out, "-D", headers, "-w", "%{http_code} -", url};
    if (!proxy.empty()) argv.insert(argv.end(), {"-x", proxy});
    if (client == Client::kCurlHttp10) argv.push_back("--http1.0");
    if (!upload.empty()) argv.insert(argv.end(), {"--data-binary", "@" + in, "-H", "Content-Type: x/y"});
  }
  const ChildResult run = RunChild(argv, kNoProxyEnvironment);
  EXPECT_EQ(run.exitCode, 0) << name << ": " << run.err;
  Fetched fetched;
  std::istringstream(run.out) >> fetched.status >> fetched.location;
  std::smatch location;
  const std::string head = ReadFile(headers);
  if (std::regex_search(head, location, std::regex(R"(\n[Ll]ocation: (\S+))"))) fetched.location = location[1];
  fetched.body = ReadFile(out);
  return fetched;
}

/** Sends raw bytes (then closes the sending side) and reads everything the proxy answers. */
std::string RawExchange(int port, const std::string& request) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in address {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string answer;
  if (connect(fd, reinterpret_cast<struct sockaddr*>(&address), sizeof address) == 0 &&
      send(fd, request.data(), request.size(), MSG_NOSIGNAL) == static_cast<ssize_t>(request.size())) {
    shutdown(fd, SHUT_WR);
    char buffer[65536];
    for (ssize_t got; (got = recv(fd, buffer, sizeof buffer, 0)) > 0;) answer.append(buffer, static_cast<size_t>(got));
  }
  close(fd);
  return answer;
}

class ProxyClients : public testing::TestWithParam<std::tuple<bool, Client>> {};

}  // namespace

TEST_P(ProxyClients, PassExchangesThroughUntouched) {
  const auto [reverse, client] = GetParam();
  LoopbackHttp server;
  AddRoutes(server.Routes());
  server.Start();
  const std::string origin = "http://127.0.0.1:" + std::to_string(server.Port());
  Daemon daemon;
  Proxy proxy(PALVONAUTH_PATH,
              reverse ? std::vector<std::string>{"--upstream", origin + "/app/"} : std::vector<std::string>{});
  struct Row {
    const char* method;
    std::string path;
    std::string upload;
    Fetched expected;
  };
  const std::vector<Row> rows = {
      {"GET", "/bytes/3000000", "", {200, "-", Pattern(3000000)}},
      {"GET", "/chunked/1000000", "", {200, "-", Pattern(1000000)}},
      {"POST", "/echo", Reversed(Pattern(2100000)), {200, "-", Reversed(Pattern(2100000))}},
      {"GET", "/status/404", "", {404, "-", "status 404\n"}},
      {"GET", "/redirect", "", {302, "/elsewhere", "moved\n"}},
  };
  for (size_t i = 0; i < rows.size(); ++i) {
    const Row& row = rows[i];
    const Fetched got = reverse
                            ? Fetch(client, "", proxy.Url() + row.path, row.method, row.upload, std::to_string(i))
                            : Fetch(client, proxy.Url(), origin + row.path, row.method, row.upload, std::to_string(i));
    EXPECT_EQ(got.status, row.expected.status) << row.path;
    EXPECT_EQ(got.location, row.expected.location) << row.path;
    EXPECT_TRUE(got.body == row.expected.body) << row.path << ": " << got.body.size() << " bytes";
  }
}

namespace {

std::string CaseName(const testing::TestParamInfo<std::tuple<bool, Client>>& info) {
  const char* clients[] = {"curl", "curl_http10", "python"};
  return std::string(std::get<0>(info.param) ? "reverse_" : "forward_") +
         clients[static_cast<int>(std::get<1>(info.param))];
}

}  // namespace

INSTANTIATE_TEST_SUITE_P(Modes, ProxyClients,
                         testing::Combine(testing::Bool(),
                                          testing::Values(Client::kCurl, Client::kCurlHttp10, Client::kPython)),
                         CaseName);

TEST(Proxy, AnswersBadRequestsWithoutDisturbingOthers) {
  LoopbackHttp server;
  AddRoutes(server.Routes());
  server.Start();
  const std::string origin = "http://127.0.0.1:" + std::to_string(server.Port());
  Daemon daemon;
  // One worker: a client that stalls in its head must not hold up anyone.
  Proxy proxy(PALVONAUTH_PATH, {"--workers", "1", "--max-body", "1000"});
  const int stalled = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  struct sockaddr_in address {};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(proxy.Port()));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ASSERT_EQ(connect(stalled, reinterpret_cast<struct sockaddr*>(&address), sizeof address), 0);
  ASSERT_EQ(send(stalled, "GET http://127.0.0.1/ HT", 24, 0), 24);
  struct Row {
    std::string request;
    std::vector<std::string> present, absent = {};
  };
  const std::string get = "GET " + origin;
  const std::vector<Row> rows = {
      {"CONNECT example.com:443 HTTP/1.1\r\nHost: example.com:443\r\n\r\n",
       {"HTTP/1.1 501 ", "done by the authentication-manager service", "--upstream https://"}},
      {"GET /bytes/5 HTTP/1.1\r\nHost: x\r\n\r\n", {"HTTP/1.1 400 ", "forward proxy", "http_proxy="}},
      {"BREW\r\n\r\n", {"HTTP/1.1 400 ", "METHOD target"}},
      {get + "/bytes/5 HTTP/2.0\r\n\r\n", {"HTTP/1.1 505 "}},
      {get + "/" + std::string(9000, 'a') + " HTTP/1.1\r\n\r\n", {"HTTP/1.1 414 "}},
      {get + "/bytes/5 HTTP/1.1\r\nX: " + std::string(70000, 'a') + "\r\n\r\n", {"HTTP/1.1 431 "}},
      {get + "/bytes/5 HTTP/1.1\r\n" +
           [] {
             std::string many;
             for (int i = 0; i < 101; ++i) many += "X: 1\r\n";
             return many;
           }() +
           "\r\n",
       {"HTTP/1.1 431 "}},
      {get + "/bytes/5 HTTP/1.1\r\n Folded: x\r\n\r\n", {"HTTP/1.1 400 "}},
      {get + "/bytes/5 HTTP/1.1\r\nBad Name: x\r\n\r\n", {"HTTP/1.1 400 "}},
      {"GET ftp://127.0.0.1/ HTTP/1.1\r\n\r\n", {"HTTP/1.1 400 ", "neither a path nor an http"}},
      {"POST " + origin + "/echo HTTP/1.1\r\nContent-Length: 5\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n",
       {"HTTP/1.1 400 ", "both Content-Length and Transfer-Encoding"}},
      {"POST " + origin + "/echo HTTP/1.1\r\nContent-Length: 5000\r\n\r\n", {"HTTP/1.1 413 ", "--max-body"}},
      {"POST " + origin + "/echo HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3E9\r\n" + std::string(1001, 'a') +
           "\r\n0\r\n\r\n",
       {"HTTP/1.1 413 "}},
      {"POST " + origin + "/echo HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\nzz\r\n", {"HTTP/1.1 400 "}},
      {"POST " + origin +
           "/echo HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n2;x=y\r\nde\r\n0\r\nT: 1\r\n\r\n",
       {"HTTP/1.1 200 ", "Content-Length: 5\r\n", "\r\n\r\nabcde"}},
      // Hop-by-hop fields stay here; Host is the URL's; Via is added both ways.
      {get + "/headers HTTP/1.1\r\nHost: wrong.example\r\nConnection: X-Hop\r\nX-Hop: 1\r\nX-End: 2\r\n"
             "Proxy-Authorization: Basic eDp5\r\nKeep-Alive: 5\r\nTE: trailers\r\n\r\n",
       {"HTTP/1.1 200 ", "\nX-End: 2\n", "\nVia: 1.1 palvonauth\n",
        "\nHost: 127.0.0.1:", "\r\nVia: 1.1 palvonauth\r\n"},
       {"X-Hop", "Proxy-Authorization", "wrong.example", "Keep-Alive", "TE:"}},
      {get + "/bytes/5 HTTP/1.1\r\nVia: 1.0 other, 1.1 palvonauth\r\n\r\n", {"HTTP/1.1 508 "}},
      {get + "/chunked/300 HTTP/1.0\r\n\r\n", {"HTTP/1.1 200 ", "Connection: close\r\n", Pattern(300)}, {"chunked"}},
      {"HEAD " + origin + "/bytes/300 HTTP/1.1\r\n\r\n",
       {"HTTP/1.1 200 ", "Content-Length: 300\r\n"},
       {Pattern(300).substr(0, 40)}},
  };
  for (const Row& row : rows) {
    const std::string answer = RawExchange(proxy.Port(), row.request);
    for (const std::string& text : row.present)
      EXPECT_NE(answer.find(text), std::string::npos) << row.request.substr(0, 60) << "\n" << answer.substr(0, 600);
    for (const std::string& text : row.absent)
      EXPECT_EQ(answer.find(text), std::string::npos) << row.request.substr(0, 60) << "\n" << answer.substr(0, 600);
  }
  EXPECT_EQ(Fetch(Client::kCurl, proxy.Url(), origin + "/bytes/5", "GET", "", "after").body, Pattern(5));
  close(stalled);
}

TEST(Proxy, ServesSixteenConcurrentClients) {
  LoopbackHttp server;
  AddRoutes(server.Routes());
  server.Start();
  const std::string origin = "http://127.0.0.1:" + std::to_string(server.Port());
  Daemon daemon;
  Proxy proxy(PALVONAUTH_PATH, {"--workers", "4", "--quiet"});
  std::vector<Fetched> got(16);
  std::vector<std::thread> clients;
  for (size_t i = 0; i < got.size(); ++i) {
    clients.emplace_back([&, i] {
      const std::string path = "/bytes/" + std::to_string(5000 + i);
      got[i] = Fetch(i % 2 == 0 ? Client::kCurl : Client::kPython, proxy.Url(), origin + path, "GET", "",
                     "client" + std::to_string(i));
    });
  }
  for (std::thread& client : clients) client.join();
  for (size_t i = 0; i < got.size(); ++i) {
    EXPECT_EQ(got[i].status, 200) << i;
    EXPECT_TRUE(got[i].body == Pattern(5000 + i)) << i << ": " << got[i].body.size() << " bytes";
  }
  EXPECT_EQ(proxy.Log().find("\"GET"), std::string::npos) << "--quiet still logs";
}

TEST(Proxy, AnswersAMissingServiceWith503AndRecovers) {
  LoopbackHttp server;
  AddRoutes(server.Routes());
  server.Start();
  const std::string url = "http://127.0.0.1:" + std::to_string(server.Port()) + "/bytes/7";
  std::optional<Daemon> daemon(std::in_place);
  Proxy proxy(PALVONAUTH_PATH, {"--workers", "1"});
  // Each step: what happens to the service first, then whether it runs.
  enum Step { kKeep, kRestart, kStop, kStart };
  for (const Step step : {kKeep, kRestart, kStop, kKeep, kStart, kKeep}) {
    if (step == kRestart || step == kStop) daemon.reset();
    if (step == kRestart || step == kStart) daemon.emplace();
    const bool running = daemon.has_value();
    const Fetched got = Fetch(Client::kCurl, proxy.Url(), url, "GET", "", "service");
    EXPECT_EQ(got.status, running ? 200 : 503) << step << "\n" << got.body << proxy.Log();
    EXPECT_EQ(got.body.find("no authentication-manager service is running") != std::string::npos, !running);
  }
  EXPECT_NE(proxy.Log().find("\"GET " + url + "\" 503 "), std::string::npos) << proxy.Log();
}

// Every local user can reach the loopback port; only the proxy's own user's
// connections are served, since every request goes out with its logon.
TEST(Proxy, ServesOnlyItsOwnUsersConnections) {
  if (geteuid() != 0) GTEST_SKIP() << "connecting as another user needs root";
  Daemon daemon;
  Proxy proxy(PALVONAUTH_PATH, {"--workers", "1"});
  const std::string request = "GET http://127.0.0.1:1/ HTTP/1.1\r\nHost: 127.0.0.1:1\r\n\r\n";
  for (const uid_t user : {static_cast<uid_t>(65534), geteuid()}) {
    const pid_t child = fork();
    if (child == 0) {
      const std::string answer = user == geteuid() || setuid(user) == 0 ? RawExchange(proxy.Port(), request) : "";
      _exit(answer.size() > 9 ? answer[9] : 1);  // the status's first digit
    }
    const int status = WaitChild(child);
    EXPECT_EQ(status, user == geteuid() ? '5' : '4') << proxy.Log();  // 502: port 1 refuses; 403
  }
  EXPECT_NE(proxy.Log().find("403 "), std::string::npos) << proxy.Log();
}

TEST(Proxy, FinishesATransferInFlightWhenStopped) {
  Gate arrived, release;
  LoopbackHttp server;
  server.Routes().Get("/held", [&](const httplib::Request&, httplib::Response& response) {
    arrived.Arrive();
    release.WaitFor(1);
    response.set_content(Pattern(300000), "application/octet-stream");
  });
  server.Start();
  Daemon daemon;
  Proxy proxy(PALVONAUTH_PATH, {"--workers", "1"});
  Fetched got;
  std::thread client([&] {
    got = Fetch(Client::kCurl, proxy.Url(), "http://127.0.0.1:" + std::to_string(server.Port()) + "/held", "GET", "",
                "held");
  });
  ASSERT_TRUE(arrived.WaitFor(1));
  proxy.Signal(SIGTERM);
  release.Arrive();
  client.join();
  EXPECT_EQ(got.status, 200);
  EXPECT_TRUE(got.body == Pattern(300000)) << got.body.size() << " bytes";
}

TEST(Proxy, RefusesBadOptions) {
  const std::vector<std::pair<std::vector<std::string>, std::string>> rows = {
      {{"--listen", "0.0.0.0:0"}, "--allow-remote"},
      {{"--listen", "localhost"}, "HOST:PORT"},
      {{"--upstream", "ftp://host/"}, "http:// or https://"},
      {{"--upstream", "https://host/a?b"}, "query"},
  };
  for (const auto& [args, message] : rows) {
    std::vector<std::string> argv = {PALVONAUTH_PATH, "proxy"};
    argv.insert(argv.end(), args.begin(), args.end());
    const ChildResult run = RunChild(argv);
    EXPECT_EQ(run.exitCode, 2) << args[1];
    EXPECT_NE(run.err.find(message), std::string::npos) << run.err;
  }
}
