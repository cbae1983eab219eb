// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

namespace Device {

/// Writes a mark behind the file system of the disk that is being recorded: `label` and the registry as it is now. The
/// write is direct and is not flushed, so it changes nothing about what the disk has promised; it only shows in the
/// recording when the caller had an answer. KRV_MARK names the disk and the byte offset, "/dev/vda 1073741824". Ends
/// the process on any failure, because a recording without its marks would judge nothing.
void mark(const char* label);

} // namespace Device
