// The file lies where std::tmpfile puts it, and ends with the program however that ends.
#include "tools/mdomain/spool.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "tools/mdomain/status.h"

namespace mdomain {
namespace {

constexpr size_t kPiece = size_t{1} << 20U;

}  // namespace

void Spool::Append(std::string_view bytes) {
  memory_ += bytes;
  if (memory_.size() >= kPiece && !is_full_) {
    _MoveOut();
  }
}

void Spool::_MoveOut() {
  if (file_ == nullptr) {
    file_.reset(std::tmpfile());
  }
  size_t moved = 0;
  while (file_ != nullptr && moved < memory_.size()) {
    const ssize_t written = pwrite(fileno(file_.get()), memory_.data() + moved,
                                   memory_.size() - moved, static_cast<off_t>(in_file_));
    if (written < 0 && errno == EINTR) {
      continue;
    }
    if (written <= 0) {
      break;
    }
    moved += static_cast<size_t>(written);
    in_file_ += static_cast<size_t>(written);
  }
  is_full_ = moved < memory_.size();
  memory_.erase(0, moved);
}

bool Spool::ForEachPiece(const std::function<bool(std::string_view)>& use) const {
  std::string piece(std::min(kPiece, in_file_), '\0');
  for (size_t at = 0; at < in_file_;) {
    const ssize_t size = pread(fileno(file_.get()), piece.data(),
                               std::min(piece.size(), in_file_ - at), static_cast<off_t>(at));
    if (size < 0 && errno == EINTR) {
      continue;
    }
    if (size <= 0) {
      throw Failure(kFailed, std::string("cannot read the output back: ") +
                                 (size < 0 ? std::strerror(errno) : "it is cut off"));
    }
    if (!use({piece.data(), static_cast<size_t>(size)})) {
      return false;
    }
    at += static_cast<size_t>(size);
  }
  return memory_.empty() || use(memory_);
}

void Spool::ForEachLine(const std::function<void(std::string_view)>& use) const {
  std::string begun;
  ForEachPiece([&](std::string_view piece) {
    for (size_t end = 0; (end = piece.find('\n')) != std::string_view::npos;) {
      begun += piece.substr(0, end);
      use(begun);
      begun.clear();
      piece.remove_prefix(end + 1);
    }
    begun += piece;
    return true;
  });
}

void Spool::Clear() {
  *this = Spool();
}

}  // namespace mdomain
