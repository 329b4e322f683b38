// Contents in pieces: what two contents have in common is neither sent nor fetched again.
#ifndef PLATFORM_KEYSTORE_PIECES_H
#define PLATFORM_KEYSTORE_PIECES_H

#include <string>
#include <vector>

#include "platform/keystore/local_store.h"

namespace korvmailserver {

// A database changes by pages; few lie in one piece.
constexpr size_t kPieceSize = 32768;

// In one message to or from a store.
constexpr size_t kPiecesPerMessage = 32;

// The digest of each piece, 32 bytes, in order, as KnownFile::pieces has them.
std::vector<std::string> SplitPieces(const std::string& pieces);

// Bytes of the piece with this number in a content of `size` bytes.
size_t SizeOfPiece(long long size, size_t number);

// Brings `known` up to date with the file at `path`, which is read when its stamp tells nothing or
// something else; `bytes` gets the content then and is empty otherwise. False with `error` set.
bool LookAtFile(const std::string& path, KnownFile& known, std::string& bytes, std::string& error);

// The same for a file that was pulled, whose bytes are taken as they are.
bool LookAtPulledFile(const std::string& path, KnownFile& known, std::string& bytes);

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_PIECES_H
