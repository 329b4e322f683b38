// mdomain-web [--root DIR] [--config FILE] [--address ADDRESS] [--port PORT] [--socket PATH]
#include <CLI/CLI.hpp>

#include <clocale>
#include <csignal>
#include <iostream>

#include "platform/include/root_path.h"
#include "web/http/listening.h"
#include "web/http/server.h"
#include "web/site.h"
#include "web/view/texts.h"

namespace {

mdomain_web::Server* server = nullptr;

void Stop(int /*signal*/) {
  server->Stop();
}

}  // namespace

int main(int argc, char** argv) {
  using namespace mdomain_web;  // NOLINT(google-build-using-namespace)
  setlocale(LC_ALL, "");
  CLI::App app("Pages and an HTTP interface for the mail domains of this host.", "mdomain-web");
  std::string config = korvmailserver::UnderRoot("/etc/mailserver-domain/web.ini");
  std::string address;
  std::string socket;
  int port = 0;
  std::string state = korvmailserver::UnderRoot("/var/lib/mdomain-web");
  app.add_option("--config", config, "The settings; web.ini(5)");
  app.add_option("--address", address, "An address of loopback");
  app.add_option("--port", port, "A TCP port");
  app.add_option("--socket", socket, "A unix socket, instead of address and port");
  app.add_option("--state", state, "The folder of the tokens");
  std::string texts = MDOMAIN_WEB_LOCALES;
  app.add_option("--texts", texts, "The folder of the texts in other languages");
  app.set_version_flag("--version", MDOMAIN_VERSION);
  CLI11_PARSE(app, argc, argv);
  try {
    Settings settings = ReadSettings(config);
    OfferTexts(texts);
    settings.address = address.empty() ? settings.address : address;
    settings.port = port == 0 ? settings.port : port;
    settings.socket = socket.empty() ? settings.socket : socket;
    const Listening listening(settings);
    Site site(settings, state + "/tokens.db");
    Server running({}, [&site](const httplib::Request& request, httplib::Response& response) {
      site.Answer(request, response);
    });
    server = &running;
    signal(SIGPIPE, SIG_IGN);
    signal(SIGTERM, Stop);
    signal(SIGINT, Stop);
    std::cerr << "mdomain-web: listening on " << listening.GetName() << "\n";
    running.Run(listening.GetSocket());
  } catch (const std::exception& error) {
    std::cerr << "mdomain-web: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
