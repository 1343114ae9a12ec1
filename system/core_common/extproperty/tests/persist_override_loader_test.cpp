#include "tests/device_test.h"

#include <sys/mount.h>

#include "VemraExtensionProperty/boot/channel_info_restore.h"
#include "VemraExtensionProperty/boot/forced_internet_connection.h"

class PersistOverrideLoaderTest : public DeviceTest {
 protected:
  std::string Boot(const std::string& properties = "") {
    Set(properties);
    return HandedOverBy([&](auto cb) { EXPECT_EQ(service_.loadPersistOverrideProperties(cb), 0); });
  }
};

TEST_F(PersistOverrideLoaderTest, one_boot_hands_over_every_group_in_order) {
  Write("/odm/etc/build.abc-def.prop", "ro.partition=odm\n");
  Write("/my_company/build.prop", "ro.c=1\nroc=1\nsys.c=1\n");
  Write("/my_company/etc/build.abc-def.prop", "persist.c=1\nsys.c=2\n");
  // The host has applied the first key pass when the second one runs.
  EXPECT_EQ(
      Boot("ro.none.clear.switch.first=true sys.sim.switch.convert=set "
           "persist.sys.vemra.operator.opta=ABC persist.sys.vemra.operator.optb=Def "
           "ro.vemra.image.my_company.date=D2 persist.sys.vemra.company.ota.version.backup=D1 "
           "ro.vendor.vemra.version_suffix=S ro.build.display.id=A_B persist.sys.911.shutdown=1 "
           "ro.vemra.internet.whether.force.connect=1"),
      "0 ro.none.clear.switch.first=true ro.sys.customize.flashback.company=invalid "
      "sys.sim.switch.convert=set | "
      "0 ro.none.clear.switch.first=true sys.sim.switch.convert=set | "
      "0 ro.partition=odm | "
      "1 persist.c=1 roc=1 sys.c=2 | 2 persist.sys.vemra.company.ota.version.backup=D2 | "
      "0 ro.vendor.vemra.exp.version=AS_B | "
      "2 persist.sys.recopy.preload.vminstalled=none | "
      "0 ro.vemra.internet.force.connect=1");
}

TEST_F(PersistOverrideLoaderTest, keys_kept_in_the_object_skip_the_passes_of_a_second_call) {
  Write("/odm/etc/build.S.prop", "x=1\n");
  Write("/odm/properties/F/SimSwitchFirstTime/x.prop", "y=1\n");
  service_.ssvKey = "S";
  EXPECT_EQ(Boot("ro.sys.customize.flashback.company=set"), "0 x=1");
  for (std::string* key : {&service_.oldNvKey, &service_.simSwitchFirstKey,
                           &service_.simSwitchCurrentKey, &service_.nvTargetKey}) {
    *key = "known";
    EXPECT_EQ(Boot(), "");
    *key = "";
  }
  service_.ssvKey = "";
  EXPECT_EQ(Boot("sys.sim.switch.first=F"), "0 sys.sim.switch.first=F | 0 y=1");
  // A new operator key loads the partitions again, without a second key pass; a known one stays.
  EXPECT_EQ(Boot("persist.sys.vemra.operator.opta=a"), "");
  EXPECT_EQ(Boot("persist.sys.vemra.operator.optb=b"), "0 y=1");
  EXPECT_EQ(Boot("persist.sys.vemra.operator.optb=c"), "");
}

TEST_F(PersistOverrideLoaderTest, special_edition_is_handed_over_whole_and_even_empty) {
  const auto quasar = [&](auto cb) { service_.loadQuasarOverrideProperties(cb); };
  Set("ro.vemra.image.my_carrier.version_name=V-9");
  EXPECT_EQ(HandedOverBy(quasar), "0  | 0 ro.vemra.customize.display.version_name=9");
  EXPECT_THAT(Logged(), HasSubstr("I can not read prop from :/my_company/etc/build.prop"));
  Write("/my_company/etc/build.prop", "ro.a=1\npersist.a=1\nsys.a=1\n");
  EXPECT_EQ(HandedOverBy(quasar), "0 persist.a=1 ro.a=1 sys.a=1");
}

using EmergencyShutdownTest = DeviceTest;

static std::string Restore(const std::string& properties) {
  Set(properties);
  return HandedOverBy(android::init::checkAndRestoreChannelInfo);
}

TEST_F(EmergencyShutdownTest, replay_hands_over_what_it_accumulates_even_if_unreadable) {
  fs::create_directories(kAppChannelFile);
  Write(kDataCommonFile, "b=data\nc=data\n");
  EXPECT_EQ(Restore(""), "0  | 0 b=data c=data");
  fs::remove(kAppChannelFile);
  Write(kAppChannelFile, "a=app\nb=app\n");
  for (const std::string shutdown : {"0", "11", "1 persist.sys.recopy.preload.vminstalled=true"}) {
    EXPECT_EQ(Restore("persist.sys.911.shutdown=" + shutdown),
              "0 a=app b=app | 0 a=app b=data c=data");
  }
}

TEST_F(EmergencyShutdownTest, restore_resets_the_channel_once_and_then_deletes_its_files) {
  for (const char* path : {kAppChannelFile, kCommonFile, kDataCommonFile}) Write(path, "a=1\n");
  Set("persist.sys.911.shutdown=1 persist.sys.channel.info=X");
  android::init::checkAndRestoreChannelInfo([](int mode, PropertyMap map) {
    EXPECT_TRUE(fs::exists(kAppChannelFile) && fs::exists(kDataCommonFile));
    Apply(mode, map);
  });
  EXPECT_EQ(HandedOver(),
            "2 persist.sys.channel.info= persist.sys.recopy.preload.vminstalled=none");
  EXPECT_EQ(Read(kAppChannelFile) + Read(kCommonFile) + Read(kDataCommonFile),
            "missingmissingmissing");
  EXPECT_EQ(Restore(""), "") << "the stored flag ends the restore";
  // A mount point cannot be deleted.
  Write(kDataCommonFile, "b=1\n");
  ASSERT_EQ(mount(kDataCommonFile, kDataCommonFile, nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(Restore("persist.sys.recopy.preload.vminstalled="),
            "2 persist.sys.recopy.preload.vminstalled=none | "
            "0 b=1 persist.sys.recopy.preload.vminstalled=none");
  EXPECT_EQ(Logged(), std::string("E unlink() failed for ") + kDataCommonFile);
}

TEST_F(EmergencyShutdownTest, restore_resets_removal_flags_where_any_is_set) {
  Set("persist.sys.remove.region-all.apk=x persist.sys.channel.country.info=Y");
  EXPECT_EQ(Restore("persist.sys.911.shutdown=1"),
            "2 persist.sys.channel.country.info= persist.sys.reboot.time.count=0 "
            "persist.sys.recopy.preload.vminstalled=true persist.sys.remove.carrier.apk=false "
            "persist.sys.remove.region-all.apk=false persist.sys.remove.region.apk=false");
}

TEST_F(EmergencyShutdownTest, forced_connection_needs_three_conditions_and_is_recorded) {
  const auto force = [](const std::string& properties) {
    Set(properties);
    return HandedOverBy(android::init::forceInternetConnection);
  };
  const std::string connect = "ro.vemra.internet.force.connect=";
  const std::string allowed = "ro.vemra.internet.whether.force.connect=";
  fs::create_directories(kSsv);
  for (const std::string& properties : {allowed + "1", "persist.sys.911.shutdown=1 " + allowed,
                                        allowed + "11", allowed + "1 " + connect + "0"}) {
    EXPECT_EQ(force(properties), "") << properties;
  }
  EXPECT_EQ(force(connect), "0 " + connect + "1");
  EXPECT_EQ(Read(kForceConnectFile) + ModeAndOwner(kForceConnectFile), connect + "1\n0600 0:0");
}
