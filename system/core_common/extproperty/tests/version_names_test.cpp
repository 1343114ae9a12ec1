#include "tests/device_test.h"

#include <stdexcept>

#include "VemraExtensionProperty/display_version_name.h"
#include "VemraExtensionProperty/special_properties.h"

namespace {

const char kDisplay[] = "ro.vemra.customize.display.version_name";
const char kCarrier[] = "ro.vemra.image.my_carrier.version_name";
const char kRegion[] = "ro.vemra.image.my_region.version_name";
const char kCota[] = "ro.build.cota.version_name";
const char kExported[] = "ro.vendor.vemra.exp.version";

}  // namespace

class VersionNamesTest : public DeviceTest {
 protected:
  static void SetNames(const std::string& display, const std::string& carrier,
                       const std::string& cota_or_region, const char* third = kCota) {
    SetProperty(kDisplay, display);
    SetProperty(kCarrier, carrier);
    SetProperty(third, cota_or_region);
  }
  static std::string ExportedVersion(const std::string& suffix, const std::string& id) {
    SetProperty("ro.vendor.vemra.version_suffix", suffix);
    SetProperty("ro.build.display.id", id);
    android::init::loadSpecialProperties(Apply);
    const auto hand_overs = TakeHandOvers();
    return hand_overs.empty() ? "<none>" : hand_overs.at(0).map.at(kExported);
  }
  // Returns the display version name that was handed over, or "<none>".
  static std::string Display(void (*loader)(android::init::PropertyApplyCallback)) {
    loader(Apply);
    const auto hand_overs = TakeHandOvers();
    if (hand_overs.empty()) return "<none>";
    EXPECT_EQ(hand_overs,
              (std::vector<HandOver>{{0, {{kDisplay, hand_overs[0].map.at(kDisplay)}}}}));
    return hand_overs[0].map.at(kDisplay);
  }
};

TEST_F(VersionNamesTest, exported_version_has_the_suffix_before_the_first_underscore) {
  EXPECT_EQ(ExportedVersion("S", "AB_12_X"), "ABS_12_X");
  EXPECT_EQ(ExportedVersion("S", "A_"), "AS_");
  for (const char* id : {"_AB", "ABC", "", "_A_B"}) EXPECT_EQ(ExportedVersion("S", id), "<none>");
  EXPECT_EQ(ExportedVersion("", "AB_12"), "<none>");
}

TEST_F(VersionNamesTest, special_display_name_is_the_last_part_of_carrier_or_region) {
  const auto display = [](const char* carrier, const char* region) {
    SetNames("", carrier, region, kRegion);
    return Display(android::init::loadSpecialProperties);
  };
  EXPECT_EQ(display("V1.0-EU-B7", "R-1"), "B7");
  EXPECT_EQ(display("", "R-7"), "7");
  EXPECT_EQ(display("-7", ""), "-7");
  EXPECT_EQ(display("ABC", ""), "ABC");
  EXPECT_EQ(display("-a-b", ""), "b");
  EXPECT_EQ(display("", ""), "<none>");
  TakeLog();
  EXPECT_EQ(display("V1-", "R-7"), "<none>");
  EXPECT_EQ(TakeLog(), std::vector<std::string>{"I customize dispaly version "});
  SetNames("set", "V-2", "R-7", kRegion);
  EXPECT_EQ(Display(android::init::loadSpecialProperties), "<none>");
  EXPECT_TRUE(TakeLog().empty());
}

TEST_F(VersionNamesTest, both_special_properties_are_handed_over_separately) {
  SetProperty("ro.vendor.vemra.version_suffix", "S");
  SetProperty("ro.build.display.id", "A_B");
  SetProperty(kCarrier, "V-9");
  android::init::loadSpecialProperties(Apply);
  EXPECT_EQ(TakeHandOvers(),
            (std::vector<HandOver>{{0, {{kExported, "AS_B"}}}, {0, {{kDisplay, "9"}}}}));
}

TEST_F(VersionNamesTest, display_name_is_composed_of_carrier_and_cota_version) {
  const struct {
    const char *display, *carrier, *cota, *result;
  } cases[] = {
      {"V5.0PM", "", "X_U_COTA_7", "V5.0CT_U007"},
      {"V5.0PM", "", "X_U_BASE_123", "V5.0P_U123"},
      {"V5.0", "", "X_U_COTA_7", "V5.0_U007"},
      {"V5.0", "A-B2CT", "X_U_COTA_7", "B2CT_U007"},
      {"V5.0", "R-9", "", "9"},
      {"V5.0CT", "", "COTA_12", "V5.0P_T012"},
      {"", "A-B", "X_U_COTA_7", "<none>"},
      {"V5", "EU-", "X_U_COTA_7", "<none>"},
      {"V5", "", "COTA5", "V5"},
      {"V5", "", "_5", "V5"},
      {"V5", "", "X_U_COTA_", "V5_U000"},
      {"V5", "", "X_U_COTA_1234", "V5_U1234"},
      {"V5PM", "", "X__COTA_7", "V5PM"},
      {"V5PM", "", "_COTA_7", "V5P_T007"},
      {"V5PM", "", "U_COTA_7", "V5CT_T007"},
      {"PM", "", "X_U_COTA_7", "CT_U007"},
      {"V5PM", "", "_U_COTA_7", "V5CT_T007"},
      {"V5", "-A", "", "-A"},
  };
  for (const auto& c : cases) {
    SetNames(c.display, c.carrier, c.cota);
    EXPECT_EQ(Display(android::init::loadCustomizeDisplayVersionName), c.result)
        << c.display << " " << c.carrier << " " << c.cota;
  }
}

TEST_F(VersionNamesTest, display_name_logs_what_it_was_composed_of) {
  const auto log = [](const char* display, const char* carrier, const char* cota) {
    SetNames(display, carrier, cota);
    TakeLog();
    android::init::loadCustomizeDisplayVersionName(Apply);
    return TakeLog();
  };
  using Lines = std::vector<std::string>;
  EXPECT_EQ(log("V5PM", "A-B2", "X_U_COTA_7"),
            (Lines{"I carrier version A-B2",
                   "I cota type CT android version: U cota version: 007 display version: "
                   "B2_U007"}));
  EXPECT_EQ(log("V5PM", "", "X__COTA_7"),
            (Lines{"I cota type CT android version:  cota version: 007 display version: V5PM"}));
  EXPECT_EQ(log("V5PM", "A-", "X_U_COTA_7"), (Lines{"I carrier version A-"}));
  EXPECT_EQ(log("V5PM", "", "_7"), Lines());
  EXPECT_EQ(log("", "A-B2", "X_U_COTA_7"), Lines());
}

TEST_F(VersionNamesTest, one_character_display_name_raises_out_of_range) {
  SetNames("V", "", "X_U_COTA_7");
  EXPECT_THROW(android::init::loadCustomizeDisplayVersionName(Apply), std::out_of_range);
  EXPECT_TRUE(TakeHandOvers().empty());
  SetNames("V", "", "");
  EXPECT_EQ(Display(android::init::loadCustomizeDisplayVersionName), "V");
}
