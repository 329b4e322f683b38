/* The calls of mailserver-domain/mdomain.hpp for programs in C and in every language that calls C:
   each by its name, with JSON in and out (RFC 8259, UTF-8).

   Names are those of the methods of mdomain::Session in lower case, with "_" between the words
   ("set_user"); arguments are one object whose members are those of its parameters and of the
   records given to it ({"domain": 1, "uid": 1001, "add_aliases": ["boss"]}). An unknown member is
   refused. Roles are "normal" and "domain_admin", or null for none; copies are "of" "recipient",
   "sender" or "domain"; lists are sorted "by" "name", "alias", "role" or "description". "together"
   takes "command" (at most 1000 bytes) and "calls", objects with "call" and "arguments", and gives
   their values. The answer is {"value": ..., "published": true}, or {"error": {"reason": "taken",
   "number": 5618, "text": ..., "advice": ..., "refused": [...], "log": [...]}}; where something was
   done and not published it has "value", "error" and "published": false. What sessions promise
   about threads, fork and the end of the program holds here, too.

   With "dry_run": true in its arguments a changing call changes nothing, and its value is what it
   would change: {"summary": ..., "changes": [{"what", "change", "text", ...}]}. */
#ifndef MAILSERVER_DOMAIN_MDOMAIN_H
#define MAILSERVER_DOMAIN_MDOMAIN_H

#include "platform/include/export.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct mdomain_session mdomain_session;

/* Opens nothing yet. `options` is an object with "lock_timeout" (seconds) and "person", or null.
   Null when it is neither, or without memory. */
MDOMAIN_EXPORT mdomain_session* mdomain_open(const char* options);
/* The same with the rights of a domain administrator; null without memory, or for null. */
MDOMAIN_EXPORT mdomain_session* mdomain_as(const mdomain_session* session, unsigned int uid);
/* Null is nothing. No call of the session may be under way. */
MDOMAIN_EXPORT void mdomain_close(mdomain_session* session);

/* One call. `arguments` is an object, or null for none. The answer is a text to be given to
   mdomain_free; null without memory. A null session or name is answered with an error. */
MDOMAIN_EXPORT char* mdomain_call(mdomain_session* session, const char* name,
                                  const char* arguments);
MDOMAIN_EXPORT void mdomain_free(char* answer);

#ifdef __cplusplus
}
#endif

#endif /* MAILSERVER_DOMAIN_MDOMAIN_H */
