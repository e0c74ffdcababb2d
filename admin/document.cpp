// The document of a state, and its text.
#include "admin/document.h"

#include <algorithm>
#include <vector>

#include "admin/text.h"
#include "api/delegation_api.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

namespace {

Json::Value DefaultEntries() {
  Json::Value defaults;
  if (!DelegationDelegationDefaultEntriesGet(defaults)) throw Error(Error::kSystem, "there are no default entries");
  return defaults;
}

// The names of the records under these ids, sorted.
template <class Records, class Ids>
Json::Value NamesOf(const Records& records, const Ids& ids) {
  std::set<std::string> names;
  for (const auto id : ids) names.insert(records.at(id).name);
  Json::Value array(Json::arrayValue);
  for (const std::string& name : names) array.append(name);
  return array;
}

Json::Value ToDocument(const State& state, const Delegation& delegation, const Json::Value& defaults) {
  Json::Value document;
  document["name"] = delegation.name;
  document["priority"] = delegation.priority;
  document["color"] = delegation.color;
  document["tabs"] = Json::arrayValue;
  for (const auto& [tab, data] : delegation.entries) {
    if (!defaults.isMember(tab)) continue;
    if (data == "true") {
      document["tabs"].append(tab);
    } else if (data != defaults[tab].asString()) {
      document["entries"][tab] = data;
    }
  }
  document["groups"] = NamesOf(state.groups, delegation.groups);
  document["users"] = NamesOf(state.users, delegation.users);
  return document;
}

// Whether all texts in it are UTF-8; others are replaced when it is written, and would come back as others.
bool IsUtf8(const Json::Value& value) {
  return value.isString() ? FindInvalidByte(value.asString()) == std::string::npos
                          : std::all_of(value.begin(), value.end(), IsUtf8);
}

// One value on one line. What is not plain text is escaped.
std::string OneLine(const Json::Value& value) {
  Json::StreamWriterBuilder writer;
  writer["indentation"] = "";
  writer["emitUTF8"] = true;
  const std::string text = Json::writeString(writer, value);
  if (IsPlain(text)) return text;
  writer["emitUTF8"] = false;
  return Json::writeString(writer, value);
}

// The same of an array or an object, with a space behind each comma and colon.
std::string Spaced(const Json::Value& value) {
  std::string text;
  for (auto element = value.begin(); element != value.end(); ++element) {
    text += text.empty() ? "" : ", ";
    if (value.isObject()) text += OneLine(element.name()) + ": ";
    text += OneLine(*element);
  }
  return value.isObject() ? "{" + text + "}" : "[" + text + "]";
}

std::string DelegationText(const Json::Value& delegation) {
  std::string text;
  for (const char* member : {"name", "was", "priority", "color", "tabs", "entries", "groups", "users"}) {
    if (!delegation.isMember(member)) continue;
    const Json::Value& value = delegation[member];
    text += (text.empty() ? "\"" : ", \"") + std::string(member) + "\": ";
    text += value.isArray() || value.isObject() ? Spaced(value) : OneLine(value);
  }
  return "{ " + text + " }";
}

}  // namespace

Json::Value ToDocument(const State& state) {
  std::vector<const Delegation*> delegations;
  for (const auto& [id, delegation] : state.delegations) delegations.push_back(&delegation);
  std::stable_sort(delegations.begin(), delegations.end(), [](const Delegation* a, const Delegation* b) {
    return a->priority != b->priority ? a->priority > b->priority : a->name < b->name;
  });
  const Json::Value defaults = DefaultEntries();
  Json::Value document;
  document["format"] = 1;
  document["delegations"] = Json::arrayValue;
  for (const Delegation* delegation : delegations) {
    const Json::Value& one = document["delegations"].append(ToDocument(state, *delegation, defaults));
    if (IsUtf8(one)) continue;
    throw Error(Error::kRefused, "a document cannot hold the delegation with id " + std::to_string(delegation->id) +
                                     ": a text in it, or the name of an assignee, is not UTF-8");
  }
  return document;
}

Json::Value ToDocument(const State& state, const Delegation& delegation) {
  return ToDocument(state, delegation, DefaultEntries());
}

Json::Value DocumentsById(const State& state) {
  const Json::Value defaults = DefaultEntries();
  Json::Value documents(Json::objectValue);
  for (const auto& [id, delegation] : state.delegations) {
    documents[std::to_string(id)] = ToDocument(state, delegation, defaults);
  }
  return documents;
}

std::string ToText(const Json::Value& document) {
  std::string text = "{\n  \"format\": " + OneLine(document["format"]) + ",\n  \"delegations\": [\n";
  for (const Json::Value& delegation : document["delegations"]) text += "    " + DelegationText(delegation) + ",\n";
  if (!document["delegations"].empty()) text.erase(text.size() - 2, 1);  // no comma behind the last
  return text + "  ]\n}\n";
}

}  // namespace NIMBO::QUAYPOST_SERVER::admin
