#include "bench/JbigCorpus.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <stdexcept>

#include "bench/Turns.h"

namespace vox::bench {
namespace {

using test::Picture;

const std::filesystem::path& Folder() {
  static const std::filesystem::path folder = [] {
    const std::string command = "'" VOX_MAKE_PAGES "' '" VOX_BENCH_FOLDER "' >&2";
    if (std::system(command.c_str()) != 0)
      throw std::runtime_error("bench/make-pages has not made the pages");
    return std::filesystem::path(VOX_BENCH_FOLDER);
  }();
  return folder;
}

Picture ReadPbm(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string magic;
  unsigned width = 0, height = 0;
  in >> magic >> width >> height;
  in.get();
  if (!in || magic != "P4" || width == 0 || width > 65535 || height == 0 || height > 65535)
    throw std::runtime_error(path.string() + ": no raw PBM");
  Picture picture(width, height);
  in.read(reinterpret_cast<char*>(picture.bits.data()),
          static_cast<std::streamsize>(picture.bits.size()));
  if (!in) throw std::runtime_error(path.string() + ": too short");
  return picture;
}

void ClearBeyondWidth(Picture& picture) {
  if (picture.width % 8 == 0) return;
  for (unsigned y = 0; y < picture.height; ++y)
    picture.Line(y)[picture.LineBytes() - 1] &=
        static_cast<std::uint8_t>(0xFF00 >> picture.width % 8);
}

void KeepTop(Picture& picture) {
  picture.height = std::min(picture.height, 256u);
  picture.bits.resize(picture.LineBytes() * picture.height);
}

std::vector<CorpusPage> ReadPages(const std::string& prefix) {
  std::vector<CorpusPage> pages;
  for (const auto& entry : std::filesystem::directory_iterator(Folder())) {
    const std::string name = entry.path().stem().string();
    if (entry.path().extension() == ".pbm" && name.starts_with(prefix)) {
      pages.push_back({name, ReadPbm(entry.path())});
      ClearBeyondWidth(pages.back().picture);
    }
  }
  std::ranges::sort(pages, {}, &CorpusPage::name);
  return pages;
}

std::vector<CorpusPage> Speckled(double part) {
  std::vector<CorpusPage> pages = PageGroup("text300");
  std::mt19937 random(5);
  for (CorpusPage& page : pages) {
    Picture& picture = page.picture;
    page.name += "-speckle";
    const auto count = static_cast<std::size_t>(part * picture.width * picture.height);
    for (std::size_t i = 0; i < count; ++i) {
      const unsigned x = random() % picture.width, y = random() % picture.height;
      picture.Line(y)[x / 8] ^= static_cast<std::uint8_t>(0x80 >> x % 8);
    }
  }
  return pages;
}

std::vector<CorpusPage> MakeGroup(const std::string& group) {
  if (group == "speckle0.2") return Speckled(0.002);
  if (group == "speckle2") return Speckled(0.02);
  std::vector<CorpusPage> pages = ReadPages(group == "scans" ? "scan-" : group);
  if (pages.empty() && group != "scans") throw std::runtime_error("there are no pages " + group);
  if (IsQuick() && !pages.empty()) {
    pages.resize(1, pages[0]);
    KeepTop(pages[0].picture);
  }
  return pages;
}

}  // namespace

const std::vector<CorpusPage>& PageGroup(const std::string& group) {
  static std::map<std::string, std::vector<CorpusPage>> groups;
  const auto found = groups.find(group);
  return found != groups.end() ? found->second
                               : groups.emplace(group, MakeGroup(group)).first->second;
}

Picture Inverted(const Picture& picture) {
  Picture inverted = picture;
  for (std::uint8_t& byte : inverted.bits) byte = static_cast<std::uint8_t>(~byte);
  ClearBeyondWidth(inverted);
  return inverted;
}

}  // namespace vox::bench
