#include "platform/keystore/pieces.h"

#include <algorithm>
#include <string_view>

#include "platform/include/files.h"
#include "platform/keystore/snapshot.h"
#include "platform/system/file_stamp.h"

namespace korvmailserver {

namespace {

constexpr size_t kDigestSize = SHA256_DIGEST_SIZE;

bool IsKnown(const KnownFile& known, const std::string& path, const std::string& stamp) {
  return !stamp.empty() && known.path == path && known.stamp == stamp;
}

KnownFile Describe(const std::string& path, const std::string& stamp, const std::string& bytes) {
  KnownFile file;
  file.path = path;
  file.stamp = stamp;
  file.size = static_cast<long long>(bytes.size());
  file.digest = DigestOf(bytes);
  for (size_t start = 0; start < bytes.size(); start += kPieceSize) {
    Digest digest;
    digest.Add(std::string_view(bytes).substr(start, kPieceSize));
    file.pieces += digest.Bytes();
  }
  return file;
}

}  // namespace

std::vector<std::string> SplitPieces(const std::string& pieces) {
  std::vector<std::string> digests;
  for (size_t start = 0; start + kDigestSize <= pieces.size(); start += kDigestSize) {
    digests.push_back(pieces.substr(start, kDigestSize));
  }
  return digests;
}

size_t SizeOfPiece(long long size, size_t number) {
  const long long left = size - static_cast<long long>(number * kPieceSize);
  return static_cast<size_t>(std::clamp<long long>(left, 0, kPieceSize));
}

bool LookAtFile(const std::string& path, KnownFile& known, std::string& bytes, std::string& error) {
  bytes.clear();
  const std::string stamp = FileStamp::Of(path).Text();
  if (IsKnown(known, path, stamp)) {
    return true;
  }
  if (!ReadSnapshot(path, bytes, error)) {
    return false;
  }
  known = Describe(path, stamp, bytes);
  return true;
}

bool LookAtPulledFile(const std::string& path, KnownFile& known, std::string& bytes) {
  bytes.clear();
  const std::string stamp = FileStamp::Of(path).Text();
  if (IsKnown(known, path, stamp)) {
    return true;
  }
  if (ReadFile(path, bytes) != 0) {
    return false;
  }
  known = Describe(path, stamp, bytes);
  return true;
}

}  // namespace korvmailserver
