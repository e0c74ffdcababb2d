// mailserver.conf: found, read with inih, checked, and read again when it changes.
#include "platform/linux/configuration.h"

#include <ini.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <set>
#include <string_view>
#include <system_error>

#include "base/log.h"
#include "platform/linux/input_file.h"
#include "platform/mailserver.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

constexpr std::string_view kBlanks = " \t\r\v\f";

/// Why there is no configuration. Line 0: the file could not be read at all.
struct Problem {
  int line = 0;
  std::string text;
};

bool IsFullPath(const std::string& path) { return path.starts_with('/') && !path.ends_with('/'); }

const char* StoreAccountType(const std::string& value, NIMBOAccountType& type) {
  if (value == "local") {
    type = NIMBO_ACCOUNT_LOCAL;
  } else if (value == "domain") {
    type = NIMBO_ACCOUNT_DOMAIN;
  } else if (value == "ldap") {
    type = NIMBO_ACCOUNT_LDAP;
  } else {
    return "must be local, domain or ldap";
  }
  return nullptr;
}

const char* StorePercentage(const std::string& value, int& percent) {
  int number = 0;
  const char* end = value.data() + value.size();
  const auto [rest, error] = std::from_chars(value.data(), end, number);
  if (error != std::errc() || rest != end || number < 0 || number > 100) return "must be a number from 0 to 100";
  percent = number;
  return nullptr;
}

/// Appends the names in `value`, which commas or blanks separate.
void StoreNames(const std::string& value, std::vector<std::string>& names) {
  constexpr const char* kSeparators = ", \t";
  for (std::size_t end = 0, start; (start = value.find_first_not_of(kSeparators, end)) != std::string::npos;) {
    end = std::min(value.find_first_of(kSeparators, start), value.size());
    names.push_back(value.substr(start, end - start));
  }
}

/// Stores one setting, "[section] key". Null, or what is wrong with it.
const char* Store(const std::string& setting, const std::string& value, Configuration& out) {
  if (setting == "[accounts] type") return StoreAccountType(value, out.account_type);
  if (setting == "[accounts] vanish_limit") return StorePercentage(value, out.vanish_limit);
  if (setting == "[delegation] database") {
    if (!IsFullPath(value)) return "must be a full path";
    out.database = value;
  } else if (setting == "[log] target") {
    if (value != "syslog" && value != "stderr" && !IsFullPath(value)) return "must be syslog, stderr or a full path";
    out.log_target = value;
  } else if (setting == "[accounts] domain") {
    out.domain = value;
  } else if (setting == "[accounts] admin_group") {
    out.admin_group = value;
  } else if (setting == "[accounts] unsupported") {
    StoreNames(value, out.unsupported);
  } else {
    return "there is no such setting";
  }
  return nullptr;
}

/// Feeds inih line by line, so that nothing in the file is skipped or cut silently: inih alone would split long
/// lines, end a line at a NUL and ignore what stands behind a section's name.
class Parser {
 public:
  Parser(std::string_view text, Configuration& out) : rest_(text), out_(out) {}

  /// Nothing, or the first problem.
  std::optional<Problem> Parse() {
    const int syntax_error = ini_parse_stream(&Parser::NextLine, this, &Parser::Setting, this);
    if (out_of_memory_) throw std::bad_alloc();
    if (syntax_error > 0 && (!problem_ || syntax_error < problem_->line)) {
      problem_ = Problem{syntax_error, "neither [section] nor key = value"};
    }
    return problem_;
  }

 private:
  static char* NextLine(char* out, int size, void* parser) noexcept {
    auto& self = *static_cast<Parser*>(parser);
    if (self.rest_.empty() || self.problem_ || self.out_of_memory_) return nullptr;
    const std::size_t end = self.rest_.find('\n');
    const std::string_view line = self.rest_.substr(0, end);
    self.rest_ = end == std::string_view::npos ? std::string_view() : self.rest_.substr(end + 1);
    ++self.number_;
    self.indented_ = !line.empty() && kBlanks.find(line.front()) != std::string_view::npos;
    if (const char* fault = FaultOf(line, static_cast<std::size_t>(size))) {
      self.Refuse(fault);
      return nullptr;
    }
    out[line.copy(out, line.size())] = '\0';
    return out;
  }

  static const char* FaultOf(std::string_view line, std::size_t size) {
    if (line.find('\0') != std::string_view::npos) return "a NUL byte";
    if (line.size() >= size) return "the line is too long; a list may go on in lines that begin with a blank";
    const std::size_t start = line.find_first_not_of(kBlanks);
    const std::size_t bracket = line.find(']');
    if (start == std::string_view::npos || line[start] != '[' || bracket == std::string_view::npos) return nullptr;
    const std::size_t behind = line.find_first_not_of(kBlanks, bracket + 1);
    const bool ends = behind == std::string_view::npos || line[behind] == ';' || line[behind] == '#';
    return ends ? nullptr : "text behind the section's name";
  }

  static int Setting(void* parser, const char* section, const char* name, const char* value) noexcept {
    auto& self = *static_cast<Parser*>(parser);
    try {
      return self.Take("[" + std::string(section) + "] " + name, value);
    } catch (const std::bad_alloc&) {
      self.out_of_memory_ = true;
      return false;
    }
  }

  bool Take(const std::string& setting, const std::string& value) {
    const bool repeated = !seen_.insert(setting).second;
    const bool continues_list = indented_ && setting == last_ && setting == "[accounts] unsupported" &&
                                value.find_first_of("[]=:") == std::string::npos;
    last_ = setting;
    const char* fault = repeated && !continues_list ? "repeated, or continued by a line that begins with a blank"
                                                    : Store(setting, value, out_);
    return !fault || Refuse(setting + ": " + fault);
  }

  bool Refuse(const std::string& text) noexcept {
    try {
      if (!problem_) problem_ = Problem{number_, text};
    } catch (const std::bad_alloc&) {
      out_of_memory_ = true;
    }
    return false;
  }

  std::string_view rest_;
  Configuration& out_;
  int number_ = 0;
  bool indented_ = false;
  std::string last_;
  std::set<std::string> seen_;
  std::optional<Problem> problem_;
  bool out_of_memory_ = false;
};

struct State {
  std::string chosen;  ///< by MailserverSetConfigFile; "" is none
  int vanish_limit = -1;
  std::string path;  ///< what `configuration` was read from
  FileStamp stamp;
  std::shared_ptr<const Configuration> configuration;
  int holds = 0;
  bool held = false;  ///< `configuration` has been looked at since the first of the holds
};

State& TheState() {
  static State& state = *new State;  // never destroyed: atexit handlers log too
  return state;
}

/// The configuration file's path; `named` when somebody has named it, and it must exist.
std::string FindPath(bool& named) {
  const char* environment = secure_getenv("MAILSERVER_CONF");
  named = true;
  if (!TheState().chosen.empty()) return TheState().chosen;
  if (environment && *environment) return environment;
  named = false;
  return "/etc/mailserver/mailserver.conf";
}

/// Reads the rest of `file`. False, with errno, on an error.
bool ReadAll(std::FILE* file, std::string& text) {
  char block[4096];
  while (const std::size_t count = std::fread(block, 1, sizeof block, file)) text.append(block, count);
  return !std::ferror(file);
}

/// The configuration as it is now, or null and the problem. Never logs, so the log may ask here where to write.
std::shared_ptr<const Configuration> Load(Problem& problem) {
  State& state = TheState();
  bool named = false;
  const std::string path = FindPath(named);
  if (state.configuration && state.path == path && (state.held || state.stamp.Holds(path))) {
    state.held = state.holds > 0;
    return state.configuration;
  }

  state.held = false;
  state.configuration.reset();
  state.path = path;
  state.stamp.Clear();
  auto fresh = std::make_shared<Configuration>();
  const InputFile file = OpenToRead(path);
  if (file) {
    std::string text;
    state.stamp.Take(fileno(file.get()));
    if (!ReadAll(file.get(), text)) {
      problem = {0, std::strerror(errno)};
      return nullptr;
    }
    if (const auto found = Parser(text, *fresh).Parse()) {
      problem = *found;
      return nullptr;
    }
  } else if (named || errno != ENOENT) {
    problem = {0, std::strerror(errno)};
    return nullptr;
  }
  state.configuration = std::move(fresh);
  state.held = state.holds > 0;
  return state.configuration;
}

}  // namespace

ConfigurationHold::ConfigurationHold() {
  if (TheState().holds++ == 0) TheState().held = false;
}

ConfigurationHold::~ConfigurationHold() {
  if (--TheState().holds == 0) TheState().held = false;
}

std::shared_ptr<const Configuration> CurrentConfiguration() {
  Problem problem;
  auto configuration = Load(problem);
  if (configuration) return configuration;
  const std::string path = TheState().path;  // a copy: the log looks at the configuration too
  if (problem.line > 0) {
    LogError("configuration %s:%d: %s", path, problem.line, problem.text);
  } else {
    LogError("cannot read the configuration %s: %s", path, problem.text);
  }
  return nullptr;
}

std::string CurrentLogTarget() noexcept {
  try {
    Problem problem;
    if (const auto configuration = Load(problem)) return configuration->log_target;
  } catch (const std::bad_alloc&) {
    // then the target that needs no configuration
  }
  return "syslog";
}

bool GetUserGroupDelegationConfigPath(std::string& path) {
  const auto configuration = CurrentConfiguration();
  if (configuration) path = configuration->database;
  return configuration != nullptr;
}

bool MailserverAccountType(int& type) {
  const auto configuration = CurrentConfiguration();
  if (configuration) type = configuration->account_type;
  return configuration != nullptr;
}

bool MailserverDomainShortName(std::string& name) {
  const auto configuration = CurrentConfiguration();
  if (configuration) name = configuration->domain;
  return configuration != nullptr;
}

bool MailserverVanishLimit(int& percent) {
  const auto configuration = CurrentConfiguration();
  if (!configuration) return false;
  percent = TheState().vanish_limit < 0 ? configuration->vanish_limit : TheState().vanish_limit;
  return true;
}

void MailserverSetVanishLimit(int percent) { TheState().vanish_limit = percent; }

void MailserverSetConfigFile(const std::string& path) { TheState().chosen = path; }

}  // namespace NIMBO::QUAYPOST_SERVER
