// The machines that share a key store: which one manages, what is published, and who has it.
//
// The managing machine has everything: its files, and every key in the embedded store beside them.
// The shared store is a copy of that, and each other machine pulls a copy of the copy and answers
// from it. Nothing is read from the shared store to answer a question about the mail system, so a
// store that is away, empty, evicted or older takes nothing from anybody.
//
// Who manages is a name, an id that a machine makes once, and a term that rises whenever another
// machine begins. Each publication compares all of them inside its transaction, and carries a
// number that rises by one.
//
// Unless it says otherwise a function that returns false has written one log line, and has changed
// nothing. None of them waits longer than the key store's time-outs, pulling and publishing of
// content aside. What asks for a shared store fails where the host settings name none.
#ifndef PLATFORM_NODES_H
#define PLATFORM_NODES_H

#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "platform/include/export.h"

namespace korvmailserver {

enum class NodeRole {
  kAlone,      // the key store is not shared
  kUndecided,  // nobody has said yet what this machine is; it publishes nothing
  kManager,    // it publishes what it changes
  kMember,     // it pulls, and changes nothing
  kReplaced,   // it managed until another machine did; its files are as it left them
};

// What this machine remembers; the store is not asked.
struct NodeStanding {
  NodeRole role = NodeRole::kAlone;
  std::string name;       // what this machine is called
  std::string manager;    // the machine that manages, as far as this one knows; may be empty
  long long term = 0;     // of its management; 0: none is known
  long long version = 0;  // the publication that this machine made or pulled last; 0: none
  long long time = 0;     // when it was made, seconds since 1970; 0: none
  long long unpublished_since = 0;  // there is a change here that the store lacks; 0: none
};

// What the store says.
struct StoreStanding {
  bool is_empty = true;  // nobody manages: nothing was ever published there, or it was lost
  std::string manager;
  long long term = 0;
  long long version = 0;
  long long time = 0;   // of the publication, seconds since 1970
  bool is_own = false;  // this machine manages, by name, id and term
  // What this machine published last is in the store, or another machine went on from it. Where it
  // is not, that publication went to another store, or to this one before it was set back.
  bool is_followed = true;
};

// "node" of the host settings; without it the host name, with the root prefix when there is one.
MDOMAIN_EXPORT std::string NodeName();

// An undecided machine asks the store once whether it was the one that published in the form of
// before terms: then it is the manager, of term 1, and takes every key over; where another machine
// was, it is a member.
MDOMAIN_EXPORT bool ReadNodeStanding(NodeStanding& standing);
// A machine that managed notes here that another one does.
MDOMAIN_EXPORT bool ReadStoreStanding(StoreStanding& standing);

// ---- Publishing ----

// While one lives, changes are kept back; the end of the outermost publishes them in one
// transaction. Without one, each call that changes the store publishes at once. In one thread.
class MDOMAIN_EXPORT PublicationScope {
 public:
  PublicationScope();
  ~PublicationScope();
  PublicationScope(const PublicationScope&) = delete;
  PublicationScope& operator=(const PublicationScope&) = delete;
};

// Why this machine's last publication did not succeed; empty when it did, when nothing was to be
// published, or where the store is not shared. A change is stored on this machine all the same, and
// the next publication brings it.
MDOMAIN_EXPORT std::string WhyUnpublished();

// Sets the keys of those of the files (keys and paths) that exist to their paths, which publishes
// them. True also where the store is not shared: nothing is done then.
MDOMAIN_EXPORT bool PublishChangedFiles(
    const std::vector<std::pair<std::string, std::string>>& files);

// Brings the store in line with this machine, which manages: whatever is missing, different, not
// ours or damaged there. Reads every published content back, and adds one sentence for each thing
// that was not as it should be to `mended`. False with the log line also when this machine does not
// manage.
MDOMAIN_EXPORT bool PublishVerified(std::vector<std::string>& mended);

// ---- Who manages ----

// This machine manages from now on, in a term above every one that it or the store knows, and
// publishes what it has. Within the store's transaction manager, term and publication there must
// still be those of `seen`; nothing is changed otherwise, here or there.
MDOMAIN_EXPORT bool BeginManaging(const StoreStanding& seen);
// This machine pulls from now on. Its files and keys stay until the first pull.
MDOMAIN_EXPORT bool BecomeMember();

// ---- Content ----

struct PublishedFile {
  std::string key;
  std::string path;  // without a root prefix
  long long size = 0;
  std::string digest;  // SHA-256 of the content, in hexadecimal
};

struct PublishedContent {
  std::map<std::string, std::string> keys;     // those of files have paths without a root prefix
  std::map<std::string, PublishedFile> files;  // by key
};

// What the store has, of one publication and as it was published, else it is a failure; and what
// this machine has.
MDOMAIN_EXPORT bool ReadStoreContent(PublishedContent& content);
MDOMAIN_EXPORT bool ReadOwnContent(PublishedContent& content);

// ---- Pulling ----

enum class PullResult {
  kFailed,     // one log line; the old file is untouched
  kUnchanged,  // the file is there already with this content
  kReplaced,   // written beside the old one, synced and renamed over it
  kRemoved,    // pulled before, and no longer published
};

struct PulledFile {
  std::string key;
  std::string path;  // without a root prefix
  PullResult result = PullResult::kFailed;
};

struct PullReport {
  long long version = 0;          // of the publication in the store
  bool is_older = false;          // it is older than what this machine has, and was not taken
  std::vector<PulledFile> files;  // ascending by key
  std::vector<std::string> keys;  // that changed here, files aside, ascending
};

// Brings what is published to this machine, which is a member: first the files, each to where files
// of its key belong below the root prefix (owner "Postara-Server", the mode of its kind, missing
// folders made), then all keys at once. Only the pieces of a content that this machine lacks are
// fetched. A reader sees the old or the new file, whole; what a killed run leaves beside it is
// removed by the next, which goes on where it ended. The store is not trusted: a key that is not
// known, a path that is not the key's, and anything but a regular file in the way are refused.
//
// A publication with a lower number, or of a lower term, than what this machine has is not taken
// without `accept_older`: `is_older` says so, and the result is true.
//
// False when something could not be pulled, with a log line for each file; the keys and the number
// are then those of before. The store is told what this machine has; a record that cannot be
// written is a warning.
MDOMAIN_EXPORT bool PullPublication(bool accept_older, PullReport& report);
// The same, and calls `before_change` once when everything that is new is here, right before the
// first file or key changes; not at all when none does.
MDOMAIN_EXPORT bool PullPublication(bool accept_older, PullReport& report,
                                    const std::function<void()>& before_change);

// Waits until the server tells of a publication, or until the seconds are over. True when it told.
// Where the login may not listen, or the server is away, it only waits, and says so once.
MDOMAIN_EXPORT bool WaitForPublication(int seconds);

// ---- Looking ----

// A machine that has pulled, as it said itself.
struct NodeReport {
  std::string name;
  long long term = 0;
  long long version = 0;
  long long time = 0;                          // when it said so, seconds since 1970
  std::map<std::string, std::string> digests;  // of the files that it has, by key
};

// Ascending by name.
MDOMAIN_EXPORT bool ListNodes(std::vector<NodeReport>& nodes);

// What may lose the store's content before it does, a sentence each: it evicts keys, keeps nothing
// on disk, has fewer replicas than asked for, is nearly full, tells nothing about itself; and
// another machine that goes by this one's name.
MDOMAIN_EXPORT bool ListStoreRisks(std::vector<std::string>& risks);

}  // namespace korvmailserver

#endif  // PLATFORM_NODES_H
