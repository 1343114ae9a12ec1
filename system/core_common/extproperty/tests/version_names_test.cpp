#include "tests/device_test.h"

#include <stdexcept>

#include "VemraExtensionProperty/boot/display_version_name.h"
#include "VemraExtensionProperty/boot/special_properties.h"

constexpr auto kDisplayName = android::init::loadCustomizeDisplayVersionName;
constexpr auto kSpecial = android::init::loadSpecialProperties;

using VersionNamesTest = DeviceTest;

TEST_F(VersionNamesTest, special_properties_are_parts_of_version_names) {
  const std::string carrier = "$display= $carrier=";
  for (const auto& row : Table("V1.0-EU-B7,R-1,B7 ,R-7,7 -7,,-7 ABC,,ABC -a-b,,b V_2,,V_2")) {
    const std::string names = carrier + row[0] + " $image.region.version_name=" + row[1];
    EXPECT_EQ(WithLog(Run(kSpecial, names)),
              "0 $display=" + row[2] + " | I customize dispaly version " + row[2]);
  }
  EXPECT_EQ(WithLog(Run(kSpecial)), "") << "kept once set";
  EXPECT_EQ(WithLog(Run(kSpecial, carrier + "V1-")), "I customize dispaly version ");
  EXPECT_EQ(Run(kSpecial, "ro.build.display.id=AB_12"), "");
  Set("ro.vendor.vemra.version_suffix=S");
  EXPECT_EQ(Run(kSpecial, "ro.build.display.id=AB_12_X"), "0 $exported=ABS_12_X");
  for (const std::string id : {"_AB", "ABC", "", "_A_B"}) {
    EXPECT_EQ(Run(kSpecial, "ro.build.display.id=" + id), "") << id;
  }
}

TEST_F(VersionNamesTest, display_name_is_composed_of_carrier_and_cota_version) {
  const auto load = [](const std::string& display, const std::string& carrier,
                       const std::string& cota) {
    return WithLog(Run(kDisplayName, "$display=" + display + " $carrier=" + carrier +
                                         " ro.build.cota.version_name=" + cota));
  };
  for (const auto& row :
       Table("V5.0PM,,X_U_COTA_7,V5.0CT_U007 V5.0PM,,X_U_BASE_123,V5.0P_U123 "
             "V5.0,,X_U_COTA_7,V5.0_U007 V5.0,A-B2CT,X_U_COTA_7,B2CT_U007 V5.0,R-9,,9 "
             "V5.0CT,,COTA_12,V5.0P_T012 V5,,COTA5,V5 V5,,_5,V5 V5,,X_U_COTA_,V5_U000 "
             "V5,,X_U_COTA_1234,V5_U1234 V5PM,,X__COTA_7,V5PM V5PM,,_COTA_7,V5P_T007 V5,-A,,-A "
             "V5PM,,U_COTA_7,V5CT_T007 PM,,X_U_COTA_7,CT_U007 V5PM,,_U_COTA_7,V5CT_T007 V,,,V")) {
    const std::string result = load(row[0], row[1], row[2]);
    EXPECT_EQ(result.substr(0, result.find(" |")), "0 $display=" + row[3]) << row[0] << row[2];
  }
  EXPECT_EQ(load("", "A-B", "X_U_COTA_7"), "");
  EXPECT_EQ(load("V5", "EU-", "X_U_COTA_7"), "I carrier version EU-");
  EXPECT_EQ(load("V5PM", "A-B2", "X_U_COTA_7"),
            "0 $display=B2_U007 | I carrier version A-B2 | I cota type CT android version: U cota "
            "version: 007 display version: B2_U007");
  // A name of one character has no room for the type.
  EXPECT_THROW(load("V", "", "X_U_COTA_7"), std::out_of_range);
}
