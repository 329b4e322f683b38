// The templates, style sheets and scripts, which are part of the program.
#ifndef MDOMAIN_WEB_VIEW_FILES_H
#define MDOMAIN_WEB_VIEW_FILES_H

#include <string>
#include <vector>

namespace mdomain_web {

// By its name below web/ ("static/style.css"); null when there is none.
const std::string* FindFile(const std::string& name);
// Names of the files below a folder ("templates/"), without it.
std::vector<std::string> FileNames(const std::string& folder);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_VIEW_FILES_H
