// SPDX-License-Identifier: MIT
#include "digest.h"

#include <glib.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <system_error>
#include <vector>

namespace vorna_pkg {
namespace {

constexpr size_t kBlock = 256 << 10;

class Digest {
 public:
  void Add(const char* data, size_t length) {
    g_checksum_update(checksum_.get(), reinterpret_cast<const guchar*>(data),
                      static_cast<gssize>(length));
  }
  std::string Text() const { return g_checksum_get_string(checksum_.get()); }

 private:
  std::unique_ptr<GChecksum, decltype(&g_checksum_free)> checksum_{
      g_checksum_new(G_CHECKSUM_SHA256), &g_checksum_free};
};

}  // namespace

std::string Sha256Of(std::string_view content) {
  Digest digest;
  digest.Add(content.data(), content.size());
  return digest.Text();
}

std::string Sha256OfFile(int fd) {
  Digest digest;
  std::vector<char> block(kBlock);
  for (off_t offset = 0;;) {
    const ssize_t count = pread(fd, block.data(), block.size(), offset);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) throw std::system_error(errno, std::generic_category());
    if (count == 0) return digest.Text();
    digest.Add(block.data(), static_cast<size_t>(count));
    offset += count;
  }
}

}  // namespace vorna_pkg
