// A list of names as the account system takes and gives them.
#ifndef LIB_DOMAIN_ACCOUNTS_NAME_LIST_H
#define LIB_DOMAIN_ACCOUNTS_NAME_LIST_H

#include "platform/include/string_list.h"

namespace MDOMAIN::UTILS::INTERNAL {

// Freed on every path, also when the account system moved it.
class NameList {
 public:
  NameList() : list_(KLIBCSzListAlloc(kCapacity)) {}
  ~NameList() { KLIBCSzListFree(list_); }
  NameList(const NameList&) = delete;
  NameList& operator=(const NameList&) = delete;

  // False without memory.
  bool IsValid() const { return list_ != nullptr; }
  PKLIBCSzList Get() const { return list_; }
  PKLIBCSzList* Address() { return &list_; }
  int Count() const { return KLIBCSzListCount(list_); }
  const char* At(int index) const { return KLIBCSzListGet(list_, index); }

 private:
  static constexpr int kCapacity = 1024;

  PKLIBCSzList list_;
};

}  // namespace MDOMAIN::UTILS::INTERNAL

#endif  // LIB_DOMAIN_ACCOUNTS_NAME_LIST_H
