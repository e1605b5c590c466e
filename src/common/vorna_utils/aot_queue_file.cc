// SPDX-License-Identifier: MIT
#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "common/log.h"
#include "common/vorna_utils/aot_queue.h"
#include "common/vorna_utils/file_stream.h"

namespace {

// Opens the temporary file; null on failure (logged). O_NONBLOCK keeps a FIFO that somebody has put
// in its place from stopping the daemon.
FilePtr open_temporary_file() {
  const int descriptor =
      open(kQueueTemporaryFile, O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC,
           0644);
  if (descriptor < 0) {
    LOGE_AS("updateAOTQueueFile", "Unable to open / create AOT queue temporary file at %s: %s",
            kQueueTemporaryFile, std::strerror(errno));
    return nullptr;
  }
  FilePtr stream(fdopen(descriptor, "w"));
  if (!stream) {
    LOGE_AS("updateAOTQueueFile", "Unable to create stream from file descriptor");
    close(descriptor);
  }
  return stream;
}

// The stream belongs to one thread, and its lock would cost as much as the line.
bool write_line(const std::string& text, std::FILE* stream) {
  return fwrite_unlocked(text.data(), 1, text.size(), stream) == text.size() &&
         putc_unlocked('\n', stream) != EOF;
}

}  // namespace

void updateAOTQueueFile(const AOTQueue& queue) {
  FilePtr stream = open_temporary_file();
  if (!stream) return;

  for (const AOTPackage& package : queue) {
    if (!write_line(package.package_id, stream.get())) {
      LOGE("Unable to write %s to %s", package.package_id.c_str(), kQueueTemporaryFile);
    }
  }
  // What the stream still held is written only now. If that fails the temporary file lacks ids that
  // nobody has been told of, and the old file is the better record.
  if (std::fclose(stream.release()) != 0) {
    LOGE("Unable to write %s to %s", "AOT queue", kQueueTemporaryFile);
    return;
  }
  static_cast<void>(std::rename(kQueueTemporaryFile, kQueueFile));
}
