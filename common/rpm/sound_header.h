// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handles.h"

namespace Common::Rpm {

/// Whether every value of `header` has the type that belongs to its tag, and lists that are parts of one table are of
/// one length. librpm relies on that, without a look, wherever it combines several values: in file lists, dependencies
/// and the tags that it computes. A text that is a number there makes it follow, or free, pointers that are none.
/// Reading single values is safe without.
bool isSound(const HeaderHandle& header);

/// The files of a sound header; null when it is not sound, or has a list that librpm refuses.
FileSetHandle fileSetOf(const HeaderHandle& header);

} // namespace Common::Rpm
