// SPDX-License-Identifier: MIT
// Digests of files. Stateless; any thread.
#ifndef TOOLS_VORNA_PKG_DIGEST_H
#define TOOLS_VORNA_PKG_DIGEST_H

#include <string>
#include <string_view>

namespace vorna_pkg {

std::string Sha256Of(std::string_view content);
// Of an open file from its beginning, wherever it is read now. Throws std::system_error.
std::string Sha256OfFile(int fd);

}  // namespace vorna_pkg

#endif
