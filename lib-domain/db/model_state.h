// The domain database as a whole: who may write it, whether it is empty on purpose, whether it
// changed.
//
// Over the process-wide handler. True on success; a failure is false and one error line that says
// what failed, after SQLite's reason.
#ifndef LIB_DOMAIN_DB_MODEL_STATE_H
#define LIB_DOMAIN_DB_MODEL_STATE_H

#include <string>

namespace MDOMAIN::DB::INTERNAL {

// Within a BatchScope: nobody else writes from now on until the scope ends, so that what is read
// still holds when it is written upon. Waits for other processes as every write does.
bool BeginWriting();

// What a model without domains means: a file that is new, or lost what it had, is kNothing; one
// whose last domain was deleted remembers that it is empty on purpose.
enum class Content { kDomains, kNothing, kEmptied };
bool GetContent(Content& content);
// Has the file remember it when there is no domain left.
bool SetEmptiedIfEmpty();
// Has the file forget it: its domains were never there for others to see.
bool ClearEmptied();

// Whether the model has domains and none of this index, so that nobody would ever see what is
// stored under it. Index 0 is that of what belongs to no domain. Makes no model file.
bool IsUnknownDomain(int domain_idx, bool& is_unknown);

// A text that changes when another connection has committed, and may when this one has.
bool GetDataVersion(std::string& version);

}  // namespace MDOMAIN::DB::INTERNAL

#endif  // LIB_DOMAIN_DB_MODEL_STATE_H
