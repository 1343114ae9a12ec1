#include <regex>
#include <stdexcept>

#include <android-base/strings.h>

#include "VemraExtensionProperty/boot/display_version_name.h"
#include "VemraExtensionProperty/boot/special_properties.h"
#include "fuzz/fuzz_support.h"

namespace {

using android::init::PropertyMap;

const std::vector<std::string> kNames = android::base::Split(
    "ro.vendor.vemra.version_suffix ro.build.display.id ro.vemra.image.my_carrier.version_name "
    "ro.vemra.image.my_region.version_name ro.build.cota.version_name "
    "ro.vemra.customize.display.version_name",
    " ");
const std::string& kDisplay = kNames.back();

}  // namespace

// Input: the values of the properties above.
void fuzz::Test(const std::vector<std::string>& pieces) {
  std::string values[6];
  for (size_t i = 0; i < pieces.size(); ++i) {
    device::ApplyProperty(kNames[i], pieces[i]);
    values[i] = pieces[i].substr(0, 91).c_str();  // as the platform's buffer shows it
  }
  auto& [suffix, id, carrier, region, cota, display] = values;

  std::vector<PropertyMap> expected;
  const size_t underscore = id.find('_');
  if (!suffix.empty() && underscore != 0 && underscore != std::string::npos) {
    expected.push_back({{"ro.vendor.vemra.exp.version", id.insert(underscore, suffix)}});
  }
  static const std::regex up_to_last_dash(R"(^[\s\S]+-)");
  std::string name = std::regex_replace(carrier.empty() ? region : carrier, up_to_last_dash, "");
  if (display.empty() && !name.empty()) expected.push_back({{kDisplay, name}});

  // The last fields: "[[letter_]kind_]number", behind at least one byte.
  static const std::regex fields(R"((([\s\S]+_([^_]*)|[\s\S]+)_([^_]*)|[\s\S]+)_([^_]*))");
  std::smatch match;
  const bool has_number = std::regex_match(cota, match, fields);
  const std::string letter = match[3].matched ? match.str(3) : "T", number = match.str(5);
  if (carrier.empty()) name = display;
  const bool shows = !display.empty() && !name.empty();
  const bool composes = shows && has_number && !letter.empty();
  const bool throws = composes && name.size() == 1;
  if (composes && !throws) {
    static const std::regex tag("(PM|CT)$");
    name = std::regex_replace(name, tag, match.str(4) == "COTA" ? "CT" : "P") + "_" + letter +
           (number.size() < 3 ? std::string(3 - number.size(), '0') : "") + number;
  }
  if (shows && !throws) expected.push_back({{kDisplay, name}});

  static std::vector<PropertyMap> handed_over;
  handed_over.clear();
  const auto host = [](int, PropertyMap map) { handed_over.push_back(map); };
  try {
    android::init::loadSpecialProperties(host);
    android::init::loadCustomizeDisplayVersionName(host);
    Expect(!throws, "a display name of one character is out of range");
  } catch (const std::out_of_range&) {
    Expect(throws, "nothing else is");
  }
  Expect(handed_over == expected, "the hand-overs are the model's");
}
