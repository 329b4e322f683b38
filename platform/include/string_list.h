// A growing list of C strings, the form in which the account system hands out names.
#ifndef PLATFORM_STRING_LIST_H
#define PLATFORM_STRING_LIST_H

#include <string>
#include <vector>

#include "platform/include/export.h"

struct KLIBCSzList {
  std::vector<std::string> items;
};
using PKLIBCSzList = KLIBCSzList*;

// A new, empty list; `capacity` is a hint, it grows as needed. Null without memory.
MDOMAIN_EXPORT PKLIBCSzList KLIBCSzListAlloc(int capacity);
// Appends a copy. The number of entries afterwards, negative on failure (a null list or text, no
// memory) with the list unchanged. The list may move: `*list` is set to where it is.
MDOMAIN_EXPORT int KLIBCSzListPush(PKLIBCSzList* list, const char* text);
// The entry at `index` from 0; null outside the list. Valid until the list changes.
MDOMAIN_EXPORT const char* KLIBCSzListGet(const KLIBCSzList* list, int index);
// The number of entries; 0 for a null list.
MDOMAIN_EXPORT int KLIBCSzListCount(const KLIBCSzList* list);
// Frees the list; null is allowed.
MDOMAIN_EXPORT void KLIBCSzListFree(PKLIBCSzList list);

#endif  // PLATFORM_STRING_LIST_H
