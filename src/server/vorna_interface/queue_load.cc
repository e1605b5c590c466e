// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <mutex>

#include "common/log.h"
#include "common/vorna_utils/file_stream.h"
#include "server/globals/globals.h"
#include "server/vorna_interface/queue_operations.h"

namespace {

// Opens the queue file; null on failure (logged). O_NONBLOCK keeps a FIFO in its place from
// stopping the daemon.
FilePtr open_queue_file() {
  const int descriptor =
      open(kQueueFile, O_RDONLY | O_CREAT | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0644);
  if (descriptor < 0) {
    LOGE_AS("init_aot_queue", "Unable to open / create AOT queue file at %s: %s", kQueueFile,
            std::strerror(errno));
    return nullptr;
  }
  FilePtr stream(fdopen(descriptor, "r"));
  if (!stream) {
    LOGE_AS("init_aot_queue", "Unable to create stream from file descriptor");
    close(descriptor);
  }
  return stream;
}

struct Free {
  void operator()(char* memory) const { std::free(memory); }
};

// Takes the file as it stands: repeated ids stay repeated, a blank line is an entry with an empty
// id, which the worker drops like any package that is not installed.
void read_packages(std::FILE* stream) {
  char* buffer = nullptr;
  std::size_t capacity = 0;
  ssize_t length = 0;
  while ((length = getline(&buffer, &capacity, stream)) >= 0) {
    if (length > 0 && buffer[length - 1] == '\n') buffer[length - 1] = '\0';
    aot_queue.push_back(buffer);
  }
  const std::unique_ptr<char, Free> owned(buffer);
}

}  // namespace

bool init_aot_queue() {
  LOGI("started");
  const std::lock_guard lock(aot_queue_mtx);
  const FilePtr stream = open_queue_file();
  if (!stream) return false;
  read_packages(stream.get());
  LOGD("completed");
  return true;
}
