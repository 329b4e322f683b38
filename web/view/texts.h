// The texts of the program in the language of the reader: one catalogue, mdomain-web, which
// scripts/web-texts makes from the templates and from what stands within Tr().
#ifndef MDOMAIN_WEB_VIEW_TEXTS_H
#define MDOMAIN_WEB_VIEW_TEXTS_H

#include <libintl.h>

#include <string>

namespace mdomain_web {

inline std::string Tr(const char* text) {
  return dgettext("mdomain-web", text);
}

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_VIEW_TEXTS_H
