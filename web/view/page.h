// Pages from templates: texts of people and of the model become HTML here, and nowhere else.
#ifndef MDOMAIN_WEB_VIEW_PAGE_H
#define MDOMAIN_WEB_VIEW_PAGE_H

#include <json/value.h>

#include <string>

namespace mdomain_web {

// The template `name` with the values of `data`, within the layout. In templates
//   {{value}}         is the text of a value, escaped, with control characters and marks of
//                     direction shown as <U+202E>; numbers as they are
//   {{#value}}...     once for each item of an array, for an object, or for a text that is not
//   empty,
//                     a number that is not 0 and true; {{^value}}... otherwise
//   {{#t}}Text{{/t}}  is the text in the language of the reader
//   {{>_name}}        is the template _name, a part of pages
// Throws std::logic_error for a template that is none.
std::string RenderPage(const std::string& name, const Json::Value& data);

// A text as a template shows it.
std::string Escape(const std::string& text);

}  // namespace mdomain_web

#endif  // MDOMAIN_WEB_VIEW_PAGE_H
