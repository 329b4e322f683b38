// LMDB never writes over pages of the last two states of a file. Without its own lock file it does
// not know who reads an older one, so a writer lets those who read come to their end once, by an
// exclusive lock that it gives back at once. A look-up takes microseconds, and no state but the
// last one is read afterwards.
#include "platform/postfix/lmdb.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <ctime>

namespace korvmailserver {

namespace {

constexpr mdb_mode_t kMode = 0644;

// Not through a link: the folder belongs to an account with fewer rights than root.
bool IsFileOf(const std::string& path, int descriptor) {
  struct stat named {};
  struct stat opened {};
  return lstat(path.c_str(), &named) == 0 && S_ISREG(named.st_mode) &&
         fstat(descriptor, &opened) == 0 && named.st_dev == opened.st_dev &&
         named.st_ino == opened.st_ino;
}

bool IsLink(const std::string& path) {
  struct stat named {};
  return lstat(path.c_str(), &named) == 0 && S_ISLNK(named.st_mode);
}

}  // namespace

int LmdbFile::Open(const std::string& file, Mode mode, size_t size) {
  Close();
  mode_ = mode;
  if (IsLink(file)) {
    return ELOOP;
  }
  int result = mdb_env_create(&environment_);
  if (result == MDB_SUCCESS) {
    result = mdb_env_set_mapsize(environment_, size);
  }
  if (result == MDB_SUCCESS) {
    const unsigned int flags = MDB_NOSUBDIR | MDB_NOLOCK | (mode == Mode::kRead ? MDB_RDONLY : 0U);
    result = mdb_env_open(environment_, file.c_str(), flags, kMode);
  }
  int descriptor = -1;
  if (result == MDB_SUCCESS) {
    result = mdb_env_get_fd(environment_, &descriptor);
  }
  if (result == MDB_SUCCESS && !IsFileOf(file, descriptor)) {
    result = ELOOP;
  }
  if (result == MDB_SUCCESS && mode == Mode::kWrite) {
    result = _Lock(descriptor, true);
  }
  if (result == MDB_SUCCESS) {
    result = _Lock(descriptor, false);
  }
  if (result != MDB_SUCCESS) {
    Close();
  }
  return result;
}

// The end of the descriptor ends the lock.
void LmdbFile::Close() {
  if (transaction_ != nullptr) {
    mdb_txn_abort(transaction_);
    transaction_ = nullptr;
  }
  if (environment_ != nullptr) {
    mdb_env_close(environment_);
    environment_ = nullptr;
  }
}

int LmdbFile::Begin() {
  int result =
      mdb_txn_begin(environment_, nullptr, mode_ == Mode::kRead ? MDB_RDONLY : 0U, &transaction_);
  if (result == MDB_SUCCESS) {
    result = mdb_dbi_open(transaction_, nullptr, 0, &table_);
  }
  return result;
}

int LmdbFile::Commit() {
  MDB_txn* const transaction = transaction_;
  transaction_ = nullptr;
  return mdb_txn_commit(transaction);
}

size_t LmdbFile::LastTransaction() const {
  MDB_envinfo info = {};
  return mdb_env_info(environment_, &info) == MDB_SUCCESS ? info.me_last_txnid : 0;
}

size_t LmdbFile::Size() const {
  MDB_envinfo info = {};
  MDB_stat status = {};
  const bool is_known = mdb_env_info(environment_, &info) == MDB_SUCCESS &&
                        mdb_env_stat(environment_, &status) == MDB_SUCCESS;
  return is_known ? (info.me_last_pgno + 1) * status.ms_psize : 0;
}

int LmdbFile::_Lock(int descriptor, bool exclusive) const {
  struct flock lock = {};
  lock.l_type = static_cast<short>(exclusive ? F_WRLCK : F_RDLCK);
  lock.l_whence = SEEK_SET;
  // Whoever may read the file can lock it; waiting without end would hold up every change.
  constexpr int kTries = 2000;
  constexpr timespec kPause = {0, 5000000};
  for (int i = 0; i < kTries; ++i) {
    if (fcntl(descriptor, F_SETLK, &lock) == 0) {
      return MDB_SUCCESS;
    }
    if (errno != EINTR && errno != EAGAIN && errno != EACCES) {
      return errno;
    }
    nanosleep(&kPause, nullptr);
  }
  return EBUSY;
}

}  // namespace korvmailserver
