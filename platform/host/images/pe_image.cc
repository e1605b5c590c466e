// SPDX-License-Identifier: MIT
#include "images/pe_image.h"

#include <limits.h>

#include <array>
#include <optional>
#include <vector>

namespace host {
namespace {

constexpr uint16_t kDosSignature = 0x5A4D;             // "MZ"
constexpr uint32_t kPeSignature = 0x00004550;          // "PE\0\0"
constexpr uint32_t kReadyToRunSignature = 0x00525452;  // "RTR\0"
constexpr uint16_t kPe32 = 0x10B;
constexpr uint16_t kPe32Plus = 0x20B;
constexpr unsigned kDebugDirectory = 6;
constexpr unsigned kCliDirectory = 14;
constexpr uint32_t kCliHeaderSize = 72;
constexpr uint32_t kIlOnly = 1;
constexpr uint16_t kLinuxMachineXor = 0x7B79;
constexpr unsigned kMostSections = 96;

struct Section {
  uint32_t virtual_size;
  uint32_t virtual_address;
  uint32_t raw_size;
  uint32_t raw_offset;
};

struct Directory {
  uint32_t address;
  uint32_t size;
};

struct Headers {
  uint16_t machine;
  Directory debug;
  Directory cli;
  std::vector<Section> sections;
};

std::optional<std::vector<Section>> ReadSections(const FileSlice& file, uint64_t offset,
                                                 unsigned count) {
  constexpr uint64_t kHeaderSize = 40;
  constexpr uint64_t kSizesInHeader = 8;  // after the name
  if (count > kMostSections) return std::nullopt;
  std::vector<Section> sections(count);
  for (unsigned i = 0; i < count; ++i) {
    if (!file.Read(offset + i * kHeaderSize + kSizesInHeader, &sections[i], sizeof(Section)) ||
        !file.Slice(sections[i].raw_offset, sections[i].raw_size)) {
      return std::nullopt;
    }
  }
  return sections;
}

std::optional<Headers> ReadHeaders(const FileSlice& file) {
  if (file.Get<uint16_t>(0) != kDosSignature) return std::nullopt;
  const auto pe = file.Get<uint32_t>(0x3C);
  if (!pe || file.Get<uint32_t>(*pe) != kPeSignature) return std::nullopt;
  const uint64_t coff = uint64_t{*pe} + 4;
  const uint64_t optional_header = coff + 20;
  const auto machine = file.Get<uint16_t>(coff);
  const auto section_count = file.Get<uint16_t>(coff + 2);
  const auto optional_size = file.Get<uint16_t>(coff + 16);
  const auto magic = file.Get<uint16_t>(optional_header);
  if (!machine || !section_count || !optional_size || !magic) return std::nullopt;
  if (*magic != kPe32 && *magic != kPe32Plus) return std::nullopt;
  const uint64_t directories = optional_header + (*magic == kPe32 ? 96 : 112);
  const auto directory_count = file.Get<uint32_t>(directories - 4);
  const auto sections = ReadSections(file, optional_header + *optional_size, *section_count);
  if (!directory_count || !sections) return std::nullopt;
  Headers headers{*machine, {0, 0}, {0, 0}, *sections};
  const auto read_directory = [&](unsigned number, Directory* directory) {
    return *directory_count <= number ||
           file.Read(directories + number * sizeof(Directory), directory, sizeof(Directory));
  };
  if (!read_directory(kDebugDirectory, &headers.debug) ||
      !read_directory(kCliDirectory, &headers.cli)) {
    return std::nullopt;
  }
  return headers;
}

// The file's bytes at a virtual address, as far as one section holds them.
std::optional<FileSlice> AtAddress(const FileSlice& file, const Headers& headers,
                                   const Directory& directory) {
  for (const Section& section : headers.sections) {
    if (directory.address < section.virtual_address) continue;
    const uint32_t offset = directory.address - section.virtual_address;
    if (offset < section.raw_size && directory.size <= section.raw_size - offset) {
      return file.Slice(uint64_t{section.raw_offset} + offset, directory.size);
    }
  }
  return std::nullopt;
}

PeKind KindOf(const FileSlice& file, const Headers& headers, const FileSlice& cli) {
  const auto flags = cli.Get<uint32_t>(16);
  const auto native_header = cli.Get<Directory>(64);
  if (!flags || !native_header) return PeKind::kNotPe;
  if (native_header->address == 0) {
    return (*flags & kIlOnly) != 0 ? PeKind::kIl : PeKind::kMixed;
  }
  const auto header = AtAddress(file, headers, *native_header);
  return header && header->Get<uint32_t>(0) == kReadyToRunSignature ? PeKind::kReadyToRun
                                                                    : PeKind::kMixed;
}

// The paths in the debug directory's CodeView entries.
std::vector<std::string> ReadSymbolFiles(const FileSlice& file, const Headers& headers) {
  struct Entry {
    uint32_t characteristics, time, version, type, size, address, offset;
  };
  constexpr uint32_t kCodeView = 2;
  constexpr uint32_t kCodeViewSignature = 0x53445352;  // "RSDS"
  constexpr uint64_t kPathInRecord = 24;
  constexpr uint64_t kMostEntries = 16;
  std::vector<std::string> paths;
  const auto entries = AtAddress(file, headers, headers.debug);
  if (headers.debug.address == 0 || !entries) return paths;
  for (uint64_t i = 0; i < kMostEntries; ++i) {
    const auto entry = entries->Get<Entry>(i * sizeof(Entry));
    if (!entry) break;
    const auto record = file.Slice(entry->offset, entry->size);
    if (entry->type != kCodeView || !record || record->Get<uint32_t>(0) != kCodeViewSignature) {
      continue;
    }
    if (const auto path = record->ReadString(kPathInRecord, PATH_MAX)) paths.push_back(*path);
  }
  return paths;
}

}  // namespace

PeImage ReadPeImage(int fd, const struct stat& status, bool with_metadata) {
  const FileSlice file(fd, 0, static_cast<uint64_t>(status.st_size));
  PeImage image;
  const auto headers = ReadHeaders(file);
  if (!headers) return image;
  image.machine = headers->machine;
  image.kind = PeKind::kNative;
  if (headers->cli.address == 0) return image;
  image.kind = PeKind::kNotPe;
  if (headers->cli.size < kCliHeaderSize) return image;
  const auto cli = AtAddress(file, *headers, headers->cli);
  if (!cli) return image;
  image.kind = KindOf(file, *headers, *cli);
  if (!with_metadata || (image.kind != PeKind::kIl && image.kind != PeKind::kReadyToRun)) {
    return image;
  }
  const auto metadata_directory = cli->Get<Directory>(8);
  const auto slice =
      metadata_directory ? AtAddress(file, *headers, *metadata_directory) : std::nullopt;
  if (const auto metadata = slice ? ReadCliMetadata(*slice) : std::nullopt) {
    image.metadata = *metadata;
    image.metadata_read = true;
    image.symbol_files = ReadSymbolFiles(file, *headers);
  }
  return image;
}

uint16_t NativeImageMachine() {
#if defined(__x86_64__)
  constexpr uint16_t kProcessor = 0x8664;
#elif defined(__aarch64__)
  constexpr uint16_t kProcessor = 0xAA64;
#elif defined(__arm__)
  constexpr uint16_t kProcessor = 0x01C4;
#elif defined(__i386__)
  constexpr uint16_t kProcessor = 0x014C;
#else
#error "The compiler has no target for this processor"
#endif
  return kProcessor ^ kLinuxMachineXor;
}

}  // namespace host
