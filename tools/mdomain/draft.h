// A text that somebody edits: a file for its owner alone, in a folder of its own, where what an
// editor leaves beside it (backups, swap files) is private too.
#ifndef TOOLS_MDOMAIN_DRAFT_H
#define TOOLS_MDOMAIN_DRAFT_H

#include <string>

namespace mdomain {

class Draft {
 public:
  // The file `name` with this text, below TMPDIR; throws a Failure when it cannot be made.
  Draft(const std::string& name, const std::string& text);
  // Removes it, unless it has another text by now that was not Used.
  ~Draft();
  Draft(const Draft&) = delete;
  Draft& operator=(const Draft&) = delete;

  const std::string& path() const { return path_; }
  // What it says now; throws a Failure when it cannot be read.
  std::string Text() const;
  // Whether somebody has written what would be lost.
  bool IsChanged() const;
  // Its text has done what it was written for.
  void Use() { is_used_ = true; }

 private:
  std::string folder_;
  std::string path_;
  std::string text_;  // as it was made
  bool is_used_ = false;
};

// Opens the file in $VISUAL, else $EDITOR (a program and its arguments, blanks between them, no
// shell), else "editor" or "vi", and waits. Throws a Failure when that cannot be started, or when
// it says that it failed.
void EditFile(const std::string& path);

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_DRAFT_H
