// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "tests/driver/device.h"
#include "tests/sandbox/real_service.h"

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <string>

/// A device whose package-manager service is the real one.
class RealDevice : public Device {
public:
  RealDevice();

  ServiceClient& client() { return m_client; }
  RealService& service() { return *m_service; }

  /// Ends the service, which has to end cleanly, and starts it again.
  void reboot();

  /// Empties the pre-install directory for the next image.
  void clearImage() const;

  /// The log that the tool has to write: for each entry of the pre-install directory, in the order in which the system
  /// lists them, the lines for its file name, then the time.
  using Lines = std::function<std::string(const std::filesystem::path&)>;
  std::string expectedLog(const std::map<std::string, Lines>& linesOf) const;

  /// What rpm itself finds in the device's database, one line per package, sorted: "notes 1.0-1: " and its files.
  std::string database() const;
  /// The registry with T for each time.
  std::string events() const;

private:
  std::unique_ptr<RealService> m_service;
  ServiceClient m_client;
};
