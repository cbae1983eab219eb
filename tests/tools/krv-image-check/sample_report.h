// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tools/krv-image-check/model.h"

namespace ImageCheckTest {

/// A report with everything that a report may have, with names that attack terminals, HTML and JSON.
ImageCheck::Report sampleReport();

/// A report about an image without mistakes.
ImageCheck::Report goodReport();

} // namespace ImageCheckTest
