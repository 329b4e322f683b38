// The calls of the library, by name with JSON, with the rights of one person.
#ifndef MDOMAIN_WEB_MODEL_CALLS_H
#define MDOMAIN_WEB_MODEL_CALLS_H

#include <json/value.h>

#include <memory>
#include <stdexcept>
#include <string>

struct mdomain_session;

namespace mdomain_web {

// A call that was not done: the error of the library as it is.
struct CallFailed : std::runtime_error {
  explicit CallFailed(const Json::Value& that);
  Json::Value error;
};

// An error as the library's are, of what this program refuses by itself.
Json::Value ErrorOf(const std::string& reason, const std::string& text,
                    const std::string& advice = "");

class Calls final {
 public:
  // Everything; the history names `person`.
  static Calls OfHost(const std::string& person);
  // With the rights of the account's role in each domain.
  static Calls As(std::uint32_t uid);

  // The whole answer: "value", "published", "error". Throws CallFailed ("busy") while another call
  // takes long.
  Json::Value Answer(const std::string& name, const Json::Value& arguments) const;
  // The value; throws CallFailed without one.
  Json::Value operator()(const std::string& name,
                         const Json::Value& arguments = Json::objectValue) const;

 private:
  explicit Calls(mdomain_session* session);

  std::shared_ptr<mdomain_session> session_;
};

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_MODEL_CALLS_H
