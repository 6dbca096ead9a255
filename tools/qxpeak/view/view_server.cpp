#include "tools/qxpeak/view/view_server.h"

#include <spawn.h>
#include <sys/wait.h>

#include <csignal>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>

#include <CLI/CLI.hpp>
#include <httplib.h>

#include "tools/qxpeak/view/page_assets.h"
#include "tools/qxpeak/view/view_api.h"

extern char** environ;

namespace qxpkutil::qxpeak::view {

namespace {

httplib::Server* g_server = nullptr;

void StopOnSignal(int) {
  if (g_server != nullptr) g_server->stop();
}

// Hands the address to the desktop's opener; a machine without one just keeps the printed URL.
void OpenBrowser(const std::string& url, std::ostream& err) {
  const char* args[] = {"xdg-open", url.c_str(), nullptr};
  pid_t pid = 0;
  if (posix_spawnp(&pid, "xdg-open", nullptr, nullptr, const_cast<char* const*>(args), environ) !=
      0) {
    err << "qxpeak view: no browser opener (xdg-open) found; open the address yourself\n";
    return;
  }
  int status = 0;
  waitpid(pid, &status, 0);
}

}  // namespace

int RunView(int argc, const char* const* argv, std::ostream& out, std::ostream& err) {
  CLI::App app("Shows a file's signal and peaks in the browser, with the detection settings, "
               "calculators, labels and binning to adjust them.",
               "qxpeak view");
  std::string file, settings;
  int port = 0;
  bool noBrowser = false;
  app.add_option("file", file, "mzML or two-column text file to show")->required();
  app.add_option("--port", port, "port on 127.0.0.1 (default: a free one)")
      ->check(CLI::Range(0, 65535));
  app.add_flag("--no-browser", noBrowser, "only print the address");
  app.add_option("--settings", settings,
                 "INI settings file to start from (as written by 'qxpeak settings')");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e, out, err);
  }

  ViewState state;
  std::string error;
  if (!OpenViewFile(file, settings, state, error)) {
    err << "qxpeak view: " << error << '\n';
    return 1;
  }

  httplib::Server server;
  std::mutex lock;  // the state and the library's message sink serve one request at a time
  for (const PageAsset& asset : PageAssets()) {
    const std::string route = asset.path == "index.html" ? "/" : "/" + std::string(asset.path);
    server.Get(route, [&asset](const httplib::Request&, httplib::Response& res) {
      res.set_content(std::string(asset.body), std::string(asset.type));
    });
  }
  int boundPort = 0;
  const auto api = [&](const httplib::Request& req, httplib::Response& res) {
    // Only this page may call the API: a request from another site's page cannot send JSON
    // without a CORS preflight (which gets no answer), and one through a rebound DNS name
    // carries a foreign Host. Some calls write files, so neither gets through.
    const std::string hostHeader = req.get_header_value("Host");
    const std::string port = ":" + std::to_string(boundPort);
    if (hostHeader != "127.0.0.1" + port && hostHeader != "localhost" + port) {
      res.status = 403;
      return;
    }
    if (req.method == "POST" &&
        req.get_header_value("Content-Type").rfind("application/json", 0) != 0) {
      res.status = 415;
      return;
    }
    std::lock_guard<std::mutex> guard(lock);
    const ApiReply reply = HandleApi(state, req.method, req.path, req.body);
    res.status = reply.status;
    res.set_content(reply.body, reply.contentType);
  };
  server.Get("/api/.*", api);
  server.Post("/api/.*", api);

  const char* host = "127.0.0.1";
  if (port == 0) {
    port = server.bind_to_any_port(host);
  } else if (!server.bind_to_port(host, port)) {
    port = -1;
  }
  if (port <= 0) {
    err << "qxpeak view: cannot listen on " << host << (port == 0 ? "" : ":" + std::to_string(port))
        << '\n';
    return 1;
  }
  boundPort = port;
  const std::string url = "http://" + std::string(host) + ":" + std::to_string(port) + "/";
  out << "qxpeak view: " << url << " (Ctrl+C stops the server)" << std::endl;
  if (!noBrowser) OpenBrowser(url, err);

  g_server = &server;
  std::signal(SIGINT, StopOnSignal);
  std::signal(SIGTERM, StopOnSignal);
  server.listen_after_bind();
  g_server = nullptr;
  return 0;
}

}  // namespace qxpkutil::qxpeak::view
