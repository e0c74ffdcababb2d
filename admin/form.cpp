// The members and types of a document, and what can be stored.
#include "admin/form.h"

#include <set>

#include "admin/document.h"
#include "admin/text.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

std::string Quoted(const std::string& text) { return '"' + text + '"'; }

void Require(bool holds, const std::string& otherwise, const Json::Value& at) {
  if (!holds) throw DocumentError(DocumentError::kMalformed, otherwise, at);
}

namespace {

void RequireMembers(const Json::Value& object, const std::set<std::string>& known) {
  for (const std::string& member : object.getMemberNames()) {
    if (known.contains(member)) continue;
    throw DocumentError(DocumentError::kMalformed, "there is no member " + Quoted(member), object[member], member);
  }
}

void RequireTexts(const Json::Value& object, const char* member) {
  if (!object.isMember(member)) return;
  const Json::Value& array = object[member];
  Require(array.isArray(), Quoted(member) + " must be an array of texts", array);
  std::set<std::string> texts;
  for (const Json::Value& text : array) {
    Require(text.isString(), Quoted(member) + " must hold texts", text);
    Require(texts.insert(text.asString()).second, Quoted(text.asString()) + " stands twice", text);
  }
}

void RequireDelegation(const Json::Value& element) {
  Require(element.isObject(), "a delegation must be an object", element);
  RequireMembers(element, {"name", "was", "priority", "color", "tabs", "entries", "users", "groups"});
  Require(element.isMember("name"), "a delegation must have a \"name\"", element);
  for (const char* member : {"name", "was", "color"}) {
    if (element.isMember(member)) {
      Require(element[member].isString(), Quoted(member) + " must be a text", element[member]);
    }
  }
  if (element.isMember("priority")) {
    Require(element["priority"].isInt(), "\"priority\" must be a whole number of 32 bits", element["priority"]);
  }
  for (const char* member : {"tabs", "users", "groups"}) RequireTexts(element, member);
  if (!element.isMember("entries")) return;
  Require(element["entries"].isObject(), "\"entries\" must be an object", element["entries"]);
  for (const Json::Value& data : element["entries"]) Require(data.isString(), "an entry must be a text", data);
}

}  // namespace

void RequireForm(const Json::Value& document) {
  Require(document.isObject(), "a document must be an object", document);
  RequireMembers(document, {"$schema", "format", "delegations"});
  Require(document.isMember("format"), "the document must have a \"format\"", document);
  Require(document["format"].isInt() && document["format"].asInt() == 1, "the format must be 1", document["format"]);
  Require(document["delegations"].isArray(), "the document must have an array \"delegations\"",
          document.isMember("delegations") ? document["delegations"] : document);
  std::set<std::string> names;
  for (const Json::Value& element : document["delegations"]) {
    RequireDelegation(element);
    const Json::Value& name = element["name"];
    Require(names.insert(name.asString()).second, "a second delegation " + Quoted(name.asString()), name);
  }
}

void RequireStorable(const std::string& text, const std::string& what, const Json::Value& at) {
  constexpr std::size_t kLongest = 400;  // the library's statements hold 2047 bytes, every quote doubled
  Require(IsPlain(text), "the " + what + " has control characters or bytes that are not UTF-8", at);
  Require(text.size() <= kLongest, "the " + what + " has " + std::to_string(text.size()) + " bytes, more than 400", at);
}

void RequireName(const std::string& name, const Json::Value& at) {
  RequireStorable(name, "name", at);
  Require(!name.empty(), "the name is empty", at);
  Require(!name.starts_with("id:"), "a delegation cannot be called " + Quoted(name), at);
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
