// The local store with its copy on a server that several machines share.
//
// Every question is answered from the local store. What is written goes there first; the machine
// that manages then brings the copy in line with what it has, whole.
#ifndef PLATFORM_KEYSTORE_COPIED_STORE_H
#define PLATFORM_KEYSTORE_COPIED_STORE_H

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "platform/include/nodes.h"
#include "platform/keystore/local_store.h"
#include "platform/keystore/node_state.h"
#include "platform/keystore/redis_publication.h"

namespace korvmailserver {

class ReplacementFile;

class CopiedStore : public KeyStoreBackend {
 public:
  explicit CopiedStore(const KeyStoreSettings& settings);
  ~CopiedStore() override;

  // The store whose operation failed last.
  std::string Name() const override { return failed_; }
  CopiedStore* Shared() override { return this; }

  bool Get(const std::vector<std::string>& keys, std::map<std::string, std::string>& values,
           std::string& error) override;
  bool List(const std::string& tree, const KeyUse& use, std::string& error) override;
  bool All(std::map<std::string, std::string>& values, std::string& error) override;
  // True when the change is stored here; nodes.h tells whether it was published. Refused on a
  // machine that does not manage.
  bool Write(const Entries& entries, const std::vector<std::string>& removed_keys,
             std::string& error) override;
  bool SetFile(const std::string& key, const std::string& path, std::string& error) override;
  // Of the local store: that one decides whether a change is kept.
  bool IsHealthy(std::string& error) override;

  // The role, and what follows from it; see nodes.h.
  bool ReadNode(NodeState& state, std::string& error);
  bool ReadShared(SharedState& state, std::string& error);
  // Notes that another machine manages, where `shared` says so.
  bool NoteReplaced(const SharedState& shared, NodeState& state, std::string& error);
  bool BeginManaging(const StoreStanding& seen, std::string& error);
  bool BecomeMember(std::string& error);

  // Brings the copy in line with this machine, which manages. False with `error`; the local store
  // then remembers that something is not published.
  bool Publish(bool is_verified, std::vector<std::string>& mended, std::string& error);
  bool Pull(bool accept_older, const std::function<void()>& before_change, PullReport& report,
            std::string& error);

  bool ReadSharedContent(PublishedContent& content, std::string& error);
  bool ReadOwnContent(PublishedContent& content, std::string& error);

  // Runs `work` on the copy; on a failure the next run makes a new connection, with the settings
  // of then.
  bool OnCopy(const std::function<bool(RedisPublication& copy)>& work);

 private:
  // Files that were fetched, by their place in the report.
  using Replacements = std::vector<std::pair<size_t, std::unique_ptr<ReplacementFile>>>;

  bool _ReadState(NodeState& state, std::string& error);
  bool _WriteState(const NodeState& state, std::string& error);
  bool _RequireManager(std::string& error);
  void _Settle();
  bool _Adopt(NodeState& state, std::string& error);
  bool _Gather(Publication& publication, LocalStore::Content& own, std::string& error);
  bool _PublishAs(NodeState& next, Publication& publication, std::string& error);
  void _NotePublication(const SharedState& shared, const Publication& publication,
                        const LocalStore::Content& own, NodeState& state);
  bool _KeepUnpublished(NodeState& state);
  bool _PullFrom(const SharedContent& content, const std::function<void()>& before_change,
                 NodeState& state, PullReport& report, std::string& error);
  bool _FetchFiles(const SharedContent& content, const KnownFiles& stored, PullReport& report,
                   KnownFiles& files, Replacements& replacements);
  static bool _ReplaceFiles(const Replacements& replacements, PullReport& report);
  bool _PullFile(const SharedFile& shared, KnownFile& known, PulledFile& pulled,
                 std::unique_ptr<ReplacementFile>& replacement);
  void _Report(const NodeState& state, const SharedContent& content, const KnownFiles& files);
  void _PublishSoon();

  const KeyStoreSettings settings_;
  LocalStore local_;
  std::unique_ptr<RedisPublication> copy_;
  std::string failed_;
  NodeReport reported_;      // what this machine told the store last
  bool is_settled_ = false;  // the store was asked about an undecided machine
};

// Publications of this process that scopes keep back, and how the last one ended.
struct PendingPublications {
  int open_scopes = 0;
  bool is_due = false;
  std::string why_unpublished;
};
PendingPublications& PublicationsOfProcess();

// A published path, without and with this machine's root prefix.
std::string WithoutRoot(const std::string& path);

}  // namespace korvmailserver

#endif  // PLATFORM_KEYSTORE_COPIED_STORE_H
