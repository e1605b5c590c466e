// SPDX-License-Identifier: MIT
// The metadata that decides whether and how a package is compiled, as applications declare it.
// Constants; built at compile time, so that nothing depends on the order of initialisation.
#pragma once

#include <string_view>

namespace metadata_key {
inline constexpr std::string_view kPreferDotnetAot = "http://kivor.org/metadata/prefer_dotnet_aot";
inline constexpr std::string_view kCoBa =
    "http://kivor.org/kivor/metadata/support-fs-external-component";
inline constexpr std::string_view kViewPlugin =
    "http://kivor.org/kivor/metadata/support-view-plugin";
inline constexpr std::string_view kViewPluginPage =
    "http://kivor.org/kivor/metadata/support-view-plugin-page";
inline constexpr std::string_view kBpi = "http://kivor.org/kivor/metadata/support-bpi";
// Known, but without a say in what is compiled.
inline constexpr std::string_view kDpcRequired = "http://kivor.org/tv/metadata/d.pc/required";
inline constexpr std::string_view kDpcType = "http://kivor.org/tv/metadata/d.pc/type";
}  // namespace metadata_key

namespace metadata_value {
inline constexpr std::string_view kValueTrue = "true";
inline constexpr std::string_view kValueDpcmorlaxtv = "morlaxtv";
}  // namespace metadata_value

// Directories relative to the package's root.
namespace metadata_path {
inline constexpr std::string_view kCoBa = "/shared/res";
inline constexpr std::string_view kDpc = "/shared/res/d.pc";
}  // namespace metadata_path
