// OutputFile is the file that a writer fills. A file appears under its name when it is whole: until
// Commit the bytes are in a file beside it, which is synchronised and renamed. A name that belongs
// to no regular file (a terminal, a pipe, /dev/null) is written to directly, and so is standard
// output.
//
// Waiting for a slow reader of a pipe ends when the cancel descriptor becomes readable.
//
// Errors: Failure. Thread rule: one thread at a time.
#pragma once

#include <sys/types.h>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "vox/platform/FileDescriptor.h"

namespace vox::cli {

class OutputFile {
 public:
  // Opens `path`; "-" is standard output. `cancel_fd` may be -1: nothing cancels then.
  OutputFile(const std::string& path, int cancel_fd);
  OutputFile(const OutputFile&) = delete;
  OutputFile& operator=(const OutputFile&) = delete;
  ~OutputFile();  // what was not committed is removed

  // Write appends; the bytes may wait in a buffer until Commit.
  void Write(std::span<const std::uint8_t> bytes);
  // Commit writes what waits and lets the file appear under its name, on the disk.
  void Commit();

  // Seekable files may also be filled through their descriptor; such bytes do not pass Write.
  bool IsSeekable() const { return !temporary_.empty(); }
  int Fd() const { return fd_; }
  const std::string& Path() const { return path_; }  // as the user named it

 private:
  void OpenDirectly();
  void OpenBeside();
  void Flush();
  void WaitUntilWritable() const;
  std::size_t PieceSize() const;

  const std::string path_;
  const int cancel_fd_;
  std::string target_;     // path_ with symbolic links followed
  std::string temporary_;  // the file beside the target; empty: written directly, or committed
  mode_t old_mode_ = 0;    // permissions of the file that is replaced; 0: there is none
  FileDescriptor owned_;
  int fd_ = -1;
  std::vector<std::uint8_t> buffer_;
};

// MakeSpool opens a file without a name for data on the way: in the folder that TMPDIR names, else
// in /var/tmp; readable and writable by this process alone, gone when it is closed.
FileDescriptor MakeSpool();

// ReadAt and WriteAt move all bytes at an offset of a seekable file, whatever interrupts them.
// Return: false at an error, and for ReadAt at the end of the file; errno says why.
bool ReadAt(int fd, std::span<std::uint8_t> bytes, std::uint64_t offset);
bool WriteAt(int fd, std::span<const std::uint8_t> bytes, std::uint64_t offset);

}  // namespace vox::cli
