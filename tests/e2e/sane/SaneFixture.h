// The SANE backend as frontends meet it, uninstalled: a network namespace in which virtual devices
// have the protocol's own ports, configuration folders of the test's own in which the backend is
// the only one, and the programs that judge it.
//
//   Put(2, "Office");
//   Name({"device net:127.0.0.2"});
//   const Outcome page = Scanimage("-d vox:net:127.0.0.2 --mode Gray -o page.pnm");
#pragma once

#include <fstream>
#include <iomanip>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "tests/e2e/VoxDevices.h"
#include "tools/voxjobd/Starter.h"

namespace vox::cli::test {

inline constexpr char kAt2[] = "vox:net:127.0.0.2";  // as frontends name it
inline constexpr int kCancelled = 2, kBusy = 3, kJammed = 6, kNoDocument = 7, kIoError = 9,
                     kDenied = 11;  // exit statuses of scanimage: SANE's numbers

// What the tests of the backend share: its folders, and scanimage.
class SanePlace {
 public:
  explicit SanePlace(VoxProgram& program) : program_(program) {
    ::setenv("HOME", program.File("home").c_str(), 1);
    ::setenv("LC_ALL", "C.UTF-8", 1);
    MakeFolder("conf", "vox");
    Configure({});
    ::setenv("SANE_CONFIG_DIR", program.File("conf").c_str(), 1);
  }

  // MakeFolder makes a configuration folder with one backend in it.
  std::string MakeFolder(const std::string& leaf, const std::string& backend) const {
    std::filesystem::create_directories(program_.File(leaf) + "/dll.d");
    std::ofstream(program_.File(leaf) + "/dll.conf").flush();
    if (!backend.empty())
      std::ofstream(program_.File(leaf) + "/dll.d/" + backend) << backend << "\n";
    return program_.File(leaf);
  }
  // Configure writes vox.conf anew. Searches are off unless a line says otherwise.
  void Configure(const std::vector<std::string>& lines) const {
    std::ofstream file(program_.File("conf") + "/vox.conf");
    file << "# of a test\ndiscovery off\n";
    for (const std::string& line : lines) file << line << "\n";
  }

  // Judge is how a program of others is run so that it finds the backend. Arguments are split at
  // blanks; single quotes keep them.
  static std::vector<std::string> Judge(const std::string& program, const std::string& arguments) {
    std::vector<std::string> words = {"/usr/bin/env", "LD_LIBRARY_PATH=" SANE_VOX_FOLDER,
                                      "ASAN_OPTIONS=detect_leaks=0"};
    if (*SANE_JUDGE_PRELOAD != '\0') words.emplace_back("LD_PRELOAD=" SANE_JUDGE_PRELOAD);
    words.push_back(program);
    std::istringstream in(arguments);
    for (std::string word; in >> std::quoted(word, '\'');) words.push_back(word);
    return words;
  }

 private:
  VoxProgram& program_;
};

class Sane : public VoxDevices {
 protected:
  void SetUp() override {
    VoxDevices::SetUp();
    if (!IsSkipped()) place_.emplace(vox_);
  }

  // Judge: a job server that the backend starts would inherit what is preloaded beside the
  // sanitizer that it has already.
  static std::vector<std::string> Judge(const std::string& program, const std::string& arguments) {
    if (*SANE_JUDGE_PRELOAD != '\0') {
      JobServerStarterOptions server;
      server.program = VOX_JOBD_FOLDER "/voxjobd";
      EXPECT_TRUE(EnsureJobServer(server).running);
    }
    return SanePlace::Judge(program, arguments);
  }
  Outcome Run(const std::string& program, const std::string& arguments) {
    vox_.StartCommand(Judge(program, arguments));
    return vox_.Wait();
  }
  Outcome Scanimage(const std::string& arguments) { return Run("scanimage", arguments); }
  void StartScanimage(const std::string& arguments) {
    vox_.StartCommand(Judge("scanimage", arguments));
  }
  // Scans from the device at 127.0.0.2; standard error stays empty.
  void GoodScan(const std::string& arguments) {
    const Outcome outcome = Scanimage(std::string("-d ") + kAt2 + " " + arguments);
    EXPECT_EQ(outcome.status, 0) << arguments << "\n" << outcome.err;
    EXPECT_EQ(outcome.err, "") << arguments;
  }

  std::string Text(const std::string& leaf) const {
    const Bytes bytes = ReadFile(vox_.File(leaf));
    return {bytes.begin(), bytes.end()};
  }
  // Pnm gives a file without the remark that scanimage writes into it.
  std::string Pnm(const std::string& leaf) const { return WithoutRemark(Text(leaf)); }
  static std::string WithoutRemark(std::string pnm) {
    const std::string remark = "# SANE data follows\n";
    const auto at = pnm.find(remark);
    if (at == 3) pnm.erase(at, remark.size());
    return pnm;
  }
  static Picture PictureOf(const std::string& pnm) {
    return ReadPnm(Bytes(pnm.begin(), pnm.end())).at(0);
  }
  // What vox makes of the same page.
  std::string VoxPnm(const std::string& arguments) {
    Good("scan net:127.0.0.2 -o vox.pnm " + arguments);
    return Text("vox.pnm");
  }
  // The files of the test's current folder whose names begin so, in order.
  std::vector<std::string> Files(const std::string& beginning) const {
    std::vector<std::string> files;
    for (const std::string& leaf : vox_.Folder().Leaves()) {
      if (leaf.rfind(beginning, 0) == 0) files.push_back(leaf);
    }
    return files;
  }

  std::optional<SanePlace> place_;
};

// SameFile compares without printing megabytes.
inline testing::AssertionResult SameFile(const std::string& one, const std::string& other) {
  if (one == other) return testing::AssertionSuccess();
  const auto differs = std::mismatch(one.begin(), one.end(), other.begin(), other.end());
  return testing::AssertionFailure()
         << one.size() << " and " << other.size() << " bytes, which differ from byte "
         << differs.first - one.begin() << " on; they begin\n"
         << testing::PrintToString(one.substr(0, 16)) << " and "
         << testing::PrintToString(other.substr(0, 16));
}

}  // namespace vox::cli::test
