#include "tests/device_test.h"

#include <stdexcept>

#include "VemraExtensionProperty/boot/display_version_name.h"
#include "VemraExtensionProperty/boot/special_properties.h"

class VersionNamesTest : public DeviceTest {
 protected:
  // These return the display name that is handed over, "none" where there is none.
  static std::string Choose(const std::string& carrier, const std::string& region) {
    Set(kDisplay + "= ro.vemra.image.my_carrier.version_name=" + carrier +
        " ro.vemra.image.my_region.version_name=" + region);
    return DisplayName(android::init::loadSpecialProperties);
  }
  static std::string Compose(const std::string& display, const std::string& carrier,
                             const std::string& cota) {
    Set(kDisplay + "=" + display + " ro.vemra.image.my_carrier.version_name=" + carrier +
        " ro.build.cota.version_name=" + cota);
    return DisplayName(android::init::loadCustomizeDisplayVersionName);
  }
  template <typename Operation>
  static std::string DisplayName(Operation operation) {
    const std::string handed_over = HandedOverBy(operation);
    return handed_over.empty() ? "none" : handed_over.substr(kDisplay.size() + 3);
  }

  inline static const std::string kDisplay = "ro.vemra.customize.display.version_name";
};

TEST_F(VersionNamesTest, exported_version_has_the_suffix_before_the_first_underscore) {
  for (const std::string id : {"_A_B", "ABC", "AB_12_X"}) {
    Set("ro.vendor.vemra.version_suffix=S ro.build.display.id=" + id);
    android::init::loadSpecialProperties(Apply);
  }
  EXPECT_EQ(HandedOver(), "0 ro.vendor.vemra.exp.version=ABS_12_X");
}

TEST_F(VersionNamesTest, display_name_is_the_last_part_of_the_carriers_or_regions) {
  EXPECT_EQ(Choose("V1.0-EU-B7", "R-1"), "B7");
  EXPECT_EQ(DisplayName(android::init::loadSpecialProperties), "none") << "kept once set";
  EXPECT_EQ(Choose("", "R-7"), "7");
  EXPECT_EQ(Choose("-7", ""), "-7");
  EXPECT_EQ(Choose("V1-", ""), "none");
  EXPECT_THAT(Logged(), testing::EndsWith(" | I customize dispaly version "));
}

TEST_F(VersionNamesTest, display_name_is_composed_of_carrier_and_cota_version) {
  EXPECT_EQ(Compose("V5PM", "A-B2PM", "X_U_COTA_7"), "B2CT_U007");
  EXPECT_THAT(Logged(), testing::EndsWith("cota version: 007 display version: B2CT_U007"));
  EXPECT_EQ(Compose("", "A-B", "X_U_COTA_7"), "none");
  EXPECT_EQ(Compose("V5", "EU-", "X_U_COTA_7"), "none");
  // The type stands in place of a tag, and only there.
  EXPECT_EQ(Compose("PM", "", "X_U_BASE_1234"), "P_U1234");
  EXPECT_EQ(Compose("V5CT", "", "COTA_12"), "V5P_T012");
  // Fields that are missing or empty.
  EXPECT_EQ(Compose("V5", "", "X_U_COTA_"), "V5_U000");
  EXPECT_EQ(Compose("V5PM", "", "X__COTA_7"), "V5PM");
  EXPECT_EQ(Compose("V5PM", "", "_U_COTA_7"), "V5CT_T007");
  // A name of one character has no room for the type.
  EXPECT_THROW(Compose("V", "", "X_U_COTA_7"), std::out_of_range);
}
