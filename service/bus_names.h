// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include <sdbus-c++/Types.h>

/// The names of the package-manager service's D-Bus interface.
namespace BusNames {

inline const sdbus::ServiceName service{"velta.KRV"};
inline const sdbus::ObjectPath objectPath{"/velta/KRV"};
inline const sdbus::InterfaceName interface { "velta.KRV" };

/// GetPackage(s name) → a{ss}. The client reads these two keys of the answer.
inline const sdbus::MethodName getPackage{"GetPackage"};
inline constexpr const char* versionKey = "general.version";
inline constexpr const char* developerKeyIdKey = "certificate.id";

/// Install(s path, a{sv} options); the client ignores the content of the answer. The types of the options are "b", "b"
/// and "(ss)", the name of a source and an empty text.
inline const sdbus::MethodName install{"Install"};
inline constexpr const char* showPromptOption = "ShowPrompt";
inline constexpr const char* showNotificationsOption = "ShowNotifications";
inline constexpr const char* overrideSourceOption = "OverrideSource";

} // namespace BusNames
