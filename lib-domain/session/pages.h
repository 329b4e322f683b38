// Where a page stands in its list. A cursor is the number of what lies before it.
#ifndef LIB_DOMAIN_SESSION_PAGES_H
#define LIB_DOMAIN_SESSION_PAGES_H

#include <algorithm>
#include <string>

#include "lib-domain/base/text.h"
#include "lib-domain/db/domain_db_filter.h"
#include "lib-domain/session/turn.h"

namespace mdomain::session {

class PlaceInList {
 public:
  // Ends the call for a cursor that no list gives.
  PlaceInList(std::size_t page_size, const std::string& cursor)
      : limit_(static_cast<int>(std::clamp<std::size_t>(page_size, 1, 10000))) {
    if (!cursor.empty() && (!MDOMAIN::BASE::ConvertToInt(cursor, offset_) || offset_ < 0)) {
      Refuse(Reason::kInvalid, "\"" + cursor + "\" is no cursor");
    }
  }

  int offset() const { return offset_; }
  int limit() const { return limit_; }

  template <typename T>
  void End(std::size_t total, Page<T>& page) const {
    const std::size_t behind = static_cast<std::size_t>(offset_) + page.items.size();
    page.total = total;
    page.next = page.items.empty() || behind >= total ? "" : std::to_string(behind);
  }

 private:
  int offset_ = 0;
  int limit_;
};

inline void Narrow(const std::string& text, const char* column, bool is_descending,
                   const PlaceInList& place, MDOMAIN::DB::DomainDBFilter& filter) {
  filter.SetLiteralQuery(text);
  filter.SetSortBy(column);
  filter.SetSortDirection(is_descending ? "desc" : "asc");
  filter.SetOffset(place.offset());
  filter.SetLimit(place.limit());
}

}  // namespace mdomain::session

#endif  // LIB_DOMAIN_SESSION_PAGES_H
