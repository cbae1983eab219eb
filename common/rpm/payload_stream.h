// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#pragma once

#include "common/rpm/handle_types.h"

#include <string>
#include <thread>

namespace Common::Rpm {

/// The decompressed payload of a package file. Decompressing takes about as long as writing the files; a thread
/// decompresses ahead, so both happen at once. Where the process may use only one processor there is no thread, because
/// passing the bytes on would take a fifth longer.
///
/// A payload that cannot be read or decompressed looks like one that ends early. The archive format marks its own end,
/// so the reader of the archive notices.
class PayloadStream {
public:
  /// `file` is positioned at the payload; from now on only the stream uses it. If librpm does not know `compressor`,
  /// the payload is passed on as it is. Throws std::system_error if the process may not have more descriptors or
  /// threads, or if librpm rejects `compressor` as a name.
  PayloadStream(FileHandle file, const std::string& compressor);

  /// Waits for the thread, which stops at its next write.
  ~PayloadStream();

  PayloadStream(const PayloadStream&) = delete;
  PayloadStream& operator=(const PayloadStream&) = delete;

  /// Only one thread may read from it. Reading blocks only for the decompression. A signal that interrupts it makes
  /// librpm and zlib read again and again, so signals must be blocked.
  FD_t reader() const { return m_reader.get(); }

private:
  FileHandle m_reader;
  std::thread m_thread;
};

} // namespace Common::Rpm
