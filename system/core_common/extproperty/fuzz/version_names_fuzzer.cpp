#include <algorithm>
#include <stdexcept>

#include "VemraExtensionProperty/display_version_name.h"
#include "VemraExtensionProperty/special_properties.h"
#include "fuzz/fuzz_support.h"

namespace {

using android::init::PropertyMap;

constexpr char kDisplay[] = "ro.vemra.customize.display.version_name";
const std::vector<const char*> kNames = {"ro.vendor.vemra.version_suffix",
                                         "ro.build.display.id",
                                         "ro.vemra.image.my_carrier.version_name",
                                         "ro.vemra.image.my_region.version_name",
                                         "ro.build.cota.version_name",
                                         kDisplay};

// Moves the last field of `text` to `field`, unless nothing is before it.
bool TakeField(char separator, std::string* text, std::string* field) {
  const size_t cut = text->rfind(separator);
  if (cut == 0 || cut == std::string::npos) return false;
  *field = text->substr(cut + 1);
  text->resize(cut);
  return true;
}

}  // namespace

// Input: the values of the properties above.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::vector<std::string> values = fuzz::Cut(data, size, kNames.size());
  for (size_t i = 0; i < values.size(); ++i) {
    device::ApplyProperty(kNames[i], values[i]);
    values[i] = values[i].substr(0, 91).c_str();  // as the platform's buffer shows it
  }
  auto [suffix, id, carrier, region, cota, display] =
      std::tie(values[0], values[1], values[2], values[3], values[4], values[5]);

  std::vector<PropertyMap> expected;
  const size_t underscore = std::min(id.find('_'), id.size()) % std::max<size_t>(id.size(), 1);
  if (!suffix.empty() && underscore != 0) {
    expected.push_back({{"ro.vendor.vemra.exp.version", id.insert(underscore, suffix)}});
  }
  std::string rest = carrier.empty() ? region : carrier, name = rest;
  TakeField('-', &rest, &name);
  if (display.empty() && !name.empty()) expected.push_back({{kDisplay, name}});

  if (carrier.empty()) name = display;
  std::string number, kind, letter = "T";
  const bool shows = !display.empty() && !name.empty();
  const bool has_number = TakeField('_', &cota, &number);
  if (has_number && TakeField('_', &cota, &kind)) TakeField('_', &cota, &letter);
  const bool composes = shows && has_number && !letter.empty();
  const bool throws = composes && name.size() == 1;
  if (composes && !throws) {
    const std::string tag = name.substr(name.size() - 2);
    if (tag == "PM" || tag == "CT") name.replace(name.size() - 2, 2, kind == "COTA" ? "CT" : "P");
    while (number.size() < 3) number = "0" + number;
    name += "_" + letter + number;
  }
  if (shows && !throws) expected.push_back({{kDisplay, name}});

  static std::vector<PropertyMap> handed_over;
  handed_over.clear();
  const auto host = [](int, PropertyMap map) { handed_over.push_back(map); };
  bool threw = false;
  try {
    android::init::loadSpecialProperties(host);
    android::init::loadCustomizeDisplayVersionName(host);
  } catch (const std::out_of_range&) {
    threw = true;
  }
  fuzz::Expect(threw == throws, "only a display name of one character is out of range");
  fuzz::Expect(handed_over == expected, "the hand-overs are the model's");
  return 0;
}
