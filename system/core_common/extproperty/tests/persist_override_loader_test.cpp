#include "tests/device_test.h"

namespace {

const char kDate[] = "ro.vemra.image.my_company.date";
const char kBackup[] = "persist.sys.vemra.company.ota.version.backup";
const char kFlashback[] = "ro.sys.customize.flashback.company";
const char kDisplay[] = "ro.vemra.customize.display.version_name";

}  // namespace

class PersistOverrideLoaderTest : public DeviceTest {
 protected:
  std::vector<HandOver> Boot() {
    EXPECT_EQ(service_.loadPersistOverrideProperties(Apply), 0);
    return TakeHandOvers();
  }
};

TEST_F(PersistOverrideLoaderTest, one_boot_hands_over_every_group_in_order) {
  SetProperty("ro.none.clear.switch.first", "true");
  SetProperty("sys.sim.switch.convert", "set");
  SetProperty("persist.sys.vemra.operator.opta", "ABC");
  SetProperty("persist.sys.vemra.operator.optb", "Def");
  SetProperty(kDate, "D2");
  SetProperty(kBackup, "D1");
  SetProperty("ro.vendor.vemra.version_suffix", "S");
  SetProperty("ro.build.display.id", "A_B");
  SetProperty("ro.vemra.image.my_carrier.version_name", "V-9");
  SetProperty("persist.sys.911.shutdown", "1");
  SetProperty("ro.vemra.internet.whether.force.connect", "1");
  Write("/odm/etc/build.abc-def.prop", "ro.partition=odm\n");
  Write("/my_company/build.prop", "ro.c=1\nroc=1\nsys.c=1\n");
  Write("/my_company/etc/build.abc-def.prop", "persist.c=1\nsys.c=2\n");

  const PropertyMap key_pass = {{"ro.none.clear.switch.first", "true"},
                                {"sys.sim.switch.convert", "set"},
                                {kFlashback, "invalid"}};
  // The host has applied the first pass when the second one runs.
  PropertyMap second_pass = key_pass;
  second_pass.erase(kFlashback);
  EXPECT_EQ(Boot(),
            (std::vector<HandOver>{{0, key_pass},
                                   {0, second_pass},
                                   {0, {{"ro.partition", "odm"}}},
                                   {1, {{"persist.c", "1"}, {"roc", "1"}, {"sys.c", "2"}}},
                                   {2, {{kBackup, "D2"}}},
                                   {0, {{"ro.vendor.vemra.exp.version", "AS_B"}}},
                                   {0, {{kDisplay, "9"}}},
                                   {2, {{"persist.sys.recopy.preload.vminstalled", "none"}}},
                                   {0, {{"ro.vemra.internet.force.connect", "1"}}}}));
  EXPECT_EQ(service_.ssvKey, "abc-def");
}

TEST_F(PersistOverrideLoaderTest, keys_kept_in_the_object_skip_the_passes_of_a_second_call) {
  Write("/mnt/vendor/vemrareserve/system/ssv/sim_switch_first_file", "sys.sim.switch.first=F\n");
  Write("/odm/properties/F/SimSwitchFirstTime/x.prop", "x=1\n");
  EXPECT_EQ(Boot(),
            (std::vector<HandOver>{{0, {{"sys.sim.switch.first", "F"}, {kFlashback, "invalid"}}},
                                   {0, {{"x", "1"}}}}));
  EXPECT_TRUE(Boot().empty());

  // A new operator key loads the partitions again, without a second key pass.
  SetProperty("persist.sys.vemra.operator.opta", "a");
  EXPECT_TRUE(Boot().empty());
  SetProperty("persist.sys.vemra.operator.optb", "b");
  EXPECT_EQ(Boot(), (std::vector<HandOver>{{0, {{"x", "1"}}}}));
  EXPECT_EQ(service_.ssvKey, "a-b");
  EXPECT_TRUE(Boot().empty());
}

TEST_F(PersistOverrideLoaderTest, partitions_are_loaded_after_a_key_pass_that_hands_over_nothing) {
  SetProperty(kFlashback, "set");
  service_.ssvKey = "S";
  Write("/odm/etc/build.S.prop", "x=1\n");
  EXPECT_EQ(Boot(), (std::vector<HandOver>{{0, {{"x", "1"}}}}));
}

TEST_F(PersistOverrideLoaderTest, company_marker_follows_the_date_even_to_empty) {
  service_.oldNvKey = "known";
  Write("/my_company/build.prop", "ro.only=1\n");
  SetProperty(kDate, "D2");
  EXPECT_EQ(Boot(), (std::vector<HandOver>{{2, {{kBackup, "D2"}}}}));
  EXPECT_TRUE(Boot().empty());
  SetProperty(kDate, "");
  EXPECT_EQ(Boot(), (std::vector<HandOver>{{2, {{kBackup, ""}}}}));
}

TEST_F(PersistOverrideLoaderTest, company_partition_is_loaded_through_its_virtual_slot) {
  struct Overriding : Service {
    using Service::loadExtensionPartitionProperties;
    void loadExtensionPartitionProperties(std::string partition, PropertyMap* out) override {
      out->emplace("seen", partition);
    }
  } service;
  service.oldNvKey = "known";
  SetProperty(kDate, "D2");
  service.loadPersistOverrideProperties(Apply);
  EXPECT_EQ(TakeHandOvers().at(0), (HandOver{1, {{"seen", "/my_company"}}}));
}

TEST_F(PersistOverrideLoaderTest, special_edition_is_handed_over_whole_and_even_empty) {
  SetProperty("ro.vemra.image.my_carrier.version_name", "V-9");
  service_.loadQuasarOverrideProperties(Apply);
  EXPECT_EQ(TakeHandOvers(), (std::vector<HandOver>{{0, {}}, {0, {{kDisplay, "9"}}}}));
  EXPECT_EQ(TakeLog()[1], "I can not read prop from :/my_company/etc/build.prop");
  Write("/my_company/etc/build.prop", "ro.a=1\npersist.a=1\nsys.a=1\n");
  service_.loadQuasarOverrideProperties(Apply);
  EXPECT_EQ(TakeHandOvers(),
            (std::vector<HandOver>{{0, {{"ro.a", "1"}, {"persist.a", "1"}, {"sys.a", "1"}}}}));
}
