// SPDX-FileCopyrightText: 2026 The krv-pre-installer authors
// SPDX-License-Identifier: MIT
#include "common/rpm/payload_stream.h"

#include "common/posix/blocked_signals.h"
#include "common/posix/file_descriptor.h"
#include "common/rpm/handles.h"

#include <array>
#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <sched.h>
#include <unistd.h>

namespace Common::Rpm {

namespace {

void require(bool holds) {
  if (!holds)
    throw std::system_error(errno, std::generic_category());
}

struct Pipe {
  Posix::FileDescriptor reader;
  Posix::FileDescriptor writer;
};

Pipe makePipe() {
  std::array<int, 2> ends;
  require(pipe2(ends.data(), O_CLOEXEC) == 0);
  // A large pipe needs few switches between the threads: with 64 KiB, a payload that hardly compresses takes half as
  // long again. 1 MiB is the default limit of an ordinary user, see pipe(7). If the call fails, the smaller pipe is
  // only slower.
  fcntl(ends[0], F_SETPIPE_SZ, 1 << 20);
  return {Posix::FileDescriptor(ends[0]), Posix::FileDescriptor(ends[1])};
}

/// librpm uses a duplicate of the descriptor, and makes it without close-on-exec. A child process that inherits one end
/// of the pipe makes the other end block as long as the child lives.
FileHandle forLibrary(const Posix::FileDescriptor& end) {
  FileHandle file = ownFile(fdDup(end.get()));
  require(file != nullptr);
  require(fcntl(Fileno(file.get()), F_SETFD, FD_CLOEXEC) == 0);
  return file;
}

/// See sched_setaffinity(2). taskset and the CPUAffinity= of systemd restrict a process to some processors.
bool hasOneProcessor() {
  cpu_set_t processors;
  return sched_getaffinity(0, sizeof processors, &processors) == 0 && CPU_COUNT(&processors) == 1;
}

/// RFC 1952
bool beginsLikeGzip(std::string_view bytes) {
  return bytes.starts_with("\x1f\x8b");
}

void decompress(FD_t payload, FD_t to) {
  std::array<char, 65536> buffer;
  bool isFirst = true;
  ssize_t count;
  while ((count = Fread(buffer.data(), 1, buffer.size(), payload)) > 0) {
    const std::string_view bytes(buffer.data(), static_cast<std::size_t>(count));
    // m_reader would decompress it a second time.
    if (std::exchange(isFirst, false) && beginsLikeGzip(bytes))
      return;
    if (Fwrite(bytes.data(), 1, bytes.size(), to) != count)
      return;
  }
}

} // namespace

PayloadStream::PayloadStream(FileHandle file, const std::string& compressor) {
  std::string mode = "r.";
  mode += compressor;
  // Fdopen() returns `file` itself, with a decompressor on it.
  const FD_t payload = Fdopen(file.get(), mode.c_str());
  require(payload != nullptr);
  if (hasOneProcessor()) {
    m_reader = std::move(file);
    return;
  }
  const Pipe pipe = makePipe();
  m_reader = forLibrary(pipe.reader);
  // zlib passes on data that is not in gzip format, see gzread in zlib.h. Unlike librpm's plain files it has a buffer,
  // and it reads again if a pipe returns less than the requested size.
  require(Fdopen(m_reader.get(), "r.gzip") != nullptr);
  // The thread inherits the mask: the main thread handles the signals, and SIGPIPE does not kill the process when the
  // reader closes the pipe early.
  const Posix::BlockedSignals inTheThread;
  m_thread = std::thread(
      [file = std::move(file), payload, writer = forLibrary(pipe.writer)] { decompress(payload, writer.get()); });
}

PayloadStream::~PayloadStream() {
  m_reader.reset();
  if (m_thread.joinable())
    m_thread.join();
}

} // namespace Common::Rpm
