// What calls of a session give: values, errors, and lists page by page.
#ifndef MAILSERVER_DOMAIN_SESSION_RESULT_H
#define MAILSERVER_DOMAIN_SESSION_RESULT_H

#include <cstddef>
#include <functional>
#include <iterator>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace mdomain {

enum class Reason {
  kInvalid,      // a value is none of its kind; `refused` of the error names each
  kTaken,        // a name belongs to another domain, user or entry
  kNotFound,     // there is no such domain, user, group, entry or change; or it is not the caller's
  kRefused,      // it cannot be done as things stand: the text says why
  kChanged,      // it is not as it was when the version was read
  kBusy,         // another program holds the lock
  kUnpublished,  // done here, and the shared key store has not got it yet
  kFailed,       // a file, the accounts or a server did not do what was asked
};

struct Refused {
  std::string what;   // "alias", "role", "name", "pattern", "member", "copy", "disclaimer"
  std::string value;  // as it was given
  std::string why;
};

struct Error {
  Reason reason = Reason::kFailed;
  // The number that the described classes give: 5615 without the service account's rights, 5618 a
  // taken name, 5633 an invalid one, 5634 the accounts cannot be read, 5635 not published, else
  // 117.
  unsigned int number = 117;
  std::string text;    // one sentence that names what was wrong
  std::string advice;  // what to do about it; may be empty
  std::vector<Refused> refused;
  std::vector<std::string> log;  // warnings and errors that were logged during the call
};

// What a call gives: a value, an error, or with Reason::kUnpublished both.
template <typename T>
class [[nodiscard]] Result final {
 public:
  Result(T value) : value_(std::move(value)) {}
  Result(Error error) : error_(std::move(error)) {}
  Result(T value, Error unpublished) : value_(std::move(value)), error_(std::move(unpublished)) {}

  // Whether it was done.
  explicit operator bool() const { return value_.has_value(); }
  // Whether it was done and nothing is left to be published.
  bool IsPublished() const { return value_.has_value() && !error_.has_value(); }
  // Throws std::bad_optional_access without a value. That of a result that is not kept is a copy:
  // for (const Domain& domain : *session.Domains()) is safe.
  const T& operator*() const& { return value_.value(); }
  T& operator*() & { return value_.value(); }
  T operator*() && { return std::move(value_).value(); }
  const T* operator->() const { return &value_.value(); }
  // An empty one where there is none.
  const Error& GetError() const {
    static const Error none;
    return error_ ? *error_ : none;
  }

 private:
  std::optional<T> value_;
  std::optional<Error> error_;
};

struct Nothing {};

// Part of a list. Cursors are texts of the list that gave them; "" begins.
template <typename T>
struct Page {
  std::vector<T> items;
  std::string next;       // "" behind the last one
  std::size_t total = 0;  // of all pages, as of this one
};

// A list of any length, page by page while it is walked:
//   for (const User& user : session.Users(domain)) ...
// Each page is of one moment, the list is not. A walk ends early where a page cannot be read: then
// GetError tells why afterwards. For one walk.
template <typename T>
class Range final {
 public:
  using Fetch = std::function<Result<Page<T>>(const std::string& cursor)>;

  class Iterator {
   public:
    using iterator_category = std::input_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = const T*;
    using reference = const T&;

    explicit Iterator(Range* range = nullptr) : range_(range) {}
    const T& operator*() const { return range_->page_.items[range_->at_]; }
    const T* operator->() const { return &**this; }
    Iterator& operator++() {
      if (!range_->_Next()) {
        range_ = nullptr;
      }
      return *this;
    }
    bool operator==(const Iterator& other) const { return range_ == other.range_; }
    bool operator!=(const Iterator& other) const { return range_ != other.range_; }

   private:
    Range* range_;
  };

  explicit Range(Fetch fetch) : fetch_(std::move(fetch)) {}
  Iterator begin() { return Iterator(_Fetch("") ? this : nullptr); }
  Iterator end() { return Iterator(); }
  bool IsWhole() const { return !error_.has_value(); }
  const Error& GetError() const {
    static const Error none;
    return error_ ? *error_ : none;
  }

 private:
  bool _Fetch(const std::string& cursor) {
    Result<Page<T>> page = fetch_(cursor);
    at_ = 0;
    if (!page) {
      error_ = page.GetError();
      return false;
    }
    page_ = std::move(*page);
    return !page_.items.empty();
  }
  bool _Next() {
    return ++at_ < page_.items.size() || (!page_.next.empty() && _Fetch(std::string(page_.next)));
  }

  Fetch fetch_;
  Page<T> page_;
  std::size_t at_ = 0;
  std::optional<Error> error_;
};

}  // namespace mdomain

#endif  // MAILSERVER_DOMAIN_SESSION_RESULT_H
