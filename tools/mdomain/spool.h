// Bytes on their way to standard output, of any number: more than a little waits in a file without
// a name, so that a listing of a million users does not stand in memory.
#ifndef TOOLS_MDOMAIN_SPOOL_H
#define TOOLS_MDOMAIN_SPOOL_H

#include <cstddef>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace mdomain {

class Spool {
 public:
  void Append(std::string_view bytes);
  // Calls `use` with all bytes in order, piece by piece, until it answers false: then false. Throws
  // a Failure when the file cannot be read back.
  bool ForEachPiece(const std::function<bool(std::string_view)>& use) const;
  // ForEachPiece, line by line, without the line ends; every line has one.
  void ForEachLine(const std::function<void(std::string_view)>& use) const;
  void Clear();

 private:
  void _MoveOut();

  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  std::unique_ptr<std::FILE, Closer> file_;
  size_t in_file_ = 0;    // bytes; those in memory follow them
  bool is_full_ = false;  // the disk takes no more, or has no place for the file
  std::string memory_;
};

}  // namespace mdomain

#endif  // TOOLS_MDOMAIN_SPOOL_H
