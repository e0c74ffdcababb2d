/// What a document must look like, and what can be stored. Each throws DocumentError. Private.
#pragma once

#include <json/json.h>

#include <string>

namespace NIMBO::QUAYPOST_SERVER::admin {

std::string Quoted(const std::string& text);

/// Unless it holds, `at` is malformed.
void Require(bool holds, const std::string& otherwise, const Json::Value& at);

/// Members and types; no name of a delegation twice.
void RequireForm(const Json::Value& document);

/// Text that is going to be stored; `what` is it.
void RequireStorable(const std::string& text, const std::string& what, const Json::Value& at);

/// The new name of a delegation.
void RequireName(const std::string& name, const Json::Value& at);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
