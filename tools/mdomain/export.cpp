// mdomain export: the whole model as one document.
#include <cerrno>
#include <cstring>

#include "lib-domain/api/export_file.h"
#include "lib-domain/document/site.h"
#include "tools/mdomain/apply.h"

namespace mdomain {

std::string ExportedText(const Call& call) {
  const Progress shown = ShownWork(call, "reading the domains");
  return WithDocuments([] {
    return JsonText(MDOMAIN::DOCUMENT::SiteJson(
        MDOMAIN::DOCUMENT::ReadSite(MDOMAIN::DOCUMENT::SiteAccounts())));
  });
}

namespace {

void Export(Call& call) {
  const std::string text = ExportedText(call);
  const std::string file = call.Text("FILE");
  if (file.empty()) {
    call.out().Raw(text);
    return;
  }
  if (MDOMAIN::API::INTERNAL::WriteExport(file, text) < 0) {
    throw Failure(kFailed, file + " could not be written: " + std::strerror(errno));
  }
}

const Register kExport({
    "export",
    "The whole model as one document",
    {{"",
      "Write the whole model as one JSON document",
      "Domains with names, users, groups, roles, aliases, blind copies and disclaimers, and the "
      "settings that people make, by names alone: for a backup that can be read and compared, or "
      "for another machine. The same model gives the same bytes. DKIM keys, the account source and "
      "the history are not in it. export.schema.json describes it.",
      Effect::kReads,
      {Optional("FILE", "Where it goes, for its owner alone; without it to standard output")},
      Export}},
});

}  // namespace
}  // namespace mdomain
