// scan: reads 4 x 6 inches of a page from a scanner on the network, line by line. An example of the
// library's scan interface, which docs/library.md explains; build it with find_package(Vox) and
// link Vox::vox.
//
//   scan ADDRESS [SNMP-PORT COMMAND-PORT] >page.pgm
//
// The page comes through the job server, so let one run: voxjobd --exit-when-idle &
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include <vox/vox.h>

namespace {

constexpr unsigned kDpi = 150;
constexpr unsigned kWidth = 4, kHeight = 6;  // inches

// What is asked for: grey, from the left upper corner of the bed.
vox::tagTWSCANPARAM Request() {
  vox::tagTWSCANPARAM request{};
  request.fXResolution = request.fYResolution = kDpi;
  request.fRight = kWidth;
  request.fBottom = kHeight;
  request.dwImageWidth = kWidth * kDpi;
  request.dwImageLength = kHeight * kDpi;
  request.wPixelType = 1;
  request.wBitsPerPixel = 8;
  request.wSamplesPerPixel = 1;
  request.wBitsPerSample[0] = 8;
  request.dwLineSize = request.dwImageWidth;
  request.fGamma = 1;
  return request;
}

// The device is told to stop, too; a job that was never begun makes no difference.
int Fail(vox::CTwainImageIF& scanner) {
  const std::string why = scanner.GetIfErrorString();
  scanner.Abort();
  std::fprintf(stderr, "scan:%s\n", why.c_str());
  return 1;
}

int Scan(vox::CTwainImageIF& scanner) {
  vox::tagSCANDEVINFO abilities{};
  const vox::tagTWSCANPARAM request = Request();
  if (!scanner.GetDevInfo(&abilities) || !scanner.PrepareScan(request, true, false))
    return Fail(scanner);
  scanner.GetScanParam();
  if (!scanner.StartScan(false)) return Fail(scanner);

  std::printf("P5\n%u %u\n255\n", request.dwImageWidth, request.dwImageLength);
  std::vector<unsigned char> line(request.dwLineSize);
  for (unsigned y = 0; y < request.dwImageLength; ++y) {
    // A line beside an error was made up in place of one that never came.
    if (scanner.ReadLine(line.data()) != 0 || scanner.GetIfErrorStatus() != vox::IF_ERR_STS_NONE)
      return Fail(scanner);
    if (std::fwrite(line.data(), 1, line.size(), stdout) != line.size()) {
      std::perror("scan");
      scanner.Abort();
      return 1;
    }
  }
  scanner.EndScan();
  return scanner.GetIfErrorStatus() == vox::IF_ERR_STS_NONE ? 0 : Fail(scanner);
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 4) {
    std::fputs("usage: scan ADDRESS [SNMP-PORT COMMAND-PORT]\n", stderr);
    return 64;
  }
  if (argc == 4) {  // a virtual device that need not be root's
    vox::snmpPort = static_cast<std::uint16_t>(std::atoi(argv[2]));
    vox::udpCommandPort = static_cast<std::uint16_t>(std::atoi(argv[3]));
  }
  vox::CTwImgIFNW scanner("scanner", argv[1]);
  return Scan(scanner);
}
