#include <cstdlib>
#include <cstring>
#include <new>

#include "lib-domain/session/json_call.h"
#include "lib-domain/session/json_record.h"
#include "lib-domain/session/json_text.h"
#include "lib-domain/session/mdomain.h"
#include "lib-domain/session/turn.h"

struct mdomain_session {
  mdomain::Session session;
};

namespace {

using mdomain::Session;

Json::Value Parsed(const char* text) {
  Json::Value value;
  const std::string problem = text == nullptr ? "" : mdomain::session::ParseJson(text, value);
  if (!problem.empty()) {
    mdomain::session::Refuse(mdomain::Reason::kInvalid, "the arguments are no JSON: " + problem);
  }
  return value;
}

Json::Value Call(Session& session, const char* name, const char* arguments) {
  try {
    return mdomain::session::CallByName(session, name, Parsed(arguments));
  } catch (const mdomain::session::Stop& stop) {
    Json::Value answer;
    answer["error"] = mdomain::session::JsonOf(stop.error);
    return answer;
  }
}

Json::Value Failed(const std::string& text) {
  mdomain::Error error;
  error.text = text;
  Json::Value answer;
  answer["error"] = mdomain::session::JsonOf(error);
  return answer;
}

char* Answer(const Json::Value& value) {
  return strdup(mdomain::session::JsonText(value).c_str());
}

}  // namespace

mdomain_session* mdomain_open(const char* options) {
  try {
    const Json::Value value = Parsed(options);
    mdomain::session::Arguments with(value);
    Session::Options chosen;
    chosen.lock_timeout = with.Int("lock_timeout", chosen.lock_timeout);
    chosen.person = with.Text("person", "");
    with.End();
    return new mdomain_session{Session(chosen)};
  } catch (const std::exception&) {
    return nullptr;
  }
}

mdomain_session* mdomain_as(const mdomain_session* session, unsigned int uid) {
  try {
    return session == nullptr ? nullptr : new mdomain_session{session->session.As(uid)};
  } catch (const std::exception&) {
    return nullptr;
  }
}

void mdomain_close(mdomain_session* session) {
  delete session;
}

// No exception may reach a caller in C: what is none of the calls' own is told like theirs.
char* mdomain_call(mdomain_session* session, const char* name, const char* arguments) {
  try {
    try {
      return Answer(session == nullptr || name == nullptr
                        ? Failed("the session or the name of the call is missing")
                        : Call(session->session, name, arguments));
    } catch (const std::bad_alloc&) {
      return nullptr;
    } catch (const std::exception& exception) {
      return Answer(Failed(exception.what()));
    }
  } catch (const std::exception&) {
    return nullptr;
  }
}

void mdomain_free(char* answer) {
  std::free(answer);
}
