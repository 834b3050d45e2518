// Uses the installed library as a stranger would: one include gives every part of it, and what the
// headers promise is in the library.
#include <cstdio>
#include <fstream>
#include <string>

#include <vox/platform/Resources.h>
#include <vox/vox.h>

namespace {

// A call or a table of each part.
const void* const kReached[] = {
    reinterpret_cast<const void*>(&vox::asn_parse_header),
    reinterpret_cast<const void*>(&vox::snmp_parse),
    reinterpret_cast<const void*>(&vox::SnmpGet),
    reinterpret_cast<const void*>(&vox::UdpCommandSend),
    reinterpret_cast<const void*>(&vox::get_name),
    reinterpret_cast<const void*>(&vox::bonjour_resolve),
    reinterpret_cast<const void*>(&vox::DECOMPRESS),
    reinterpret_cast<const void*>(&vox::COMPRESS),
    reinterpret_cast<const void*>(&vox::DEC_JBIG),
    reinterpret_cast<const void*>(&vox::CMP_JBIG),
    reinterpret_cast<const void*>(&vox::henkaten_to_raw),
    vox::JbigTbl.data(),
    reinterpret_cast<const void*>(&vox::ReduceWidth),
};

bool IsScannerReady() {
  vox::CTwImgIFNW scanner("Front desk", "127.0.0.1");
  vox::CTwainImageIF& interface = scanner;
  return interface.GetIfErrorStatus() == vox::IF_ERR_STS_NONE;
}

// Settings are asked for and nothing is stored.
bool IsAskedForSettings() {
  vox::UserPreferences& settings = vox::UserPreferences::instance();
  const double factor = settings.jpegCompressionFactor();
  vox::FullPathToLeafTransformer::submit();
  return factor >= 0 && factor <= 1 && !settings.lastOutcome().path.empty() &&
         vox::ValueTransformer::valueTransformerForName("FullPathToLeafTransformer") != nullptr;
}

// Each table of the installed library is found, and has in it what the library ships.
bool HasItsTables() {
  const auto letter = vox::PaperSizes::instance().paperByPaperId("Letter");
  return vox::SupportedDevices::instance().isSupportedModelName("Veltronix QD7200") &&
         letter != nullptr && letter->Integer("twainId") == 3 &&
         std::ifstream(vox::ResourcePath("DSDebug", "plist")).good();
}

}  // namespace

int main() {
  for (const void* part : kReached) {
    if (part == nullptr) return 1;
  }
  const std::string text = vox::IfErrorText(8);
  std::printf("%s\n", text.c_str());
  return text == " no document" && IsScannerReady() && IsAskedForSettings() && HasItsTables() ? 0
                                                                                              : 1;
}
