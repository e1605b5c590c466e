// SPDX-License-Identifier: MIT
#include "install_record.h"

#include <nlohmann/json.hpp>

namespace vorna_pkg {
namespace {

using nlohmann::json;

constexpr int kFormat = 1;

}  // namespace

std::string InstallRecord::Serialize() const {
  json value = {{"format", kFormat}, {"files", json::object()}, {"links", links}};
  for (const auto& [path, file] : files) {
    value["files"][path] = {{"size", file.size}, {"sha256", file.sha256}};
  }
  // The names were checked, a link's target may be any bytes.
  return value.dump(1, ' ', false, json::error_handler_t::replace) + "\n";
}

std::optional<InstallRecord> InstallRecord::Parse(const std::string& text) {
  try {
    const json value = json::parse(text);
    if (value.at("format").get<int>() != kFormat) return std::nullopt;
    InstallRecord record;
    for (const auto& [path, file] : value.at("files").items()) {
      record.files[path] = {file.at("size").get<uint64_t>(), file.at("sha256").get<std::string>()};
    }
    value.at("links").get_to(record.links);
    return record;
  } catch (const json::exception&) {
    return std::nullopt;
  }
}

}  // namespace vorna_pkg
