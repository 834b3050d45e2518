// CDupImgFile is the temporary file that holds one page until it is replayed from its last line to
// its first.
//
//   closed --Create--> written (WriteLine x n) --Close--> closed --Open--> read back (ReadLine x n)
//
// The file is raw: m_dwNoOfLines records of m_dwLineBytes bytes, no header. It bears a fixed name
// in the user's temporary folder and is for that user alone (mode 0600); a file or link that bears
// the name already is removed, never followed. The object keeps the file that it created open until
// Delete, so that it reads back its own page even when another object has taken the name since.
//
// Failures go to the system log with a false result; nothing is retried.
// Thread rule: an object belongs to one thread at a time.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

#include "vox/platform/Export.h"
#include "vox/platform/FileDescriptor.h"

namespace vox {

class VOX_EXPORT CDupImgFile {
 public:
  CDupImgFile();
  CDupImgFile(const CDupImgFile&) = delete;
  CDupImgFile& operator=(const CDupImgFile&) = delete;
  // Closes, and removes the file if this object created it and it still bears the name.
  virtual ~CDupImgFile();

  // Create starts an empty file for lines of dwLineBytes bytes. False when there can be none.
  bool Create(unsigned int dwLineBytes);
  // Open positions the written file at its last line; a file without lines at its start.
  bool Open();
  // Close is false when lines that were written could not be stored after all (a full disk).
  bool Close();
  // Delete removes the file, whoever created it; true when none is left.
  bool Delete();

  // WriteLine stores lpBuf[0, LineBytes()).
  bool WriteLine(const void* lpBuf);
  // ReadLine gives the last line first, then the one before it, and so on, into
  // lpBuf[0, LineBytes()); the second form only the first nCount bytes of the line when it is
  // longer. False after the first line of the file.
  bool ReadLine(void* lpBuf);
  bool ReadLine(void* lpBuf, unsigned int nCount);

  // Read and Write move nCount bytes at the stream's position, if a stream is open. Always 0.
  int Read(void* lpBuf, unsigned int nCount);
  int Write(const void* lpBuf, unsigned int nCount);
  // SetPointer32 moves the stream's position by bytes from the start (0), the current position (1)
  // or the end (2), and gives the new one; -1 on failure.
  long SetPointer32(long lDistanceToMove, unsigned int dwMoveMethod);

  // IsEnd: the position that was last set is the first line of the file. A file of one line is
  // there right after Open, before that line is read; LinesLeft tells whether any is left.
  bool IsEnd() const { return m_fp == 0; }
  bool LinesLeft() const { return m_dwLine < m_dwNoOfLines; }
  std::uint32_t LineBytes() const { return m_dwLineBytes; }
  std::uint32_t NoOfLines() const { return m_dwNoOfLines; }

 private:
  void trace_counts() const;
  bool position(std::int64_t place);
  bool still_bears_name() const;
  std::FILE* open_stream(const char* mode) const;

  std::uint32_t m_dwLine = 0;       // lines read back since Open
  std::int64_t m_fp = 0;            // bytes from the start, after the last positioning
  std::uint32_t m_dwLineBytes = 0;  // bytes of a line
  std::uint32_t m_dwNoOfLines = 0;  // lines written since Create
  std::string m_path;
  std::FILE* m_pFile = nullptr;  // owned; null when closed
  FileDescriptor m_file;         // the file that this object created; streams are duplicates of it
};

}  // namespace vox
