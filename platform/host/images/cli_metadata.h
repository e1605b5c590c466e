// SPDX-License-Identifier: MIT
// Reads the few facts of an assembly that its metadata tables hold (ECMA-335, partition II, 22 to
// 24): the module's version id, and the assembly's version and culture. Stateless; any thread.
// Every number in the file is a stranger's: all offsets are checked against the metadata's bounds.
#ifndef PLATFORM_HOST_IMAGES_CLI_METADATA_H
#define PLATFORM_HOST_IMAGES_CLI_METADATA_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace host {

// "BSJB": begins metadata, in an assembly and in a file of symbols.
inline constexpr uint32_t kMetadataSignature = 0x424A5342;

// A part of a file; reads outside of it fail.
class FileSlice {
 public:
  FileSlice(int fd, uint64_t offset, uint64_t size) : fd_(fd), offset_(offset), size_(size) {}

  uint64_t size() const { return size_; }
  bool Read(uint64_t offset, void* buffer, size_t length) const;
  std::optional<FileSlice> Slice(uint64_t offset, uint64_t size) const;
  // The slice's bytes up to a NUL; nothing if there is none within the limit.
  std::optional<std::string> ReadString(uint64_t offset, size_t limit) const;

  // A little-endian number, as every number in these formats.
  template <typename Number>
  std::optional<Number> Get(uint64_t offset) const {
    static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__);
    Number number;
    if (!Read(offset, &number, sizeof number)) return std::nullopt;
    return number;
  }

 private:
  int fd_;
  uint64_t offset_;
  uint64_t size_;
};

using AssemblyVersion = std::array<uint16_t, 4>;

struct CliMetadata {
  std::array<uint8_t, 16> mvid{};
  bool is_assembly = false;  // has an assembly row; false for a netmodule
  AssemblyVersion version{};
  std::string name;     // the assembly's; empty for a netmodule
  std::string culture;  // not empty: a satellite with resources
};

// Nothing when the metadata is malformed.
std::optional<CliMetadata> ReadCliMetadata(const FileSlice& metadata);

}  // namespace host

#endif
