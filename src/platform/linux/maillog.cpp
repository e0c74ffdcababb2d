// The log: syslog, standard error, a file, or the sink of a tool. Nothing here allocates but the reading of the
// configuration, and nothing throws: what goes wrong ends in syslog.
#include <fcntl.h>
#include <sys/stat.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/linux/configuration.h"
#include "platform/mailserver.h"

namespace NIMBO::QUAYPOST_SERVER {
namespace {

constexpr std::size_t kLongestMessage = 2047;

MaillogSink current_sink = nullptr;
void* sink_context = nullptr;

/// Writes control bytes as \xNN, so that no name in a message can forge a line or command a terminal. What does not
/// fit is cut, never within such a mark.
void WriteControlBytes(const char* message, char (&line)[kLongestMessage + 1]) {
  std::size_t length = 0;
  for (; *message; ++message) {
    const auto byte = static_cast<unsigned char>(*message);
    const bool control = byte < 0x20 || byte == 0x7f;
    const std::size_t width = control ? 4 : 1;
    if (length + width > kLongestMessage) break;
    if (control) {
      std::snprintf(line + length, width + 1, "\\x%02x", byte);
    } else {
      line[length] = *message;
    }
    length += width;
  }
  line[length] = '\0';
}

/// Writes the line with its time in one write, so that the lines of several processes do not mix.
bool WriteTo(int fd, const char* line) {
  char timed[kLongestMessage + 64];
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  std::size_t length = std::strftime(timed, sizeof timed, "%Y-%m-%dT%H:%M:%S%z ", &local);
  length += static_cast<std::size_t>(std::snprintf(timed + length, sizeof timed - length, "%s\n", line));
  return write(fd, timed, length) == static_cast<ssize_t>(length);
}

bool AppendTo(const std::string& path, const char* line) {
  const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY, 0640);
  if (fd < 0) return false;
  const bool written = WriteTo(fd, line);
  return close(fd) == 0 && written;
}

void Deliver(int priority, const char* line) {
  if (current_sink) return current_sink(sink_context, line);
  const std::string target = CurrentLogTarget();
  if (target == "stderr" && WriteTo(STDERR_FILENO, line)) return;
  if (target.starts_with('/') && AppendTo(target, line)) return;
  syslog(LOG_MAIL | LOG_PRI(priority), "%s", line);
}

}  // namespace

void MaillogSetSink(MaillogSink sink, void* context) {
  current_sink = sink;
  sink_context = context;
}

}  // namespace NIMBO::QUAYPOST_SERVER

extern "C" void maillog(int priority, const char* format, ...) {
  using namespace NIMBO::QUAYPOST_SERVER;
  const int saved_errno = errno;
  char message[kLongestMessage + 1];
  va_list arguments;
  va_start(arguments, format);
  // NOLINTNEXTLINE(clang-analyzer-valist.Uninitialized): clang-tidy 14 overlooks va_start when it checks several files
  const int wanted = std::vsnprintf(message, sizeof message, format, arguments);
  va_end(arguments);
  if (wanted < 0) std::snprintf(message, sizeof message, "cannot format the message: %s", format);

  const std::size_t length = std::strlen(message);
  if (length > 0 && message[length - 1] == '\n') message[length - 1] = '\0';
  char line[kLongestMessage + 1];
  WriteControlBytes(message, line);
  Deliver(priority, line);
  errno = saved_errno;
}
