// SPDX-License-Identifier: MIT
#include "images/cli_metadata.h"

#include <unistd.h>

#include <algorithm>
#include <string_view>

namespace host {
namespace {

constexpr unsigned kModuleTable = 0x00;
constexpr unsigned kAssemblyTable = 0x20;
constexpr size_t kTableCount = 64;
constexpr size_t kLongestName = 1024;

// The columns of the tables up to Assembly, whose rows one must be able to step over: a digit is
// that many bytes; s, g, b an index into #Strings, #GUID, #Blob; an upper-case letter a coded index
// of kCodedIndexes; t with two hexadecimal digits an index into that table.
constexpr std::array<std::string_view, kAssemblyTable + 1> kColumns = {
    "2sggg",       // Module
    "Rss",         // TypeRef
    "4ssTt04t06",  // TypeDef
    "t04",         // FieldPtr
    "2sb",         // Field
    "t06",         // MethodPtr
    "422sbt08",    // MethodDef
    "t08",         // ParamPtr
    "22s",         // Param
    "t02T",        // InterfaceImpl
    "Psb",         // MemberRef
    "2Cb",         // Constant
    "AUb",         // CustomAttribute
    "Fb",          // FieldMarshal
    "2Db",         // DeclSecurity
    "24t02",       // ClassLayout
    "4t04",        // FieldLayout
    "b",           // StandAloneSig
    "t02t14",      // EventMap
    "t14",         // EventPtr
    "2sT",         // Event
    "t02t17",      // PropertyMap
    "t17",         // PropertyPtr
    "2sb",         // Property
    "2t06S",       // MethodSemantics
    "t02MM",       // MethodImpl
    "s",           // ModuleRef
    "b",           // TypeSpec
    "2Wst1a",      // ImplMap
    "4t04",        // FieldRVA
    "44",          // EncLog
    "4",           // EncMap
    "422224bss",   // Assembly
};

struct CodedIndex {
  char letter;
  unsigned tag_bits;
  std::array<uint8_t, 22> tables;  // filled up with kNone
};

constexpr uint8_t kNone = 0xff;
constexpr std::array<uint8_t, 22> Tables(std::initializer_list<uint8_t> list) {
  std::array<uint8_t, 22> tables{};
  tables.fill(kNone);
  std::copy(list.begin(), list.end(), tables.begin());
  return tables;
}

const std::array<CodedIndex, 11> kCodedIndexes = {{
    {'T', 2, Tables({0x02, 0x01, 0x1B})},  // TypeDefOrRef
    {'C', 2, Tables({0x04, 0x08, 0x17})},  // HasConstant
    {'A', 5, Tables({0x06, 0x04, 0x01, 0x02, 0x08, 0x09, 0x0A, 0x00, 0x0E, 0x17, 0x14,
                     0x11, 0x1A, 0x1B, 0x20, 0x23, 0x26, 0x27, 0x28, 0x2A, 0x2C, 0x2B})},
    {'F', 1, Tables({0x04, 0x08})},                    // HasFieldMarshal
    {'D', 2, Tables({0x02, 0x06, 0x20})},              // HasDeclSecurity
    {'P', 3, Tables({0x02, 0x01, 0x1A, 0x06, 0x1B})},  // MemberRefParent
    {'S', 1, Tables({0x14, 0x17})},                    // HasSemantics
    {'M', 1, Tables({0x06, 0x0A})},                    // MethodDefOrRef
    {'W', 1, Tables({0x04, 0x06})},                    // MemberForwarded
    {'U', 3, Tables({0x06, 0x0A})},                    // CustomAttributeType
    {'R', 2, Tables({0x00, 0x1A, 0x23, 0x01})},        // ResolutionScope
}};

struct Streams {
  std::optional<FileSlice> tables;
  std::optional<FileSlice> strings;
  std::optional<FileSlice> guids;
};

std::optional<Streams> ReadStreams(const FileSlice& metadata) {
  const auto signature = metadata.Get<uint32_t>(0);
  const auto version_length = metadata.Get<uint32_t>(12);
  if (signature != kMetadataSignature || !version_length) return std::nullopt;
  const uint64_t header = 16 + static_cast<uint64_t>(*version_length);
  const auto count = metadata.Get<uint16_t>(header + 2);
  if (!count) return std::nullopt;
  Streams streams;
  uint64_t position = header + 4;
  for (unsigned i = 0; i < *count; ++i) {
    const auto offset = metadata.Get<uint32_t>(position);
    const auto size = metadata.Get<uint32_t>(position + 4);
    const auto name = metadata.ReadString(position + 8, 32);
    if (!offset || !size || !name) return std::nullopt;
    const auto slice = metadata.Slice(*offset, *size);
    if (!slice) return std::nullopt;
    if (*name == "#~" || *name == "#-") streams.tables = slice;
    if (*name == "#Strings") streams.strings = slice;
    if (*name == "#GUID") streams.guids = slice;
    position += 8 + (name->size() / 4 + 1) * 4;  // the name and its NUL, padded to 4
  }
  if (!streams.tables || !streams.strings || !streams.guids) return std::nullopt;
  return streams;
}

// The layout of the tables' rows, which follows from the sizes of heaps and tables.
class TableLayout {
 public:
  static std::optional<TableLayout> Read(const FileSlice& tables) {
    const auto heap_sizes = tables.Get<uint8_t>(6);
    const auto valid = tables.Get<uint64_t>(8);
    if (!heap_sizes || !valid) return std::nullopt;
    TableLayout layout;
    layout.heap_sizes_ = *heap_sizes;
    uint64_t position = 24;
    for (unsigned table = 0; table < kTableCount; ++table) {
      if ((*valid >> table & 1) == 0) continue;
      const auto rows = tables.Get<uint32_t>(position);
      if (!rows) return std::nullopt;
      layout.rows_[table] = *rows;
      position += 4;
    }
    constexpr uint8_t kExtraData = 0x40;  // four more bytes before the rows
    layout.first_row_ = position + ((*heap_sizes & kExtraData) != 0 ? 4 : 0);
    return layout;
  }

  uint32_t rows(unsigned table) const { return rows_[table]; }
  uint64_t string_size() const { return (heap_sizes_ & 1) != 0 ? 4 : 2; }
  uint64_t guid_size() const { return (heap_sizes_ & 2) != 0 ? 4 : 2; }
  uint64_t blob_size() const { return (heap_sizes_ & 4) != 0 ? 4 : 2; }

  // Where the table's first row begins in the stream.
  uint64_t Offset(unsigned table) const {
    uint64_t offset = first_row_;
    for (unsigned i = 0; i < table; ++i) offset += RowSize(i) * rows_[i];
    return offset;
  }

 private:
  uint64_t RowSize(unsigned table) const {
    if (rows_[table] == 0) return 0;
    uint64_t size = 0;
    for (std::string_view columns = kColumns[table]; !columns.empty(); columns.remove_prefix(1)) {
      const char column = columns[0];
      if (column >= '0' && column <= '9') {
        size += static_cast<uint64_t>(column - '0');
      } else if (column == 's') {
        size += string_size();
      } else if (column == 'g') {
        size += guid_size();
      } else if (column == 'b') {
        size += blob_size();
      } else if (column == 't') {
        const std::string digits(columns.substr(1, 2));
        size += rows_[std::stoul(digits, nullptr, 16)] < 0x10000 ? 2 : 4;
        columns.remove_prefix(2);
      } else {
        size += CodedIndexSize(column);
      }
    }
    return size;
  }

  uint64_t CodedIndexSize(char letter) const {
    const auto coded =
        std::find_if(kCodedIndexes.begin(), kCodedIndexes.end(),
                     [letter](const CodedIndex& index) { return index.letter == letter; });
    const uint32_t limit = 1U << (16 - coded->tag_bits);
    const bool small = std::all_of(coded->tables.begin(), coded->tables.end(), [&](uint8_t table) {
      return table == kNone || rows_[table] < limit;
    });
    return small ? 2 : 4;
  }

  uint8_t heap_sizes_ = 0;
  std::array<uint32_t, kTableCount> rows_{};
  uint64_t first_row_ = 0;
};

std::optional<uint32_t> ReadIndex(const FileSlice& tables, uint64_t offset, uint64_t size) {
  if (size == 4) return tables.Get<uint32_t>(offset);
  return tables.Get<uint16_t>(offset);
}

bool ReadModule(const Streams& streams, const TableLayout& layout, CliMetadata* metadata) {
  const uint64_t row = layout.Offset(kModuleTable);
  const auto guid = ReadIndex(*streams.tables, row + 2 + layout.string_size(), layout.guid_size());
  constexpr size_t kGuidSize = 16;  // the index counts GUIDs, from 1
  return guid && *guid > 0 &&
         streams.guids->Read((uint64_t{*guid} - 1) * kGuidSize, metadata->mvid.data(), kGuidSize);
}

bool ReadAssembly(const Streams& streams, const TableLayout& layout, CliMetadata* metadata) {
  if (layout.rows(kAssemblyTable) == 0) return true;
  const uint64_t row = layout.Offset(kAssemblyTable);
  const uint64_t public_key = row + 4 + sizeof(AssemblyVersion) + 4;
  const uint64_t name_column = public_key + layout.blob_size();
  const uint64_t culture_column = name_column + layout.string_size();
  const auto name = ReadIndex(*streams.tables, name_column, layout.string_size());
  const auto culture = ReadIndex(*streams.tables, culture_column, layout.string_size());
  if (!name || !culture ||
      !streams.tables->Read(row + 4, metadata->version.data(), sizeof(AssemblyVersion))) {
    return false;
  }
  const auto name_text = streams.strings->ReadString(*name, kLongestName);
  const auto culture_text = streams.strings->ReadString(*culture, kLongestName);
  if (!name_text || !culture_text) return false;
  metadata->name = *name_text;
  metadata->culture = *culture_text;
  metadata->is_assembly = true;
  return true;
}

}  // namespace

bool FileSlice::Read(uint64_t offset, void* buffer, size_t length) const {
  if (offset > size_ || length > size_ - offset) return false;
  return pread(fd_, buffer, length, static_cast<off_t>(offset_ + offset)) ==
         static_cast<ssize_t>(length);
}

std::optional<FileSlice> FileSlice::Slice(uint64_t offset, uint64_t size) const {
  if (offset > size_ || size > size_ - offset) return std::nullopt;
  return FileSlice(fd_, offset_ + offset, size);
}

std::optional<std::string> FileSlice::ReadString(uint64_t offset, size_t limit) const {
  if (offset >= size_) return std::nullopt;
  std::string text(static_cast<size_t>(std::min<uint64_t>(limit, size_ - offset)), '\0');
  if (!Read(offset, text.data(), text.size())) return std::nullopt;
  const size_t end = text.find('\0');
  if (end == std::string::npos) return std::nullopt;
  return text.substr(0, end);
}

std::optional<CliMetadata> ReadCliMetadata(const FileSlice& metadata) {
  const auto streams = ReadStreams(metadata);
  if (!streams) return std::nullopt;
  const auto layout = TableLayout::Read(*streams->tables);
  CliMetadata result;
  if (!layout || layout->rows(kModuleTable) == 0 || !ReadModule(*streams, *layout, &result) ||
      !ReadAssembly(*streams, *layout, &result)) {
    return std::nullopt;
  }
  return result;
}

}  // namespace host
