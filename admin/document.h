/// Delegations as a document that people write and keep in files.
///
///   {"format": 1, "delegations": [
///     {"name": "Helpdesk", "priority": 20, "color": "none", "tabs": ["log_list", "queue"],
///      "groups": ["helpdesk"], "users": []},
///   ]}
///
/// "name" is required. "tabs" are switched on, all others have their default; "entries" is {TAB: TEXT} for other data.
/// "was" is the name of the delegation that is to get the new one, or "id:7". "users" and "groups" are managed by the
/// document only where they are given. What such a document would change is plan.h's.
#pragma once

#include <json/json.h>

#include <cstddef>
#include <string>

#include "admin/error.h"
#include "admin/state.h"

namespace NIMBO::QUAYPOST_SERVER::admin {

/// The document of a state: highest priority first, then name, then id; users, groups and tabs by name, sorted. Data
/// that is neither "true" nor the default is in "entries"; entries of unknown types are left out. Equal databases give
/// equal documents. Throws Error::kRefused where a text is not UTF-8, which no document can hold.
MAILSERVER_EXPORT Json::Value ToDocument(const State& state);

/// The same of one delegation: its element in "delegations".
MAILSERVER_EXPORT Json::Value ToDocument(const State& state, const Delegation& delegation);

/// The same of all, {ID: element}, to tell whether delegations have changed.
MAILSERVER_EXPORT Json::Value DocumentsById(const State& state);

/// A document as text, one line per delegation. Parses back to the same document, except that bytes which are not
/// UTF-8 become U+FFFD.
MAILSERVER_EXPORT std::string ToText(const Json::Value& document);

/// What is wrong with a document, and where in its text.
class MAILSERVER_EXPORT DocumentError : public Error {
 public:
  enum Cause {
    kMalformed,     ///< no JSON, or not the members and types that it must have
    kNoDelegation,  ///< "was" names a delegation that is not stored
    kNoUser,        ///< not an account of this host
    kNoGroup,
    kNoTab,
    kUserGone,  ///< the host no longer has one who keeps the delegation; a refresh removes who is gone
    kGroupGone,
    kAmbiguous,  ///< several stored delegations have the name
    kNameTaken,  ///< a delegation that the document leaves alone has the name
  };

  /// `at` is the value that is wrong, `name` the name in question.
  DocumentError(Cause cause, const std::string& text, const Json::Value& at, std::string name = "");
  DocumentError(Cause cause, const std::string& text, std::size_t offset);
  ~DocumentError() override;

  Cause cause() const { return cause_; }
  std::size_t offset() const { return offset_; }  ///< in the parsed text; 0 for a document that was not parsed here
  const std::string& name() const { return name_; }

 private:
  Cause cause_;
  std::size_t offset_;
  std::string name_;
};

/// The JSON in `text`, where comments and commas behind the last element are welcome. Its values know their place in
/// the text. Throws DocumentError for everything that is no JSON, and for duplicate keys, numbers that are not whole,
/// control characters in texts and bytes that are not UTF-8. What the members mean is looked at by MakePlan.
MAILSERVER_EXPORT Json::Value ParseDocument(const std::string& text);

/// "7:20": line and column, in characters and from 1, of an offset.
MAILSERVER_EXPORT std::string LineAndColumn(const std::string& text, std::size_t offset);

}  // namespace NIMBO::QUAYPOST_SERVER::admin
