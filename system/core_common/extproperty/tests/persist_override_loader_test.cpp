#include "tests/device_test.h"

#include <sys/mount.h>

#include "VemraExtensionProperty/boot/channel_info_restore.h"
#include "VemraExtensionProperty/boot/forced_internet_connection.h"

constexpr auto kRestore = android::init::checkAndRestoreChannelInfo;
constexpr auto kForce = android::init::forceInternetConnection;

class PersistOverrideLoaderTest : public DeviceTest {
 protected:
  std::string Boot(const std::string& properties = "") {
    return Run([&](auto cb) { EXPECT_EQ(service_.loadPersistOverrideProperties(cb), 0); },
               properties);
  }
};

TEST_F(PersistOverrideLoaderTest, one_boot_hands_over_every_group_in_order) {
  WriteFiles(
      "/odm/etc/build.abc-def.prop ro.partition=odm | /my_company/build.prop ro.c=1 roc=1 sys.c=1 "
      "| /my_company/etc/build.abc-def.prop persist.c=1 sys.c=2");
  // The host has applied the first key pass when the second one runs.
  EXPECT_EQ(Boot("ro.none.clear.switch.first=true $switch.convert=set $opta=ABC $optb=Def "
                 "$image.company.date=D2 $backup=D1 ro.vendor.vemra.version_suffix=S "
                 "ro.build.display.id=A_B $carrier=V-9 $shutdown=1 "
                 "ro.vemra.internet.whether.force.connect=1"),
            "0 ro.none.clear.switch.first=true $flashback=invalid $switch.convert=set | 0 "
            "ro.none.clear.switch.first=true $switch.convert=set | 0 ro.partition=odm | 1 "
            "persist.c=1 roc=1 sys.c=2 | 2 $backup=D2 | 0 $exported=AS_B | 0 $display=9 | 2 "
            "$recopy=none | 0 $connect=1");
}

TEST_F(PersistOverrideLoaderTest, keys_kept_in_the_object_skip_the_passes_of_a_second_call) {
  WriteFiles("/odm/etc/build.S.prop x=1 | /odm/properties/F/SimSwitchFirstTime/x.prop y=1");
  service_.ssvKey = "S";
  EXPECT_EQ(Boot("$flashback=set"), "0 x=1");
  for (std::string* key : {&service_.oldNvKey, &service_.simSwitchFirstKey,
                           &service_.simSwitchCurrentKey, &service_.nvTargetKey}) {
    *key = "known";
    EXPECT_EQ(Boot(), "");
    *key = "";
  }
  service_.ssvKey = "";
  EXPECT_EQ(Boot("$switch.first=F $switch.current=C"), "0 $switch.first=F | 0 y=1");
  // A new operator key loads the partitions again, without a second key pass.
  EXPECT_EQ(Boot("$opta=a"), "");
  EXPECT_EQ(Boot("$optb=b"), "0 y=1");
  EXPECT_EQ(Boot(), "");
}

TEST_F(PersistOverrideLoaderTest, company_marker_follows_the_date_even_to_empty) {
  service_.oldNvKey = "known";
  WriteFiles("/my_company/build.prop ro.only=1");
  EXPECT_EQ(Boot("$image.company.date=D2"), "2 $backup=D2");
  EXPECT_EQ(Boot("$image.company.date="), "2 $backup=");
}

TEST_F(PersistOverrideLoaderTest, special_edition_is_handed_over_whole_and_even_empty) {
  const auto quasar = [&](auto cb) { service_.loadQuasarOverrideProperties(cb); };
  EXPECT_EQ(Run(quasar, "$carrier=V-9"), "0  | 0 $display=9");
  EXPECT_TRUE(LogHas("I can not read prop from :/my_company/etc/build.prop"));
  WriteFiles("/my_company/etc/build.prop ro.a=1 persist.a=1 sys.a=1");
  EXPECT_EQ(Run(quasar), "0 persist.a=1 ro.a=1 sys.a=1");
}

using EmergencyShutdownTest = DeviceTest;

TEST_F(EmergencyShutdownTest, replay_hands_over_what_it_accumulates_even_if_unreadable) {
  WriteFiles("$channel a=app b=app | $common b=data c=data");
  for (const std::string shutdown : {"0", "11", "1 $recopy=true"}) {
    EXPECT_EQ(Run(kRestore, "$shutdown=" + shutdown), "0 a=app b=app | 0 a=app b=data c=data");
  }
  Remove("$channel $common");
  MakeDirectories("$channel $common");
  EXPECT_EQ(Run(kRestore), "0  | 0 ");
  EXPECT_TRUE(
      LogHas("E reboot empty appchanel property failed:$channel | E reboot data common property "
             "failed:$common"));
}

TEST_F(EmergencyShutdownTest, restore_resets_the_channel_once_and_deletes_its_files) {
  WriteFiles("$channel a=1 | $common b=1 | $ssv/sim_switch_common_prop_file c=1");
  EXPECT_EQ(Run(kRestore, "$shutdown=1 persist.sys.channel.info=X"),
            "2 persist.sys.channel.info= $recopy=none");
  EXPECT_FALSE(Exists("$channel $common $ssv/sim_switch_common_prop_file"));
  EXPECT_EQ(WithLog(Run(kRestore)), "") << "the stored flag ends the restore";
  // A mount point cannot be deleted.
  WriteFiles("$common b=1");
  const std::string path = Long("$common");
  ASSERT_EQ(mount(path.c_str(), path.c_str(), nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(WithLog(Run(kRestore, "$recopy=")),
            "2 $recopy=none | 0 b=1 $recopy=none | E unlink() failed for $common");
}

TEST_F(EmergencyShutdownTest, restore_resets_removal_flags_where_any_is_set) {
  for (const std::string flag : {"region", "carrier", "region-all"}) {
    device::ClearProperties();
    Set("$shutdown=1 persist.sys.channel.country.info=Y persist.sys.remove." + flag + ".apk=x");
    EXPECT_EQ(Run(kRestore),
              "2 persist.sys.channel.country.info= persist.sys.reboot.time.count=0 $recopy=true "
              "persist.sys.remove.carrier.apk=false persist.sys.remove.region-all.apk=false "
              "persist.sys.remove.region.apk=false");
  }
}

TEST_F(EmergencyShutdownTest, forced_connection_needs_three_conditions_and_is_recorded) {
  for (const std::string properties :
       {"$shutdown= $may_connect=1", "$shutdown=1 $may_connect=", "$may_connect=11",
        "$may_connect=1 $connect=0", "$shutdown=11 $connect="}) {
    EXPECT_EQ(WithLog(Run(kForce, properties)), "") << properties;
  }
  EXPECT_EQ(WithLog(Run(kForce, "$shutdown=1")),
            "0 $connect=1 | E Unable to write force_connect_internet_prop_file_path open() failed: "
            "No such file or directory");
  MakeDirectories("$ssv/");
  EXPECT_EQ(Run(kForce, "$connect="), "0 $connect=1");
  EXPECT_EQ(Read("$ssv/force_connect_internet_prop_file"), "ro.vemra.internet.force.connect=1\n");
}
