#include "tools/vox/Options.h"

#include <algorithm>
#include <charconv>

#include <CLI/CLI.hpp>

#include "tools/vox/Failure.h"
#include "tools/vox/VerbParser.h"
#include "vox/platform/Resources.h"

namespace vox::cli {

namespace {

constexpr unsigned kHighestResolution = 9600;  // dpi

constexpr char kFooter[] =
    "DEVICE is net:ADDRESS, usb:SERIAL, or the id, name, address, or unique beginning of one, of "
    "a\n"
    "device that is remembered; left out, it is the only one remembered or the one used last.\n"
    "--virtual brings one of its own; see vox --help.\n"
    "Exit status: 0 done, 2 cancelled, 3 busy, 4 cannot do that, 7 no document, 9 device or file\n"
    "trouble, 10 memory, 11 permission, 64 mistake in the command line.";

// What CLI11 fills before it is checked and turned into a Command.
struct RawOptions {
  ScanOptions scan;
  InfoOptions info;
  VirtualOptions with;
  unsigned feeder = 0;
  std::string output, batch, format, mode, resolution, frame, paper, rotate;
  int threshold = 0;
};

unsigned ParseDpi(const std::string& whole, std::string_view text) {
  unsigned dpi = 0;
  const auto result = std::from_chars(text.data(), text.data() + text.size(), dpi);
  if (result.ec != std::errc() || result.ptr != text.data() + text.size() || dpi == 0 ||
      dpi > kHighestResolution)
    throw UsageFailure("--resolution " + whole + ": give dots per inch from 1 to " +
                       std::to_string(kHighestResolution) + ", as in 300 or 600x300");
  return dpi;
}

Resolution ParseResolution(const std::string& text) {
  const std::string_view view(text);
  const auto times = view.find('x');
  const unsigned x = ParseDpi(text, view.substr(0, times));
  return {x, times == view.npos ? x : ParseDpi(text, view.substr(times + 1))};
}

Mode ParseMode(const std::string& text) {
  for (const Mode mode : {Mode::kLineart, Mode::kGray, Mode::kColor}) {
    if (text == ModeName(mode)) return mode;
  }
  if (text == "grey") return Mode::kGray;
  if (text == "colour") return Mode::kColor;
  throw UsageFailure("--mode " + text + ": choose lineart, gray or color");
}

Frame ParsePaper(const std::string& name) {
  if (const auto frame = PaperFrame(name)) return *frame;
  std::string known;
  for (const std::string& paper : PaperNames()) known += " " + paper;
  if (known.empty())
    throw Failure(ExitStatus::kIoError, "the table of papers cannot be read: " +
                                            CleanText(ResourcePath("PaperSizes", "plist")) +
                                            "; install vox anew, or give --frame");
  throw UsageFailure("--paper " + name + ": not known; choose default or one of" + known);
}

// A pattern holds one %d, with or without a width as in %03d; "%%" stands for a per cent sign.
int CountNumbers(const std::string& pattern) {
  int numbers = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    if (pattern[i] != '%') continue;
    ++i;
    if (i < pattern.size() && pattern[i] == '%') continue;
    std::size_t digits = 0;
    while (i < pattern.size() && pattern[i] >= '0' && pattern[i] <= '9') ++i, ++digits;
    if (i >= pattern.size() || pattern[i] != 'd' || digits > 2)
      throw UsageFailure("--batch " + pattern + ": only one %d or %03d may stand in it");
    ++numbers;
  }
  return numbers;
}

ImageFormat ChooseFormat(const RawOptions& raw, const std::string& output) {
  if (!raw.format.empty()) {
    if (const auto format = FormatOfName(raw.format)) return *format;
    throw UsageFailure("--format " + raw.format + ": choose png, tiff, pnm or pdf");
  }
  if (output == "-") return ImageFormat::kPnm;
  if (const auto format = FormatOfFile(output)) return *format;
  throw UsageFailure(output + ": the name tells no format; end it in .png, .tif, .pnm or .pdf, or" +
                     " add --format");
}

void CheckBatch(const ScanOptions& scan) {
  const int numbers = CountNumbers(scan.output);
  if (numbers > 1) throw UsageFailure("--batch " + scan.output + ": only one %d may stand in it");
  if (numbers == 1) return;
  if (scan.output == "-" ? scan.format != ImageFormat::kPng : HoldsManyPages(scan.format)) return;
  throw UsageFailure("--batch " + scan.output + ": " + FormatName(scan.format) +
                     " holds one page; put a %d into the name, or name a .tif or .pdf");
}

void ChooseOutput(const RawOptions& raw, ScanOptions& scan, bool stdout_is_terminal) {
  if (!raw.output.empty() && !raw.batch.empty())
    throw UsageFailure("--output takes one page and --batch all of them: give one of the two");
  scan.batch = !raw.batch.empty();
  scan.output = scan.batch ? raw.batch : raw.output;
  if (scan.output.empty() && stdout_is_terminal)
    throw UsageFailure("where shall the page go? Name a file, as in: vox scan -o page.png");
  if (scan.output.empty()) scan.output = "-";
  if (scan.output == "-" && stdout_is_terminal)
    throw UsageFailure("an image is nothing for a terminal; redirect it, or name a file with -o");
  if (scan.output == "-" && scan.json)
    throw UsageFailure("--json and the image both want standard output; name a file with -o");
  scan.format = ChooseFormat(raw, scan.output);
  if (scan.batch) CheckBatch(scan);
}

void ChooseArea(const RawOptions& raw, ScanOptions& scan) {
  if (!raw.frame.empty() && !raw.paper.empty())
    throw UsageFailure("--frame and --paper both say what to scan: give one of the two");
  scan.paper = !raw.paper.empty();
  if (!raw.frame.empty()) scan.frame = ParseFrame(raw.frame);
  if (scan.paper) scan.frame = ParsePaper(raw.paper);
}

void ChooseReduction(const RawOptions& raw, ScanOptions& scan) {
  if (raw.threshold != 0) scan.threshold = raw.threshold;
  if (scan.threshold && scan.halftone)
    throw UsageFailure("--threshold and --halftone exclude each other: give one of the two");
  if ((scan.threshold || scan.halftone) && scan.mode != Mode::kLineart)
    throw UsageFailure("--threshold and --halftone are for --mode lineart alone");
}

ScanOptions FinishScan(RawOptions& raw, bool trace_only, bool stdout_is_terminal) {
  ScanOptions scan = raw.scan;
  scan.device.with = raw.with;
  if (!raw.mode.empty()) scan.mode = ParseMode(raw.mode);
  if (!raw.resolution.empty()) scan.resolution = ParseResolution(raw.resolution);
  if (!raw.rotate.empty() && raw.rotate != "0" && raw.rotate != "180")
    throw UsageFailure("--rotate " + raw.rotate + ": a page can be turned by 180 degrees");
  scan.turned = raw.rotate == "180";
  ChooseArea(raw, scan);
  ChooseReduction(raw, scan);
  if (!trace_only) {
    ChooseOutput(raw, scan, stdout_is_terminal);
    return scan;
  }
  scan.trace = scan.trace_only = true;
  scan.output = "/dev/null";
  scan.format = ImageFormat::kPnm;
  return scan;
}

void CheckVirtual(const VirtualOptions& with) {
  const bool shaped = !with.page_files.empty() || with.feeder || !with.faults.empty();
  if (shaped && !with.on)
    throw UsageFailure("--virtual-page, --virtual-feeder and --virtual-fault go with --virtual");
}

void DeclareVirtual(CLI::App& app, RawOptions& raw) {
  app.add_flag("--virtual", raw.with.on, "A virtual device of one's own, before or after the verb");
  app.add_option("--virtual-page", raw.with.page_files,
                 "A page for the virtual device (PNM, PNG or TIFF); may be given again")
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll)
      ->type_name("FILE");
  app.add_option("--virtual-feeder", raw.feeder, "Sheets in the virtual feeder, 0 for none at all")
      ->check(CLI::Range(0, 1000).description(""))
      ->type_name("N");
  app.add_option("--virtual-fault", raw.with.faults,
                 "What shall go wrong; see docs/virtual-device.md")
      ->type_name("WORDS");
}

void DeclareImage(CLI::App& scan, RawOptions& raw) {
  scan.add_option("--mode", raw.mode, "lineart, gray or color (what the device can do best)")
      ->type_name("MODE");
  scan.add_option("--resolution", raw.resolution, "Dots per inch, as in 300 or 600x300 (300)")
      ->type_name("DPI");
  scan.add_option("--frame", raw.frame, "Area in mm, or in inches with a final 'in'")
      ->type_name("L,T,R,B[mm|in]");
  scan.add_option("--paper", raw.paper,
                  "Area of a sheet: A4, B5, Letter, ...; default is A4 or Letter")
      ->type_name("NAME");
  scan.add_flag("--preview", raw.scan.preview, "A quick scan at the device's preview resolution");
  scan.add_option("--brightness", raw.scan.brightness, "-100 to 100 (0)")
      ->check(CLI::Range(-100, 100).description(""))
      ->type_name("N");
  scan.add_option("--contrast", raw.scan.contrast, "-100 to 100 (0)")
      ->check(CLI::Range(-100, 100).description(""))
      ->type_name("N");
  scan.add_option("--threshold", raw.threshold, "lineart: grey from N (1 to 255) on is white")
      ->check(CLI::Range(1, 255).description(""))
      ->type_name("N");
  scan.add_flag("--halftone", raw.scan.halftone, "lineart: grey becomes a pattern of dots");
  scan.add_flag("--duplex", raw.scan.duplex, "Both sides of the sheets in the feeder");
  scan.add_option("--rotate", raw.rotate, "180 turns the written page")->type_name("DEGREES");
}

void DeclareScan(CLI::App& app, RawOptions& raw) {
  CLI::App* scan = app.add_subcommand("scan", "Scan a page, or all pages of the feeder");
  scan->add_option("DEVICE", raw.scan.device.name, kDeviceHelp)->type_name("");
  scan->add_option("-o,--output", raw.output, "File for one page; - is standard output")
      ->type_name("FILE");
  scan->add_option("--format", raw.format, "png, tiff, pnm or pdf (what the file's name says)")
      ->type_name("NAME");
  scan->add_option("--batch", raw.batch, "All pages: page-%03d.png, or one .pdf or .tif")
      ->type_name("PATTERN");
  scan->add_flag("--json", raw.scan.json, "Say in JSON what was written, one object a page");
  scan->add_flag("--trace", raw.scan.trace, "Write its TWAIN operations to standard error");
  DeclareImage(*scan, raw);
  scan->footer(kFooter);
}

void DeclareTrace(CLI::App& app, RawOptions& raw) {
  CLI::App* trace = app.add_subcommand(
      "trace", "Scan a page into nothing and write its TWAIN operations to standard error");
  trace->add_option("DEVICE", raw.scan.device.name, kDeviceHelp)->type_name("");
  trace->add_flag("--json", raw.scan.json, "The operations as JSON, too, one object each");
  DeclareImage(*trace, raw);
  trace->footer(kFooter);
}

void DeclareInfo(CLI::App& app, RawOptions& raw) {
  CLI::App* info = app.add_subcommand("info", "Say what a device can do");
  info->add_option("DEVICE", raw.info.device.name, kDeviceHelp)->type_name("");
  info->add_flag("--json", raw.info.json, "As JSON");
  info->footer(kFooter);
}

// An empty value comes from a script's empty variable; taking it for a missing option would, for
// one, send the image to standard output.
void RefuseEmptyValues(const CLI::App& app) {
  for (const CLI::Option* option : app.get_options()) {
    const std::vector<std::string>& values = option->results();
    if (option->get_items_expected_max() > 0 &&
        std::find(values.begin(), values.end(), "") != values.end())
      throw UsageFailure(option->get_name() + " is empty; give a value, or leave it out");
  }
}

void RefuseEmptyValuesOfVerbs(const CLI::App& app) {
  RefuseEmptyValues(app);
  for (const CLI::App* verb : app.get_subcommands()) RefuseEmptyValuesOfVerbs(*verb);
}

// The help of what was named last: `vox settings set --help` asks about set.
std::string Help(const CLI::App& app) {
  const CLI::App* asked = &app;
  std::string before;
  while (!asked->get_subcommands().empty()) {
    before += (before.empty() ? "" : " ") + asked->get_name();
    asked = asked->get_subcommands().front();
  }
  return asked->help(before);
}

Command FinishCommand(RawOptions& raw, const CLI::App& app, VerbParser& verbs,
                      bool stdout_is_terminal) {
  CheckVirtual(raw.with);
  if (app.got_subcommand("scan") || app.got_subcommand("trace")) {
    CheckDeviceName(raw.scan.device.name, raw.with);
    return FinishScan(raw, app.got_subcommand("trace"), stdout_is_terminal);
  }
  if (!app.got_subcommand("info")) return verbs.Finish(raw.with);
  CheckDeviceName(raw.info.device.name, raw.with);
  raw.info.device.with = raw.with;
  return raw.info;
}

std::string OneLine(std::string text) {
  std::replace(text.begin(), text.end(), '\n', ' ');
  return text;
}

}  // namespace

Command ParseCommandLine(const std::vector<std::string>& arguments, bool stdout_is_terminal) {
  RawOptions raw;
  CLI::App app("Scans with Veltronix multi-function devices.", "vox");
  app.set_version_flag("--version", "vox " VOX_VERSION);
  app.require_subcommand(0, 1);
  app.fallthrough();
  DeclareVirtual(app, raw);
  DeclareScan(app, raw);
  DeclareTrace(app, raw);
  DeclareInfo(app, raw);
  VerbParser verbs(app);
  std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
  try {
    app.parse(reversed);
  } catch (const CLI::CallForHelp&) {
    return TextAnswer{Help(app)};
  } catch (const CLI::CallForVersion&) {
    return TextAnswer{app.version() + "\n"};
  } catch (const CLI::ParseError& error) {
    throw UsageFailure(OneLine(error.what()) + "; see vox --help");
  }
  if (app.get_subcommands().empty())
    throw UsageFailure("say what to do, as in: vox discover, or vox scan; see vox --help");
  RefuseEmptyValuesOfVerbs(app);
  if (app.count("--virtual-feeder") > 0) raw.with.feeder = raw.feeder;
  return FinishCommand(raw, app, verbs, stdout_is_terminal);
}

}  // namespace vox::cli
