// SPDX-License-Identifier: MIT
// The daemon's place on the system bus. Constants.
#pragma once

inline constexpr char kBusName[] = "org.kivor.vorna";
inline constexpr char kObjectPath[] = "/org/kivor/vorna";
inline constexpr char kInterfaceName[] = "org.kivor.vorna";
inline constexpr char kCompileDoneSignal[] = "AOTCompileDone";

// The bus itself.
inline constexpr char kBusDaemonName[] = "org.freedesktop.DBus";
inline constexpr char kBusDaemonPath[] = "/org/freedesktop/DBus";
inline constexpr char kBusDaemonInterface[] = "org.freedesktop.DBus";
