// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/support/bus/scripted_service.h"

#include <string>

/// Expects that krv-log-report's rows for the log of a run agree with the calls that the services got during the run:
/// installed are exactly the entries whose call succeeded, failed are others that were offered or that the bus did not
/// deliver, and skipped ones were not offered.
void expectReportOfCalls(const std::string& log, const Support::ScriptedService::Installations& calls);
