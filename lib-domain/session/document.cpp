// The whole model as a document, and back.
#include "lib-domain/base/text.h"
#include "lib-domain/document/site.h"
#include "lib-domain/session/access.h"
#include "lib-domain/session/json_text.h"

namespace mdomain {

using MDOMAIN::DOCUMENT::Problem;
using MDOMAIN::DOCUMENT::SiteAccounts;
using MDOMAIN::DOCUMENT::TypedSite;
using session::Fail;
using session::Refuse;

namespace {

// What a problem of the library is for the caller.
template <typename Work>
auto WithDocuments(const Work& work) {
  try {
    return work();
  } catch (const Problem& problem) {
    if (problem.kind == Problem::kRefused) {
      Refuse(Reason::kInvalid, problem.what());
    }
    Fail(problem.what());
  }
}

ModelDocument DocumentOf(const SiteAccounts& accounts) {
  ModelDocument document;
  document.json =
      session::JsonText(MDOMAIN::DOCUMENT::SiteJson(MDOMAIN::DOCUMENT::ReadSite(accounts)));
  document.version = session::VersionOf({document.json});
  return document;
}

void RequireKnown(const std::vector<std::string>& unknown) {
  session::Refusals refusals;
  for (const std::string& name : unknown) {
    refusals.Add("member", name, "is not in the mirror");
  }
  refusals.End(Reason::kNotFound, "the model stays as it is");
}

}  // namespace

Result<ModelDocument> Session::Export() const {
  return session::Read<ModelDocument>(*this, [&] {
    session::RequireHost(*this, "see the whole model");
    return WithDocuments([] { return DocumentOf(SiteAccounts()); });
  });
}

Result<AppliedDocument> Session::Apply(const std::string& json, bool skip_unknown,
                                       const Version& version) {
  return session::HostChange<AppliedDocument>(*this, "replace the whole model", "apply", [&] {
    return WithDocuments([&] {
      const SiteAccounts accounts;
      if (!version.empty()) {
        session::RequireVersion(version, DocumentOf(accounts).version, "the model");
      }
      TypedSite typed = MDOMAIN::DOCUMENT::ParseSite(json, accounts);
      if (!skip_unknown) {
        RequireKnown(typed.unknown);
      }
      AppliedDocument applied{std::move(typed.unknown), std::move(typed.doubts)};
      MDOMAIN::DOCUMENT::MakeSite(typed.site, accounts, applied.warnings);
      return applied;
    });
  });
}

}  // namespace mdomain
