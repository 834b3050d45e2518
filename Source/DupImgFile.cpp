#include "vox/DupImgFile.h"

#include <algorithm>
#include <cerrno>
#include <iterator>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "vox/DSDebugging.h"
#include "vox/Environment.h"
#include "vox/platform/SystemLog.h"

namespace vox {
namespace {

constexpr mode_t kPageFileMode = 0600;
static_assert(sizeof(off_t) == 8, "a page may be larger than 2 GiB");

std::string path_in(std::string folder, const char* leaf) {
  if (folder.empty() || folder.back() != '/') folder += '/';
  return folder + leaf;
}

}  // namespace

CDupImgFile::CDupImgFile()
    : m_path(path_in(Environment::instance().userTemporaryFolder(), "DUPIMG.tmp")) {
  DS_LogText("CDupImgFile::CDupImgFile: filePath = %s\n", m_path.c_str());
}

CDupImgFile::~CDupImgFile() {
  if (m_pFile != nullptr) Close();
  if (still_bears_name()) Delete();
}

// Another object may have replaced the file since; that one is then its own to remove.
bool CDupImgFile::still_bears_name() const {
  struct stat own {};
  struct stat named {};
  return m_file && ::fstat(m_file.Get(), &own) == 0 && ::lstat(m_path.c_str(), &named) == 0 &&
         own.st_dev == named.st_dev && own.st_ino == named.st_ino;
}

// The name lies in a folder that others may write to when the user has none of his own, so whatever
// bears it goes, and the file is made anew or not at all.
bool CDupImgFile::Create(unsigned int dwLineBytes) {
  Close();
  m_dwLineBytes = dwLineBytes;
  m_dwNoOfLines = 0;
  m_dwLine = 0;
  m_fp = 0;
  ::unlink(m_path.c_str());
  m_file.Reset(
      ::open(m_path.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, kPageFileMode));
  m_pFile = m_file ? open_stream("w") : nullptr;
  if (m_pFile == nullptr) {
    LogToSystem("CDupImgFile::Create:NG\n");
    return false;
  }
  return true;
}

// A stream over a descriptor of its own: of the file that this object created, else of whatever
// bears the name (O_NONBLOCK: opening must not wait for the other end of a pipe).
std::FILE* CDupImgFile::open_stream(const char* mode) const {
  FileDescriptor file(m_file
                          ? ::fcntl(m_file.Get(), F_DUPFD_CLOEXEC, 0)
                          : ::open(m_path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
  if (!file) return nullptr;
  std::FILE* const stream = ::fdopen(file.Get(), mode);
  if (stream != nullptr) file.Release();
  return stream;
}

bool CDupImgFile::Open() {
  Close();
  DS_LogText("<<Open File = %s>>\n", m_path.c_str());
  trace_counts();
  m_pFile = open_stream("r");
  if (m_pFile == nullptr) return false;
  m_dwLine = 0;
  const std::int64_t last = std::max<std::int64_t>(std::int64_t{m_dwNoOfLines} - 1, 0);
  if (position(last * m_dwLineBytes)) return true;
  std::fclose(std::exchange(m_pFile, nullptr));  // a pipe, say
  return false;
}

bool CDupImgFile::Close() {
  DS_LogText("<<Close Image  File>>\n");
  trace_counts();
  if (m_pFile == nullptr) return true;
  const bool stored = std::fclose(std::exchange(m_pFile, nullptr)) == 0;
  if (stored) {
    DS_LogText("<<Close Image File:OK>>\n");
  } else {
    LogToSystem("CDupImgFile::WriteLine:NG\n");  // what was written could not be stored after all
  }
  return stored;
}

bool CDupImgFile::Delete() {
  if (m_pFile != nullptr) Close();
  m_dwNoOfLines = 0;
  m_file.Reset();
  return ::unlink(m_path.c_str()) == 0 || errno == ENOENT;
}

bool CDupImgFile::WriteLine(const void* lpBuf) {
  if (m_pFile == nullptr ||
      std::fwrite(lpBuf, 1, m_dwLineBytes, m_pFile) != std::size_t{m_dwLineBytes}) {
    LogToSystem("CDupImgFile::WriteLine:NG\n");
    return false;
  }
  ++m_dwNoOfLines;
  return true;
}

bool CDupImgFile::ReadLine(void* lpBuf) {
  return ReadLine(lpBuf, m_dwLineBytes);
}

// The stream stands behind the line that was read last, so the line before it begins two lines
// back.
bool CDupImgFile::ReadLine(void* lpBuf, unsigned int nCount) {
  const std::size_t wanted = std::min(nCount, m_dwLineBytes);
  const std::int64_t rest = std::int64_t{m_dwLineBytes} - static_cast<std::int64_t>(wanted);
  const bool read =
      m_pFile != nullptr && LinesLeft() &&
      (m_dwLine == 0 || position(::ftello(m_pFile) - 2 * std::int64_t{m_dwLineBytes})) &&
      std::fread(lpBuf, 1, wanted, m_pFile) == wanted && ::fseeko(m_pFile, rest, SEEK_CUR) == 0;
  if (!read) {
    LogToSystem("CDupImgFile::ReadLine:****Error****\n");
    return false;
  }
  ++m_dwLine;
  return true;
}

int CDupImgFile::Read(void* lpBuf, unsigned int nCount) {
  if (m_pFile == nullptr) return 0;
  [[maybe_unused]] const auto got = std::fread(lpBuf, 1, nCount, m_pFile);
  return 0;
}

int CDupImgFile::Write(const void* lpBuf, unsigned int nCount) {
  if (m_pFile == nullptr) return 0;
  [[maybe_unused]] const auto written = std::fwrite(lpBuf, 1, nCount, m_pFile);
  return 0;
}

long CDupImgFile::SetPointer32(long lDistanceToMove, unsigned int dwMoveMethod) {
  constexpr int kOrigin[] = {SEEK_SET, SEEK_CUR, SEEK_END};
  if (m_pFile == nullptr || dwMoveMethod >= std::size(kOrigin)) return -1;
  if (::fseeko(m_pFile, lDistanceToMove, kOrigin[dwMoveMethod]) != 0) return -1;
  return static_cast<long>(::ftello(m_pFile));
}

bool CDupImgFile::position(std::int64_t place) {
  if (place < 0 || ::fseeko(m_pFile, place, SEEK_SET) != 0) return false;
  m_fp = place;
  return true;
}

void CDupImgFile::trace_counts() const {
  DS_LogText("     LineBytes = %d\n", m_dwLineBytes);
  DS_LogText("     NoOfLines = %d\n", m_dwNoOfLines);
}

}  // namespace vox
