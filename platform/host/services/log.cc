// SPDX-License-Identifier: MIT
// log_print: the journal where standard error leads there, readable lines on standard error
// otherwise. Entered by any thread; lines longer than a pipe takes at once are kept whole by a
// lock.
#include "platform/log.h"

#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#define SD_JOURNAL_SUPPRESS_LOCATION
#include <systemd/sd-journal.h>

#include "base/text.h"

namespace host {
namespace {

// How long one line may wait for a reader that does not read.
constexpr int kStalledReaderMs = 200;

struct Priority {
  char letter;
  int syslog;
};

Priority PriorityOf(int priority) {
  switch (priority) {
    case LOG_PRIORITY_DEBUG:
      return {'D', LOG_DEBUG};
    case LOG_PRIORITY_INFO:
      return {'I', LOG_INFO};
    case LOG_PRIORITY_WARNING:
      return {'W', LOG_WARNING};
    default:
      return {'E', LOG_ERR};
  }
}

// systemd names the stream that it connected as "device:inode"; the comparison tells whether
// standard error is still that one. Asked for every line, for the stream may be redirected.
bool StandardErrorIsTheJournal() {
  static const std::string stream = [] {
    const char* value = getenv("JOURNAL_STREAM");
    return std::string(value == nullptr ? "" : value);
  }();
  struct stat status;
  if (stream.empty() || fstat(STDERR_FILENO, &status) != 0) return false;
  return stream == Format("%ju:%ju", static_cast<uintmax_t>(status.st_dev),
                          static_cast<uintmax_t>(status.st_ino));
}

bool SendToJournal(int syslog_priority, const std::string& tag, const std::string& text) {
  const std::array<std::string, 3> fields = {
      "MESSAGE=" + text, Format("PRIORITY=%d", syslog_priority), "SYSLOG_IDENTIFIER=" + tag};
  std::array<struct iovec, fields.size()> vectors;
  for (size_t i = 0; i < fields.size(); ++i) {
    vectors[i] = {const_cast<char*>(fields[i].data()), fields[i].size()};
  }
  return sd_journal_sendv(vectors.data(), static_cast<int>(vectors.size())) == 0;
}

// Keeps a broken pipe from ending the process, without touching the handler that the program set:
// the signal of this thread's own write is taken back before it is unblocked.
class WithoutSigpipe {
 public:
  WithoutSigpipe() {
    sigemptyset(&pipe_);
    sigaddset(&pipe_, SIGPIPE);
    sigset_t pending;
    sigpending(&pending);
    was_pending_ = sigismember(&pending, SIGPIPE) == 1;
    pthread_sigmask(SIG_BLOCK, &pipe_, &old_mask_);
  }
  ~WithoutSigpipe() {
    if (!was_pending_) {
      const struct timespec now = {0, 0};
      while (sigtimedwait(&pipe_, nullptr, &now) < 0 && errno == EINTR) {
      }
    }
    pthread_sigmask(SIG_SETMASK, &old_mask_, nullptr);
  }
  WithoutSigpipe(const WithoutSigpipe&) = delete;
  WithoutSigpipe& operator=(const WithoutSigpipe&) = delete;

 private:
  sigset_t pipe_;
  sigset_t old_mask_;
  bool was_pending_ = false;
};

// Once a reader has stalled, lines do not wait for it any more until it reads again.
bool StandardErrorTakesMore() {
  static std::atomic<bool> stalled{false};
  struct pollfd standard_error = {STDERR_FILENO, POLLOUT, 0};
  const int ready = poll(&standard_error, 1, stalled ? 0 : kStalledReaderMs);
  stalled = ready == 0;
  return ready > 0 && (standard_error.revents & POLLOUT) != 0;
}

void WriteToStandardError(std::string_view line) {
  static std::mutex mutex;
  struct stat status;
  const bool is_file = fstat(STDERR_FILENO, &status) == 0 && S_ISREG(status.st_mode);
  // A pipe that polls as writable takes this much without blocking; a file takes everything.
  const size_t piece = is_file ? line.size() : PIPE_BUF;
  std::unique_lock<std::mutex> lock(mutex, std::defer_lock);
  if (line.size() > piece) lock.lock();
  const WithoutSigpipe guard;
  while (!line.empty() && StandardErrorTakesMore()) {
    const ssize_t count = write(STDERR_FILENO, line.data(), std::min(line.size(), piece));
    if (count < 0 && errno != EINTR) return;
    if (count > 0) line.remove_prefix(static_cast<size_t>(count));
  }
}

void Print(int priority, const char* tag, const char* format, va_list arguments) {
  char* formatted = nullptr;
  const int length = vasprintf(&formatted, format, arguments);
  if (length < 0) return;
  const std::unique_ptr<char, decltype(&free)> owner(formatted, &free);
  const std::string text = Visible({formatted, static_cast<size_t>(length)});
  const std::string name = Visible(tag == nullptr ? "" : tag);
  const Priority mapped = PriorityOf(priority);
  if (StandardErrorIsTheJournal() && SendToJournal(mapped.syslog, name, text)) return;
  WriteToStandardError(std::string(1, mapped.letter) + "/" + name + ": " + text + "\n");
}

}  // namespace
}  // namespace host

int log_print(int, int priority, const char* tag, const char* format, ...) {
  if (format == nullptr) return -1;
  const int saved_errno = errno;
  va_list arguments;
  va_start(arguments, format);
  int result = 0;
  try {
    host::Print(priority, tag, format, arguments);
  } catch (...) {  // out of memory: a log line is not worth the process
    result = -1;
  }
  va_end(arguments);
  errno = saved_errno;
  return result;
}
