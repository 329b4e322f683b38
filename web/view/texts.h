// The texts of the program in the language of the reader. Each language has a catalogue, made from
// web/po/LANGUAGE.po; mdomain-web.pot, which scripts/web-texts makes from the templates and from
// what stands within Tr(), is what translators begin with.
#ifndef MDOMAIN_WEB_VIEW_TEXTS_H
#define MDOMAIN_WEB_VIEW_TEXTS_H

#include <string>

namespace mdomain_web {

// Catalogues are LANGUAGE/LC_MESSAGES/mdomain-web-LANGUAGE.mo below the folder. Once, before the
// first thread.
void OfferTexts(const std::string& folder);

// While one lives, Tr of this thread answers in the language of all offered ones that the reader
// likes best (RFC 9110, Accept-Language), or in English.
class ReaderLanguage final {
 public:
  explicit ReaderLanguage(const std::string& accepted);
  ~ReaderLanguage();
  ReaderLanguage(const ReaderLanguage&) = delete;
  ReaderLanguage& operator=(const ReaderLanguage&) = delete;
};

std::string Tr(const char* text);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_VIEW_TEXTS_H
