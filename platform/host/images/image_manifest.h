// SPDX-License-Identifier: MIT
// The manifest beside the images of one directory: what they were made from, by what and for what,
// so that a launcher can tell that an image is whole and still belongs to its assembly. Plain data;
// any thread. A manifest that is read is a stranger's.
#ifndef PLATFORM_HOST_IMAGES_IMAGE_MANIFEST_H
#define PLATFORM_HOST_IMAGES_IMAGE_MANIFEST_H

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

inline constexpr char kImageDirectoryName[] = ".native_image";
inline constexpr char kManifestFileName[] = "manifest.json";
inline constexpr size_t kLargestManifestFile = 16 << 20;

// "X.dll" to "X.ni.dll".
std::string ImageNameOf(const std::string& assembly_name);

// The identity of an assembly's bytes. Times are in nanoseconds.
struct InputIdentity {
  std::string mvid;  // 32 hexadecimal digits, in file order
  int64_t size = 0;
  int64_t modified = 0;
  int64_t changed = 0;
  uint64_t inode = 0;

  bool operator==(const InputIdentity&) const = default;
};

struct ImageIdentity {
  int64_t size = 0;
  int64_t modified = 0;
  std::string sha256;
};

struct ImageRecord {
  InputIdentity input;
  std::optional<ImageIdentity> image;
  std::string reason;  // why there is no image
};

// The images that were compiled as one version bubble, over every directory that it spans.
struct Bubble {
  std::string id;
  std::vector<std::string> members;  // full paths of the assemblies
};

struct ImageManifest {
  std::string compiler;
  std::string architecture;
  std::map<std::string, std::string> frameworks;
  std::vector<std::string> options;
  std::optional<Bubble> bubble;
  std::map<std::string, ImageRecord> assemblies;  // by file name

  std::string Serialize() const;
  // Nothing, with the cause, for what this library did not write.
  static std::optional<ImageManifest> Parse(const std::string& text, std::string* cause);
};

std::string HexMvid(const std::array<uint8_t, 16>& mvid);

}  // namespace host

#endif
