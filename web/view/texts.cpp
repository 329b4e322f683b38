#include "web/view/texts.h"

#include <libintl.h>

#include <array>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <sstream>

namespace mdomain_web {

namespace {

constexpr std::array<const char*, 1> kLanguages = {"de"};

thread_local const char* language = nullptr;  // null: English, in which the texts are written

std::string CatalogueOf(const char* of) {
  return std::string("mdomain-web-") + of;
}

// Of "de-AT;q=0.8": how much it is liked, 0 to 1; less than 0 for what is no weight.
double WeightOf(const std::string& range) {
  const std::size_t at = range.find(";q=");
  if (at == std::string::npos) {
    return 1;
  }
  std::istringstream text(range.substr(at + 3));
  text.imbue(std::locale::classic());
  double weight = -1;
  text >> weight;
  return weight <= 1 ? weight : -1;
}

bool IsFor(const std::string& range, const char* of) {
  const std::size_t length = strlen(of);
  return strncasecmp(range.c_str(), of, length) == 0 &&
         (range.size() == length || strchr("-;", range[length]) != nullptr);
}

// Of several that are liked alike the first one.
const char* BestOf(const std::string& accepted) {
  const char* best = nullptr;
  double most = 0;
  std::istringstream ranges(accepted.substr(0, 1000));
  for (std::string range; std::getline(ranges, range, ',');) {
    std::string plain;
    for (const char character : range) {
      plain += character == ' ' || character == '\t' ? "" : std::string(1, character);
    }
    const double weight = WeightOf(plain);
    if (IsFor(plain, "en") && weight > most) {
      best = nullptr;
      most = weight;
    }
    for (const char* one : kLanguages) {
      if (IsFor(plain, one) && weight > most) {
        best = one;
        most = weight;
      }
    }
  }
  return best;
}

}  // namespace

// A catalogue of its own for each language: then the locale of a thread, which the host would have
// to know, has no part in it. gettext looks into the folders of all of them, and one alone has it.
void OfferTexts(const std::string& folder) {
  std::string all;
  for (const char* one : kLanguages) {
    all += (all.empty() ? "" : ":") + std::string(one);
    bindtextdomain(CatalogueOf(one).c_str(), folder.c_str());
    bind_textdomain_codeset(CatalogueOf(one).c_str(), "UTF-8");
  }
  // LANGUAGE is for every catalogue of the process. What the system and PAM call their errors by is
  // part of what the library and the log tell, in English, whoever reads it.
  for (const char* others : {"libc", "Linux-PAM"}) {
    bindtextdomain(others, "/nonexistent");
  }
  setlocale(LC_MESSAGES, "C.UTF-8");
  setenv("LANGUAGE", all.c_str(), 1);
}

ReaderLanguage::ReaderLanguage(const std::string& accepted) {
  language = BestOf(accepted);
}

ReaderLanguage::~ReaderLanguage() {
  language = nullptr;
}

std::string Tr(const char* text) {
  return language == nullptr ? text : dgettext(CatalogueOf(language).c_str(), text);
}

}  // namespace mdomain_web
