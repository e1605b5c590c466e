// SPDX-License-Identifier: MIT
// What kind of file a .dll is, read from its headers: what the compiler takes, what it made, and
// what is neither. Stateless; any thread. Files come from strangers and may change while read.
#ifndef PLATFORM_HOST_IMAGES_PE_IMAGE_H
#define PLATFORM_HOST_IMAGES_PE_IMAGE_H

#include <sys/stat.h>

#include <cstdint>
#include <string>
#include <vector>

#include "images/cli_metadata.h"

namespace host {

enum class PeKind {
  kNotPe,       // anything but a whole PE file
  kNative,      // no managed code
  kMixed,       // managed and native code
  kIl,          // managed, intermediate language only
  kReadyToRun,  // managed, with a ReadyToRun header
};

struct PeImage {
  PeKind kind = PeKind::kNotPe;
  uint16_t machine = 0;        // as in the header: processor, xor operating system
  bool metadata_read = false;  // the metadata is well-formed and was asked for
  CliMetadata metadata;
  std::vector<std::string> symbol_files;  // where the builder's debug symbols were, as it says
};

// Reads an open regular file. The headers of a file whose sections do not end inside it are not
// believed: such a file is kNotPe. The metadata costs a few more reads.
PeImage ReadPeImage(int fd, const struct stat& status, bool with_metadata);

// The machine field of an image compiled for this processor on Linux.
uint16_t NativeImageMachine();

}  // namespace host

#endif
