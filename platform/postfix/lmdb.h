// One LMDB file, opened as Postfix opens it.
#ifndef PLATFORM_POSTFIX_LMDB_H
#define PLATFORM_POSTFIX_LMDB_H

#include <lmdb.h>

#include <cstddef>
#include <string>

namespace korvmailserver {

// Results are LMDB's codes: 0, or what mdb_strerror explains.
class LmdbFile {
 public:
  enum class Mode { kRead, kWrite };

  LmdbFile() = default;
  ~LmdbFile() { Close(); }
  LmdbFile(const LmdbFile&) = delete;
  LmdbFile& operator=(const LmdbFile&) = delete;

  // Opens the file, which must be there, with room for `size` bytes. A writer first waits for other
  // writers, and until everybody who reads now is done: what they read may be written over. EBUSY
  // after ten seconds; ELOOP for a link.
  int Open(const std::string& file, Mode mode, size_t size);
  void Close();
  // Begins the one transaction, which Close gives up.
  int Begin();
  int Commit();

  MDB_txn* Transaction() const { return transaction_; }
  MDB_dbi Table() const { return table_; }
  // Grows with every commit.
  size_t LastTransaction() const;
  size_t Size() const;  // bytes in use

 private:
  int _Lock(int descriptor, bool exclusive) const;

  MDB_env* environment_ = nullptr;
  MDB_txn* transaction_ = nullptr;
  MDB_dbi table_ = 0;
  Mode mode_ = Mode::kRead;
};

}  // namespace korvmailserver

#endif  // PLATFORM_POSTFIX_LMDB_H
