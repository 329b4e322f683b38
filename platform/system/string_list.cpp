// The list of C strings in which names travel between the account system and its callers.
#include "platform/include/string_list.h"

#include <algorithm>
#include <exception>
#include <memory>

namespace {

// The wished capacity is a hint from callers; beyond this the list grows by itself.
constexpr int kMaxReserve = 65536;

}  // namespace

PKLIBCSzList KLIBCSzListAlloc(int capacity) {
  try {
    auto list = std::make_unique<KLIBCSzList>();
    list->items.reserve(static_cast<size_t>(std::clamp(capacity, 0, kMaxReserve)));
    return list.release();
  } catch (const std::exception&) {
    return nullptr;
  }
}

int KLIBCSzListPush(PKLIBCSzList* list, const char* text) {
  if (list == nullptr || *list == nullptr || text == nullptr) {
    return -1;
  }
  try {
    (*list)->items.emplace_back(text);
  } catch (const std::exception&) {
    return -1;
  }
  return KLIBCSzListCount(*list);
}

const char* KLIBCSzListGet(const KLIBCSzList* list, int index) {
  if (index < 0 || index >= KLIBCSzListCount(list)) {
    return nullptr;
  }
  return list->items[static_cast<size_t>(index)].c_str();
}

int KLIBCSzListCount(const KLIBCSzList* list) {
  return list == nullptr ? 0 : static_cast<int>(list->items.size());
}

void KLIBCSzListFree(PKLIBCSzList list) {
  delete list;
}
