// Texts of disclaimers that wait beside those in place until their list is in force.
//
// Order of a replacement: the new texts under a name that is tied to the new list, the list, the
// rename. The writer holds a lock on its texts until then, which ends with its process. Texts that
// nobody holds were left by one that was killed: they go into place when the stored list is theirs,
// and away when it is not.
#ifndef LIB_DOMAIN_API_DISCLAIMER_PENDING_CONTENT_H
#define LIB_DOMAIN_API_DISCLAIMER_PENDING_CONTENT_H

#include <json/value.h>

#include <string>

namespace MDOMAIN::API::INTERNAL {

// Where the texts of a list wait whose stored text is `list_text`.
std::string PendingContentPath(int domain_idx, const std::string& list_text);

enum class Others {
  kWait,  // until other writers of the domain's texts are done
  kPass,  // over texts that somebody is writing
};
// Settles what killed writers left of the domain. 0, or negative when it could not. Logs nothing.
int SettlePendingContents(int domain_idx, Others others);

// The texts of one replacement. Results are 0, or negative with an error line.
class PendingContents {
 public:
  PendingContents(int domain_idx, const std::string& list_text);
  ~PendingContents();
  PendingContents(const PendingContents&) = delete;
  PendingContents& operator=(const PendingContents&) = delete;

  // Writes them beside those in place, and holds them.
  int Write(const Json::Value& contents);
  // Puts them into place. After a failure a reader of their list finds them still.
  int Place();
  void Drop();

 private:
  const int domain_idx_;
  const std::string path_;
  int lock_ = -1;
};

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_DISCLAIMER_PENDING_CONTENT_H
