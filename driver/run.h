// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

/// The whole run over the pre-install directory. Returns the exit status of the program: 1 when the service cannot be
/// reached or the directory cannot be listed, else 0, however many packages were skipped or refused.
int run();
