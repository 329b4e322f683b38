#include "tools/mdomain/notes.h"

#include <iostream>
#include <utility>

#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr const char* kClearLine = "\r\033[K";

bool has_status = false;
bool are_kept = false;

std::vector<std::string>& Kept() {
  static std::vector<std::string> kept;
  return kept;
}

void Show(const std::string& text) {
  ClearStatus();
  std::cerr << "mdomain: " << Printable(text) << "\n";
}

}  // namespace

void Note(const std::string& text) {
  if (are_kept) {
    Kept().push_back(text);
  } else {
    Show(text);
  }
}

void KeepNotes() {
  are_kept = true;
}

std::vector<std::string> TakeNotes() {
  return std::exchange(Kept(), {});
}

void ShowNotes() {
  are_kept = false;
  for (const std::string& text : TakeNotes()) {
    Show(text);
  }
}

void ShowStatus(const std::string& text) {
  std::cerr << kClearLine << text << std::flush;
  has_status = true;
}

void ClearStatus() {
  if (has_status) {
    std::cerr << kClearLine << std::flush;
    has_status = false;
  }
}

}  // namespace mdomain
