// What the administrator decides about the pages: etc/mailserver-domain/web.ini below the root.
#ifndef MDOMAIN_WEB_SETTINGS_H
#define MDOMAIN_WEB_SETTINGS_H

#include <string>

namespace mdomain_web {

struct Settings {
  // [listen]
  std::string socket;                 // path of a unix socket; else the address below
  std::string address = "127.0.0.1";  // of loopback only: HTTP goes over no network
  int port = 8025;
  // [site]
  std::string url;  // as browsers see it; "https://..." keeps cookies to encrypted connections
  // [sign-in]
  std::string service = "mdomain-web";  // of PAM
  std::string administrators;  // group of the host whose members may do everything; "": none
  std::string
      header;  // in which the proxy names who is signed in; passwords are not asked for then
  int idle_minutes = 30;
  int longest_hours = 12;

  bool IsHttps() const { return url.compare(0, 8, "https://") == 0; }
};

// A missing file gives the defaults. Throws std::runtime_error that names file, line and what was
// wrong: an unknown section or key, a number out of its range, an address that is not of loopback.
Settings ReadSettings(const std::string& file);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_SETTINGS_H
