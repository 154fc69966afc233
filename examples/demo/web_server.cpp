// A small web server on the loopback interface for the demo: the reference
// service performs the demo's HTTP requests against it.
//
//   pam_demo_web_server <port-file>
// binds 127.0.0.1 on a free port, writes the port number to <port-file> and
// serves until SIGTERM or SIGINT.
#include <httplib.h>

#include <csignal>
#include <cstdio>
#include <fstream>
#include <string>

namespace {
httplib::Server* g_server = nullptr;
void Stop(int) {
  if (g_server != nullptr) g_server->stop();
}
}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <port-file>\n", argv[0]);
    return 2;
  }
  httplib::Server server;
  g_server = &server;
  server.Get("/hello", [](const httplib::Request&, httplib::Response& response) {
    response.set_header("X-Demo", "palvon");
    response.set_content("Hello from the demo web server.\n", "text/plain");
  });
  server.Post("/echo", [](const httplib::Request& request, httplib::Response& response) {
    response.status = 201;
    response.set_header("X-Received-Bytes", std::to_string(request.body.size()));
    const std::string type =
        request.has_header("Content-Type") ? request.get_header_value("Content-Type") : "application/octet-stream";
    response.set_content(request.body, type);
  });
  const int port = server.bind_to_any_port("127.0.0.1");
  if (port <= 0) {
    std::fprintf(stderr, "cannot bind a port on 127.0.0.1\n");
    return 1;
  }
  {
    std::ofstream out(argv[1]);
    out << port << "\n";
  }
  std::signal(SIGTERM, Stop);
  std::signal(SIGINT, Stop);
  server.listen_after_bind();
  return 0;
}
