// Documents in files: reading one, saying what is wrong with it and where, and showing what it would change.
#include "document_file.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

#include "admin/document.h"
#include "delegations.h"
#include "errors.h"
#include "names.h"
#include "platform/nimbsdk.h"

namespace delegationctl {

using namespace NIMBO::QUAYPOST_SERVER;

namespace {

std::string ReadText(const std::string& path) {
  std::ostringstream text;
  if (path == "-") {
    text << std::cin.rdbuf();
    return text.str();
  }
  std::error_code ignored;
  const bool isDirectory = std::filesystem::is_directory(path, ignored);
  std::ifstream file(path);
  if (!file || isDirectory) {
    throw Exit(errors::kBadUsage,
               fmt::format("cannot read the file {}: {}", Quoted(path), std::strerror(isDirectory ? EISDIR : errno)));
  }
  text << file.rdbuf();
  return text.str();
}

// The same names looked up as on the command line, for "did you mean". Throws; not if the name has come to exist.
void LookUp(const admin::DocumentError& error) {
  if (error.cause() == admin::DocumentError::kNoUser) ResolveUser(error.name());
  if (error.cause() == admin::DocumentError::kNoGroup) ResolveGroup(error.name());
  if (error.cause() == admin::DocumentError::kNoTab) RequireTab(error.name());
  if (error.cause() == admin::DocumentError::kNoDelegation) FindDelegation(LoadDelegations(), error.name());
}

// `place` stands before what is wrong.
Exit ToExit(const admin::DocumentError& error, const std::string& place) {
  using Cause = admin::DocumentError;
  const std::string text = place + Printable(error.what());
  const char* const refresh = "delegationctl refresh removes who is gone; repeat after it";
  try {
    LookUp(error);
  } catch (const Exit& exit) {
    return {{exit.code, exit.status}, place + exit.text, exit.remedy};
  }
  switch (error.cause()) {
    case Cause::kUserGone:
      return {errors::kNoUser, text, refresh};
    case Cause::kGroupGone:
      return {errors::kNoGroup, text, refresh};
    case Cause::kAmbiguous:
      return {errors::kAmbiguous, text, "\"was\": \"id:7\" says which one; delegationctl list shows the ids"};
    case Cause::kNameTaken:
      return {errors::kNameTaken, text, "choose another name, or leave out \"was\" if it has been renamed already"};
    default:
      break;
  }
  const std::string meant = DidYouMean(error.name(), {"format", "delegations", "name", "was", "priority", "color",
                                                      "tabs", "entries", "users", "groups"});
  return {errors::kBadUsage, text, meant.empty() ? "delegations.json(5) describes such a file" : meant};
}

admin::Plan MakePlan(const Json::Value& document, admin::Prune prune) {
  const NIMBOAccountScope accounts(NIMBOAccountScope::kRemember);
  try {
    return admin::MakePlan(admin::ReadState(), document, prune);
  } catch (const admin::DocumentError&) {
    throw;
  } catch (const admin::Error& error) {
    if (error.kind() != admin::Error::kRefused) throw;
    throw Exit(errors::kRefusedByRule, error.what(), "if they are really to be deleted, repeat with --force");
  }
}

std::string TextOf(const Json::Value& value) {
  return value.isString() ? Quoted(value.asString()) : Printable(value.asString());
}

// "+ a  + b   - c"
std::string Differences(const std::vector<std::string>& added, const std::vector<std::string>& removed) {
  std::vector<std::string> plus, minus;
  for (const std::string& name : added) plus.push_back("+ " + name);
  for (const std::string& name : removed) minus.push_back("- " + name);
  return Joined(plus, "  ") + (added.empty() || removed.empty() ? "" : "   ") + Joined(minus, "  ");
}

std::vector<std::string> Texts(const Json::Value& array) {
  std::vector<std::string> texts;
  for (const Json::Value& text : array) texts.push_back(text.asString());
  return texts;
}

std::string Line(const std::string& field, const std::string& text) {
  return text.empty() ? "" : fmt::format("  {:<8}  {}\n", Printable(field), text);
}

std::string ChangeText(const Json::Value& change) {
  std::string fields;
  std::vector<std::string> on, off;
  for (const Json::Value& field : change["fields"]) {
    const std::string name = field["field"].asString();
    const Json::Value &before = field["before"], &after = field["after"];
    if (name != "name" && name != "color" && after == "true") {
      on.push_back(name);
    } else if (name != "name" && name != "color" && before == "true" && after == "false") {
      off.push_back(name);
    } else if (before.isNull()) {
      fields += Line(name, TextOf(after));
    } else {
      fields += Line(name, TextOf(before) + " -> " + TextOf(after));
    }
  }
  std::sort(on.begin(), on.end());
  std::sort(off.begin(), off.end());
  const std::string id = change["id"].isNull() ? "" : fmt::format(" (id {})", change["id"].asInt());
  return fmt::format("{} {}{}\n", change["action"].asString(), Quoted(change["name"].asString()), id) + fields +
         Line("tabs", Differences(on, off)) +
         Line("users", Differences(Texts(change["users"]["added"]), Texts(change["users"]["removed"]))) +
         Line("groups", Differences(Texts(change["groups"]["added"]), Texts(change["groups"]["removed"])));
}

}  // namespace

DocumentFile::DocumentFile(const std::string& path)
    : name_(path == "-" ? "stdin" : Printable(path)), text_(ReadText(path)) {
  try {
    document_ = admin::ParseDocument(text_);
  } catch (const admin::DocumentError& error) {
    throw ToExit(error, Place(error));
  }
}

std::string DocumentFile::Place(const admin::DocumentError& error) const {
  return fmt::format("{}:{}: ", name_, admin::LineAndColumn(text_, error.offset()));
}

admin::Plan DocumentFile::PlanNow(admin::Prune prune) const {
  try {
    return MakePlan(document_, prune);
  } catch (const admin::DocumentError& error) {
    throw ToExit(error, Place(error));
  }
}

admin::Plan PlanNow(const Json::Value& document, admin::Prune prune) {
  try {
    return MakePlan(document, prune);
  } catch (const admin::DocumentError& error) {
    throw ToExit(error, "");
  }
}

std::string PlanText(const Json::Value& changes) {
  std::string text;
  for (const Json::Value& change : changes) text += ChangeText(change);
  return text;
}

std::string PlanNames(const Json::Value& changes) {
  std::string names;
  for (const Json::Value& change : changes) names += Printable(change["name"].asString()) + "\n";
  return names;
}

}  // namespace delegationctl
