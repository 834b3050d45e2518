// Files that vox wrote, read back with the formats' own libraries into lines as the scan interface
// gives them: a set bit white, grey 0 black, R G B. Every reader throws std::runtime_error.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace vox::cli::test {

using Bytes = std::vector<std::uint8_t>;

struct Picture {
  std::uint32_t width = 0, height = 0;
  unsigned bits = 0;
  double x_dpi = 0, y_dpi = 0;  // 0 where the format holds none
  std::vector<Bytes> lines;     // bits behind the last pixel are 0
};

// What the readers share. Require throws where `good` is false.
void Require(bool good, const std::string& what);
std::size_t LineBytes(const Picture& picture);

Bytes ReadFile(const std::string& path);
Picture ReadPng(const std::string& path);
std::vector<Picture> ReadTiff(const std::string& path);
std::vector<Picture> ReadPnm(const Bytes& file);
std::vector<Picture> ReadPdf(const std::string& path);

// ReadAny reads by format name: png, tiff, pnm, pdf.
std::vector<Picture> ReadAny(const std::string& format, const std::string& path);

// TestLine gives line y of a page on which every pixel depends on its place.
Bytes TestLine(std::uint32_t width, unsigned bits, std::uint32_t y);

// A folder for one test, removed with what is in it.
class TestFolder {
 public:
  TestFolder();
  ~TestFolder();
  std::string File(const std::string& leaf) const { return path_ + "/" + leaf; }
  const std::string& Path() const { return path_; }
  // Everything in it, hidden files too, sorted.
  std::vector<std::string> Leaves() const;

 private:
  std::string path_;
};

}  // namespace vox::cli::test
