// The texts of a domain's disclaimers, which lie in a file apart from the list.
//
// Integer results are 0, or negative with one error line unless stated.
#ifndef LIB_DOMAIN_API_DISCLAIMER_CONTENT_H
#define LIB_DOMAIN_API_DISCLAIMER_CONTENT_H

#include <json/value.h>
#include <sys/types.h>

#include <string>

namespace MDOMAIN::API::INTERNAL {

// Of the folders that hold the texts and the backups of lists.
constexpr mode_t kFolderMode = 0755;

// Takes the texts out of `list` and returns what goes into the file: an array of objects with "id"
// and the texts.
Json::Value TakeContents(Json::Value& list);
// Replaces the file at `path`, which belongs to the mail service.
int WriteContents(const std::string& path, const Json::Value& contents);
// Whether these stand in the domain's file, as WriteContents would make it; its owner is mended.
bool AreContentsInPlace(int domain_idx, const Json::Value& contents);
// The key under which other machines find the domain's file.
std::string ContentKey(int domain_idx);
// Publishes the domain's file for other machines.
int PublishContents(int domain_idx);

// Puts the texts into `list`, which is stored as `text`, by "id". A missing file is logged and no
// failure; `list` is then without texts.
int MergeContents(int domain_idx, const std::string& text, Json::Value& list);
// Makes a domain's list with its texts from the stored text. `list` is untouched on failure.
int ComposeList(int domain_idx, const std::string& text, Json::Value& list);

}  // namespace MDOMAIN::API::INTERNAL

#endif  // LIB_DOMAIN_API_DISCLAIMER_CONTENT_H
