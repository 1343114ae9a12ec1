#include "tests/device_test.h"

#include <errno.h>
#include <unistd.h>

#include <memory>

using watch::Call;

// A device whose NV storage holds the key "nv", and which maps it and, before it, the boot's
// carrier.
class SimSwitchKeyInfoTest : public DeviceTest {
 protected:
  void SetUp() override {
    DeviceTest::SetUp();
    Write(kNvConfig, "nv");
    Write(kNvMap, "boot=K\nnv=N\n");
    Set("ro.boot.vmcarrier=boot ro.sys.customize.flashback.company=set");
  }
  // Returns what the key pass of a new boot makes of a map.
  std::string KeyPass(const std::string& map_before = "") {
    boot_ = std::make_unique<InitExtensionPropertyImpl>();
    PropertyMap map = Map(map_before);
    boot_->loadExtensionSimswitchKeyInfo(&map);
    return Text(map);
  }
  static void ForgetConversion() {
    fs::remove(kFirstFile);
    fs::remove(kConvertFile);
  }

  const std::string kNvMap = "/mnt/vendor/my_product/etc/nvmap.prop";
  std::unique_ptr<InitExtensionPropertyImpl> boot_;
};

TEST_F(SimSwitchKeyInfoTest, legacy_key_is_converted_once) {
  EXPECT_EQ(KeyPass(), "sys.sim.switch.first=K");
  EXPECT_EQ(ModeAndOwner("/mnt/vendor/vemrareserve/system/ssv"), "0771 0:0");
  EXPECT_EQ(Read(kFirstFile) + ModeAndOwner(kFirstFile), "sys.sim.switch.first=K\n0600 1000:1000");
  EXPECT_EQ(Read(kConvertFile) + ModeAndOwner(kConvertFile),
            "sys.sim.switch.convert= true\n0600 1000:1000");
  // The device's carrier changes: the converted key stays. Either file alone keeps it.
  Write(kNvMap, "boot=OTHER\n");
  EXPECT_EQ(KeyPass(), "sys.sim.switch.convert=true sys.sim.switch.first=K");
  fs::remove(kConvertFile);
  EXPECT_EQ(KeyPass(), "sys.sim.switch.first=K");
  fs::remove(kFirstFile);
  Write(kConvertFile, "sys.sim.switch.convert=true\n");
  EXPECT_EQ(KeyPass(), "sys.sim.switch.convert=true");
  // No other value does, nor does the sim action file.
  Write(kConvertFile, "sys.sim.switch.convert=TRUE\n");
  Write(kSimActionFile, "sys.sim.switch.convert=true\n");
  EXPECT_EQ(KeyPass(), "sys.sim.switch.convert=true sys.sim.switch.first=OTHER");
}

TEST_F(SimSwitchKeyInfoTest, conversion_writes_the_none_clear_marker_where_asked_and_missing) {
  KeyPass("ro.none.clear.switch.first=yes");
  EXPECT_EQ(Read(kNoneClearMarker), "missing");
  for (const char* marker : {"1", "old"}) {
    ForgetConversion();
    KeyPass("ro.none.clear.switch.first=true");
    EXPECT_EQ(Read(kNoneClearMarker) + " " + ModeAndOwner(kNoneClearMarker),
              marker + std::string(" 0600 1000:1000"));
    Write(kNoneClearMarker, "old");
  }
}

TEST_F(SimSwitchKeyInfoTest, legacy_keys_are_read_once_from_nv_storage_and_the_sim_action_file) {
  Set("ro.boot.vmcarrier=unmapped");
  Write("/odm/etc/flags.prop", "nv=target\n");
  Write(kSimActionFile, "ssv\n");
  KeyPass();
  EXPECT_EQ(boot_->simSwitchFirstKey + boot_->oldNvKey + boot_->nvTargetKey, "Nnvtarget");
  EXPECT_EQ(boot_->ssvKey, "ssv\n") << "untrimmed";
  // A key that is known is not read again.
  PropertyMap map;
  boot_->nvTargetKey = "";
  boot_->ssvKey = "known";
  ForgetConversion();
  boot_->loadExtensionSimswitchKeyInfo(&map);
  EXPECT_EQ(boot_->oldNvKey + "/" + boot_->nvTargetKey + "/" + boot_->ssvKey, "nv//known");
  // A file of any size does not use up memory, and is no key.
  ASSERT_EQ(truncate(kSimActionFile, off_t{4} << 30), 0);
  ForgetConversion();
  KeyPass();
  EXPECT_EQ(boot_->ssvKey, "");
}

TEST_F(SimSwitchKeyInfoTest, failed_call_neither_ends_the_conversion_nor_starts_it) {
  fs::create_directories(kSsv);
  for (int error : {ENOSPC, EIO}) {
    const FailingCall failing(Call::kWrite, "", error);
    KeyPass();
    EXPECT_FALSE(fs::exists(kFirstFile) || fs::exists(kConvertFile));
  }
  EXPECT_THAT(Logged(), HasSubstr("E Unable to write sim_action_first_file Unable to write file "
                                  "contents: No space left on device"));
  // A link to nowhere does not exist and cannot be written; it is not the conversion's to remove.
  fs::create_symlink("nowhere", kFirstFile);
  KeyPass();
  EXPECT_TRUE(fs::is_symlink(kFirstFile) && !fs::exists(kConvertFile));
  // Where it cannot be told whether there is a stored key, it stays.
  fs::remove(kFirstFile);
  Write(kFirstFile, "sys.sim.switch.first=stored\n");
  const FailingCall failing(Call::kAccess, kFirstFile, EIO);
  EXPECT_EQ(KeyPass(), "sys.sim.switch.first=stored");
}

TEST_F(SimSwitchKeyInfoTest, old_format_files_are_upgraded_once_with_their_text_untrimmed) {
  Write(kFirstFile, "K\n");
  Write(kCurrentFile, "C");
  EXPECT_EQ(KeyPass(), "sys.sim.switch.current=C sys.sim.switch.first=K\n");
  EXPECT_EQ(boot_->simSwitchFirstKey + "/" + boot_->simSwitchCurrentKey, "K\n/C");
  EXPECT_THAT(Logged(), HasSubstr("E Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY"));
  EXPECT_EQ(Read(kFirstFile) + Read(kCurrentFile),
            "sys.sim.switch.first=K\n\nsys.sim.switch.current=C\n");
  EXPECT_EQ(ModeAndOwner(kCurrentFile), "0666 1000:1000") << "the mode stays";
  // Where it cannot be rewritten, the key still counts; an empty file holds none.
  Write(kCurrentFile, "C");
  const FailingCall failing(Call::kWrite, "", EIO);
  EXPECT_EQ(KeyPass(), "sys.sim.switch.current=C sys.sim.switch.first=K");
  EXPECT_THAT(Logged(), HasSubstr("E Unable to write sim_switch_current_fileUnable to write"));
  EXPECT_EQ(KeyPass() + Read(kCurrentFile), "sys.sim.switch.first=K");
}

TEST_F(SimSwitchKeyInfoTest, later_files_win) {
  const std::string copies = "/data/system/customize/sim_switch/sim_switch_";
  const std::string flashback = "/mnt/vendor/vemrareserve/system/flag/flashback.cfg";
  // In the order of reading.
  Write(kConvertFile, "a=1\n");
  Write(kSimActionFile, "a=2\nb=2\n");
  Write(kFirstFile, "b=3\nc=3\nsys.sim.switch.first=A\n");
  Write(kCurrentFile, "c=4\nd=4\nsys.sim.switch.current=A\n");
  Write(copies + "current_file", "d=5\ne=5\nsys.sim.switch.current=C\n");
  Write(kCommonFile, "e=6\npersist.sys.channel.info=no\n");
  Write(copies + "first_file", "g=7\nsys.sim.switch.first=B\n");
  Write(kDataCommonFile, "g=8\nh=8\npersist.sys.channel.info=shop\n");
  Write(kForceConnectFile, "h=9\ni=9\n");
  Write(flashback, "i=10\n");
  EXPECT_EQ(KeyPass(),
            "a=2 b=3 c=4 d=5 e=6 g=8 h=9 i=10 persist.sys.channel.info=shop "
            "sys.sim.switch.current=C sys.sim.switch.first=B");
  EXPECT_EQ(boot_->simSwitchFirstKey + boot_->simSwitchCurrentKey + boot_->channelInfo, "BCshop");
  fs::remove(kDataCommonFile);
  fs::create_directories(kDataCommonFile);
  KeyPass();
  EXPECT_EQ(boot_->channelInfo, "") << "the channel is not that of a file that was not read";
  // Without its file, the company is invalid where nothing sets it.
  fs::remove(flashback);
  Set("ro.sys.customize.flashback.company=");
  EXPECT_THAT(KeyPass(), HasSubstr("ro.sys.customize.flashback.company=invalid"));
}
