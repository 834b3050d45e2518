// What a virtual device is: its address and ports, its units and their reach, its paper, and how
// it codes pages.
//
// Units: resolutions in dots per inch, sizes and unscannable margins in 1/10000 inch.
// Thread rule: plain values.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "sim/Faults.h"
#include "sim/PageSource.h"
#include "sim/ScanInfo.h"
#include "sim/UsbOptions.h"

namespace vox::sim {

struct UnitOptions {
  std::uint32_t x_resolution_min = 75;
  std::uint32_t y_resolution_min = 75;
  std::uint32_t x_resolution_max = 600;
  std::uint32_t y_resolution_max = 600;
  std::optional<std::uint32_t> preview_low = 75;    // absent: the objects are not there
  std::optional<std::uint32_t> preview_high = 150;  // absent: the objects are not there
  std::uint32_t margin_top = 0;                     // unscannable, of regular paper
  std::uint32_t margin_bottom = 0;
  std::uint32_t margin_left = 0;
  std::uint32_t margin_right = 0;
  std::uint32_t physical_width = 85000;
  std::uint32_t physical_height = 117000;
};

// An object of the agent: a BER tag and contents as they stand in the message, right or wrong.
struct ObjectText {
  std::string oid;  // dotted
  bool missing = false;
  std::uint8_t tag = 0;
  std::vector<std::uint8_t> contents;
};
// ParseObject reads "OBJECT=none" or "OBJECT=TYPE:VALUE" (docs/virtual-device.md). Gives an empty
// text, or what is wrong.
std::string ParseObject(const std::string& text, ObjectText& object);

// One sheet in the feeder. An empty back is blank.
struct Sheet {
  PagePtr front;
  PagePtr back;
};

enum class BackSide : std::uint8_t {
  kByMode,  // turned by 180 degrees for mode 0x302, upright for 0x10302
  kTurned,
  kUpright,
};

// Where the 20-byte image header of a block's JBIG data stands.
enum class ImageHeader : std::uint8_t {
  kInData,    // counted by dwLength, as the first bytes of the coded data
  kInHeader,  // part of the block's header: encode_header_size 28, not counted by dwLength
  kNone,      // the coded data are the stripe data alone
};

struct CodingOptions {
  bool jbig = true;  // bilevel pages go as JBIG blocks; grey and colour always raw
  std::uint32_t lines_per_block = 256;  // 1 to 65535; fewer where 1 MiB would be passed
  std::uint8_t line_template = 2;       // 2 or 3
  bool typical_prediction = true;
  ImageHeader image_header = ImageHeader::kInData;
};

struct TimeLimits {
  std::chrono::milliseconds connect{5000};
  std::chrono::milliseconds acknowledge{30000};  // the host's 0x01
  std::chrono::milliseconds stall{300000};       // no byte of page data taken
  std::chrono::milliseconds end_answer{600000};  // the host's 0x00; a slow client takes its time
  std::chrono::milliseconds idle_job{120000};    // no command for a job that waits for one
};

struct DeviceOptions {
  // Where it is reached. Port 0: any free one. An address other than 0.0.0.0 is also what its TCP
  // connections come from, so that a job server can tell devices apart by it.
  std::string address = "127.0.0.1";
  std::uint16_t snmp_port = 0;
  std::uint16_t command_port = 0;
  std::uint16_t job_server_port = 3893;  // of the host that asked for a page

  // Who it is.
  std::string model = "QD7200";  // without the maker's name, as the object has it
  std::string name = "Virtual scanner";
  std::array<std::uint8_t, 6> mac = {0x02, 0x56, 0x58, 0x00, 0x00, 0x01};
  std::string community = "public";
  std::vector<ObjectText> objects;  // said instead of what is above, or besides

  // Whether it hears queries to 255.255.255.255 at its SNMP port, on the interface that bears its
  // address; answers come from its own address. With 0.0.0.0 it hears them in any case.
  bool hears_broadcasts = false;
  std::string other_address;  // a second one that it answers SNMP at; empty: none

  // What it can do. At least one unit.
  std::optional<UnitOptions> flatbed = UnitOptions{};
  std::optional<UnitOptions> feeder;  // set by the first sheet when absent
  bool bilevel = true, grey = true, colour = true;
  std::uint32_t duplex = 0;  // 0 none, 1, 2: what the duplex object stands for
  std::uint32_t support_paper = 0x3F;
  std::uint32_t compression = 1;

  // Its paper. A loaded feeder wins over the glass; without either there is no document.
  PagePtr glass;               // empty with no sheets: a test chart as large as the bed
  bool empty_glass = false;    // nothing lies on the glass: no document when the feeder is empty
  std::vector<Sheet> sheets;   // in the feeder, first one first
  bool reload_feeder = false;  // the sheets are back when a job has ended

  // How pages go out.
  CodingOptions coding;
  std::uint32_t left_cut_margin = 0;  // pixels that the device adds to every line
  std::uint32_t right_cut_margin = 0;
  std::uint32_t align_pixels = 8;    // lines of bilevel pages are widened to a multiple of this
  std::uint32_t plane_order = 0;     // 0 to 5: (0,1,2) (0,2,1) (1,0,2) (1,2,0) (2,0,1) (2,1,0)
  std::uint32_t threshold = 128;     // of bilevel pages: grey at or above is white
  std::uint32_t dither_pattern = 0;  // sent back in the scan information
  BackSide back_side = BackSide::kByMode;
  // Changes what is sent as scan information (not what is drawn); page counts from 1.
  std::function<void(std::uint32_t page, ScanInfo& info)> edit_scan_info;

  // Pages that were drawn and coded once are kept for the next request of the same kind, up to
  // this many bytes in all; 0 keeps none.
  std::uint64_t cache_bytes = 0;

  UsbOptions usb;  // of a device at USB (UsbDevice.h)

  Faults faults;
  TimeLimits limits;
};

}  // namespace vox::sim
