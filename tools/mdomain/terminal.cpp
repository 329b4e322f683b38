// Widths are those of characters on a terminal: East Asian ones take two columns, combining ones
// none.
#include "tools/mdomain/terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <numeric>

#include "lib-domain/base/text.h"
#include "tools/mdomain/text.h"

namespace mdomain {
namespace {

constexpr int kUsualWidth = 80;
constexpr int kNarrowest = 6;  // "abc..."
constexpr int kGap = 2;
constexpr const char* kDots = "...";
constexpr int kDotsWidth = 3;

std::string Environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? "" : value;
}

int WidthOf(int terminal) {
  int columns = 0;
  if (MDOMAIN::BASE::ConvertToInt(Environment("COLUMNS"), columns) && columns > 0) {
    return columns;
  }
  struct winsize size {};
  const bool is_told = ioctl(terminal, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return is_told ? size.ws_col : kUsualWidth;
}

const char* CodeOf(Colour colour) {
  switch (colour) {
    case Colour::kBold:
      return "\033[1m";
    case Colour::kRed:
      return "\033[31m";
    case Colour::kGreen:
      return "\033[32m";
    case Colour::kYellow:
      return "\033[33m";
    default:
      return "";
  }
}

// Bytes of the text's beginning that takes at most `width` columns, with the combining characters
// behind its last one.
size_t BytesWithin(const std::string& text, int width) {
  size_t end = 0;
  int used = 0;
  bool is_full = false;
  ForEachCharacter(text, [&](char32_t /*character*/, size_t at, size_t length) {
    used += Width(text.substr(at, length));
    is_full = is_full || used > width;
    end = is_full ? end : at + length;
  });
  return end;
}

}  // namespace

Terminal TerminalOfOutput() {
  Terminal terminal;
  terminal.is_one = isatty(STDOUT_FILENO) != 0;
  if (terminal.is_one) {
    terminal.width = WidthOf(STDOUT_FILENO);
    const std::string kind = Environment("TERM");
    terminal.has_colours = !kind.empty() && kind != "dumb" && Environment("NO_COLOR").empty();
  }
  return terminal;
}

std::string Coloured(const std::string& text, Colour colour) {
  return colour == Colour::kNone ? text : CodeOf(colour) + text + "\033[0m";
}

std::string Cut(const std::string& text, int width) {
  if (Width(text) <= width) {
    return text;
  }
  return width <= kDotsWidth ? text.substr(0, BytesWithin(text, width))
                             : text.substr(0, BytesWithin(text, width - kDotsWidth)) + kDots;
}

std::vector<std::string> Wrap(const std::string& text, int width, bool breaks_words) {
  std::vector<std::string> lines;
  std::string rest = text;
  while (Width(rest) > width) {
    const size_t within = BytesWithin(rest, width);
    const size_t word = rest.find_first_not_of(' ');
    size_t end = rest[within] == ' ' ? within : rest.rfind(' ', within);
    if (end == std::string::npos || end <= word) {
      // At least a character, or a window of one column would not end.
      end = breaks_words ? std::max(within, BytesWithin(rest, 2)) : rest.find(' ', word);
    }
    if (end == std::string::npos || end == 0) {
      break;
    }
    lines.push_back(rest.substr(0, end));
    const size_t next = rest.find_first_not_of(' ', end);
    rest = next == std::string::npos ? "" : rest.substr(next);
  }
  if (!rest.empty() || lines.empty()) {
    lines.push_back(rest);
  }
  return lines;
}

std::vector<int> FittingWidths(std::vector<int> widths, int width) {
  if (widths.empty()) {
    return widths;
  }
  const int gaps = kGap * (static_cast<int>(widths.size()) - 1);
  int excess = std::accumulate(widths.begin(), widths.end(), gaps) - width;
  for (const std::ptrdiff_t first : {1, 0}) {
    while (excess > 0) {
      const auto widest = std::max_element(widths.begin() + first, widths.end());
      if (widest == widths.end() || *widest <= kNarrowest) {
        break;
      }
      --*widest;
      --excess;
    }
  }
  return widths;
}

}  // namespace mdomain
