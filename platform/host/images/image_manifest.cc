// SPDX-License-Identifier: MIT
#include "images/image_manifest.h"

#include <nlohmann/json.hpp>

#include "base/text.h"

namespace host {
namespace {

using nlohmann::json;

constexpr int kFormat = 1;

json ToJson(const ImageRecord& record) {
  json result = {{"mvid", record.input.mvid},
                 {"size", record.input.size},
                 {"modified_ns", record.input.modified},
                 {"changed_ns", record.input.changed},
                 {"inode", record.input.inode}};
  if (record.image) {
    result["image"] = {{"size", record.image->size},
                       {"modified_ns", record.image->modified},
                       {"sha256", record.image->sha256}};
  } else {
    result["no_image"] = record.reason;
  }
  return result;
}

ImageRecord RecordFrom(const json& value) {
  ImageRecord record;
  value.at("mvid").get_to(record.input.mvid);
  value.at("size").get_to(record.input.size);
  value.at("modified_ns").get_to(record.input.modified);
  value.at("changed_ns").get_to(record.input.changed);
  value.at("inode").get_to(record.input.inode);
  if (const auto image = value.find("image"); image != value.end()) {
    record.image =
        ImageIdentity{image->at("size").get<int64_t>(), image->at("modified_ns").get<int64_t>(),
                      image->at("sha256").get<std::string>()};
  } else {
    value.at("no_image").get_to(record.reason);
  }
  return record;
}

ImageManifest ManifestFrom(const json& value) {
  ImageManifest manifest;
  value.at("compiler").get_to(manifest.compiler);
  value.at("architecture").get_to(manifest.architecture);
  value.at("frameworks").get_to(manifest.frameworks);
  value.at("options").get_to(manifest.options);
  if (const auto bubble = value.find("bubble"); bubble != value.end()) {
    manifest.bubble = Bubble{bubble->at("id").get<std::string>(),
                             bubble->at("members").get<std::vector<std::string>>()};
  }
  for (const auto& [name, record] : value.at("assemblies").items()) {
    manifest.assemblies.emplace(name, RecordFrom(record));
  }
  return manifest;
}

}  // namespace

std::string ImageNameOf(const std::string& assembly_name) {
  constexpr std::string_view kSuffix = ".dll";
  return assembly_name.substr(0, assembly_name.size() - kSuffix.size()) + ".ni.dll";
}

std::string HexMvid(const std::array<uint8_t, 16>& mvid) {
  std::string text;
  for (const uint8_t byte : mvid) text += Format("%02x", byte);
  return text;
}

std::string ImageManifest::Serialize() const {
  json value = {{"format", kFormat},
                {"compiler", compiler},
                {"architecture", architecture},
                {"frameworks", frameworks},
                {"options", options}};
  if (bubble) value["bubble"] = {{"id", bubble->id}, {"members", bubble->members}};
  value["assemblies"] = json::object();
  for (const auto& [name, record] : assemblies) value["assemblies"][name] = ToJson(record);
  // A name that is no UTF-8 cannot be compiled either: what stands for it names no file.
  return value.dump(1, ' ', false, json::error_handler_t::replace) + "\n";
}

std::optional<ImageManifest> ImageManifest::Parse(const std::string& text, std::string* cause) {
  try {
    const json value = json::parse(text);
    if (value.at("format").get<int>() == kFormat) return ManifestFrom(value);
    *cause = "a format that this version does not know";
  } catch (const json::exception& error) {
    *cause = error.what();
  }
  return std::nullopt;
}

}  // namespace host
