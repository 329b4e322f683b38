// What the terminal at standard output can show. Where there is none, everything is plain and
// whole.
#ifndef TOOLS_MDOMAIN_TERMINAL_H
#define TOOLS_MDOMAIN_TERMINAL_H

#include <string>
#include <vector>

namespace mdomain {

enum class Colour { kNone, kBold, kRed, kGreen, kYellow };

struct Terminal {
  int width = 0;  // columns of a line; 0: lines are not cut
  bool is_one = false;
  bool has_colours = false;
};

// That of this process. COLUMNS comes before what the terminal says of its width; NO_COLOR (not
// empty) and TERM=dumb keep colours away.
Terminal TerminalOfOutput();

// `text` in a colour; as it is for kNone.
std::string Coloured(const std::string& text, Colour colour);

// The beginning of a printable text that takes at most `width` columns, with "..." for the rest.
// A text that fits stays.
std::string Cut(const std::string& text, int width);

// A printable text in lines of at most `width` columns, broken at blanks. A word that is wider
// stays whole, or where `breaks_words` is broken.
std::vector<std::string> Wrap(const std::string& text, int width, bool breaks_words);

// Widths of columns, two blanks apart, with which a line of them takes at most `width` columns, as
// far as some characters can be left of each. The widest are narrowed first, and the first column,
// which names what the line is about, last.
std::vector<int> FittingWidths(std::vector<int> widths, int width);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_TERMINAL_H
