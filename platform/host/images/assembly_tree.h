// SPDX-License-Identifier: MIT
// The assemblies below a directory of a package, as one scan of it saw them. Stateless; any thread.
// The tree is a stranger's and may change under the scan: links are not followed, names that are
// not regular files are passed over.
#ifndef PLATFORM_HOST_IMAGES_ASSEMBLY_TREE_H
#define PLATFORM_HOST_IMAGES_ASSEMBLY_TREE_H

#include <sys/stat.h>

#include <functional>
#include <string>
#include <vector>

#include "images/cli_metadata.h"
#include "images/image_manifest.h"

namespace host {

// Where the compiler's results wait for their commit; see StagingArea.
inline constexpr char kStagingDirectoryName[] = ".native_image.staging";

struct Assembly {
  std::string directory;  // full path
  std::string name;
  bool candidate = false;  // wants a native image; otherwise it is only referred to
  std::string fault;       // of a candidate: why it cannot be given to the compiler
  CliMetadata metadata;
  InputIdentity identity;
  std::vector<std::string> symbol_files;  // as it says; a stranger's paths

  std::string path() const { return directory + "/" + name; }
  // The file's name without ".dll", by which others refer to it; the compiler ignores its case.
  std::string SimpleName() const;
  // Whether others can refer to it: the runtime finds an assembly by its file's name, and takes it
  // only if its own name is the same.
  bool CanBeReferredTo() const;
};

InputIdentity IdentityOf(const struct stat& status, const CliMetadata& metadata);

// Every managed assembly in the directory and below it, in the order of their paths.
std::vector<Assembly> ScanAssemblies(int directory, const std::string& path);

// Calls the visitor with everything below the directory that a compile has left there: image
// directories, staging directories and single images. It gets the descriptor of the directory that
// holds it, that one's path, its name and its type (S_IFDIR or S_IFREG).
using ImageVisitor = std::function<void(int parent, const std::string& parent_path,
                                        const std::string& name, mode_t type)>;
void VisitImages(int directory, const std::string& path, const ImageVisitor& visitor);

}  // namespace host

#endif
