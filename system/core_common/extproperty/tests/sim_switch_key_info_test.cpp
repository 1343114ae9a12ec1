#include "tests/device_test.h"

#include <sys/stat.h>
#include <unistd.h>

#include "host/watch/platform_calls.h"

// Makes one call fail while it lives: on a path, or on any descriptor, the first such or a later
// one.
class FailingCall : public watch::Observer {
 public:
  FailingCall(watch::Call call, const std::string& path, int number)
      : call_(call), path_(path), left_(number) {
    watch::SetObserver(this);
  }
  ~FailingCall() override { watch::SetObserver(nullptr); }

  watch::Verdict Before(const watch::PlatformCall& call) override {
    const bool fails = call.call == call_ && call.path == path_ && --left_ == 0;
    return {fails, EIO};
  }

 private:
  const watch::Call call_;
  const std::string path_;
  int left_;
};

class SimSwitchKeyInfoTest : public DeviceTest {
 protected:
  // Returns what the key pass of one boot, on a legacy device, makes of a map, and keeps the keys.
  std::string KeyPass(const std::string& map_before = "") {
    Write("$nv_config", "nv");
    Set("ro.boot.vmcarrier=boot");
    Service service;
    PropertyMap map = Map(map_before);
    service.loadExtensionSimswitchKeyInfo(&map);
    keys_ = service.simSwitchFirstKey + "/" + service.simSwitchCurrentKey + "/" +
            service.channelInfo + "/" + service.oldNvKey + "/" + service.ssvKey;
    return Text(map);
  }

  std::string keys_;
  const std::string kFirst = "$ssv/sim_switch_first_file";
  const std::string kCurrent = "$ssv/sim_switch_current_file";
  const std::string kConvert = "$ssv/sim_switch_convert_file";
  const std::string kNoneClear = "$ssv/first_switch_none_clear";
  const std::string kSimAction = "$ssv/sim_action_file";
};

TEST_F(SimSwitchKeyInfoTest, legacy_key_is_converted_once_over_several_boots) {
  WriteFiles("$vendor/product/etc/nvmap.prop boot=K");
  EXPECT_EQ(WithLog(KeyPass()),
            "$flashback=invalid $switch.first=K | I there is no ssv dir | I make dir: "
            "/mnt/vendor/vemrareserve/system/ | I make dir: $ssv/ | I create ssv dir: $ssv/ | I "
            "sim_switch_first_file is exist!!!");
  EXPECT_EQ(State(kFirst), "0600 1000:1000 sys.sim.switch.first=K\n");
  EXPECT_EQ(State(kConvert), "0600 1000:1000 sys.sim.switch.convert= true\n");
  // The device's carrier changes: the converted key stays.
  WriteFiles("$vendor/product/etc/nvmap.prop boot=OTHER");
  EXPECT_EQ(KeyPass(), "$flashback=invalid $switch.convert=true $switch.first=K");
  // The convert file alone keeps a lost first file from being converted anew.
  Remove(kFirst);
  EXPECT_EQ(KeyPass() + keys_, "$flashback=invalid $switch.convert=true///nv/");
  // The first file alone, after a cut between the two, has nothing to convert either.
  Write(kFirst, "sys.sim.switch.first=K\n");
  Remove(kConvert);
  EXPECT_EQ(KeyPass(), "$flashback=invalid $switch.first=K");
  // A marker is written where a conversion asks for one, and kept.
  Remove(kFirst);
  KeyPass("ro.none.clear.switch.first=yes");
  EXPECT_FALSE(Exists(kNoneClear));
  for (const char* state : {"0600 1000:1000 1", "0600 1000:1000 old"}) {
    Remove(kFirst + " " + kConvert);
    KeyPass("ro.none.clear.switch.first=true");
    EXPECT_EQ(State(kNoneClear), state);
    Write(kNoneClear, "old");
  }
}

TEST_F(SimSwitchKeyInfoTest, failed_writes_are_logged_and_retried_by_the_next_boot) {
  const std::string failed = "open() failed: Too many levels of symbolic links | ";
  WriteFiles("$vendor/product/etc/nvmap.prop boot=K");
  MakeDirectories("$ssv/");
  // A link to nowhere does not exist, and cannot be written.
  ASSERT_EQ(symlink("nowhere", Long(kFirst).c_str()), 0);
  EXPECT_EQ(WithLog(KeyPass()) + " | ",
            "$flashback=invalid | E Unable to write sim_action_first_file " + failed);
  EXPECT_FALSE(Exists(kConvert));
  Remove(kFirst);
  ASSERT_EQ(symlink("nowhere", Long(kConvert).c_str()), 0);
  ASSERT_EQ(symlink("nowhere", Long(kNoneClear).c_str()), 0);
  EXPECT_EQ(WithLog(KeyPass("ro.none.clear.switch.first=true")),
            "ro.none.clear.switch.first=true $flashback=invalid $switch.first=K | E Unable to "
            "write sim_switch_convert_file " +
                failed + "E Unable to write first_switch_none_clear " + failed +
                "I sim_switch_first_file is exist!!!");
  Remove("/mnt/vendor/vemrareserve/system");
  Write("/mnt/vendor/vemrareserve/system", "in the way");
  EXPECT_EQ(WithLog(KeyPass()),
            "$flashback=invalid | I there is no ssv dir | I make dir: "
            "/mnt/vendor/vemrareserve/system/ | E Unable to write sim_action_first_file open() "
            "failed: Not a directory");
}

TEST_F(SimSwitchKeyInfoTest, legacy_keys_come_from_the_nv_and_the_sim_action_file) {
  WriteFiles("/odm/etc/nvmap.prop ssv=S");
  Write(kSimAction, "ssv");
  EXPECT_EQ(KeyPass() + keys_, "$flashback=invalid $switch.first=SS///nv/ssv");
  EXPECT_TRUE(LogHas("I read ssv file"));
  // The NV key comes first.
  WriteFiles("/odm/etc/nvmap.prop nv=N ssv=S");
  Remove(kFirst + " " + kConvert);
  EXPECT_EQ(KeyPass(), "$flashback=invalid $switch.first=N");
  // The sim action file is a property file as well, but cannot mark the conversion as done.
  Remove(kFirst + " " + kConvert);
  WriteFiles(kSimAction + " $switch.convert=true");
  EXPECT_EQ(KeyPass(), "$flashback=invalid $switch.convert=true $switch.first=N");
}

TEST_F(SimSwitchKeyInfoTest, old_format_files_are_upgraded_once_with_their_text_untrimmed) {
  Write(kFirst, "K\n");
  Write(kCurrent, "C");
  chmod(Long(kCurrent).c_str(), 0644);
  EXPECT_EQ(
      WithLog(KeyPass()),
      "$flashback=invalid $switch.current=C $switch.first=K\n | I sim_switch_first_file is "
      "exist!!! | E Convert tmp_first_key to SIM_SWITCH_FIRST_PROPERTY | I sim_switch_current_file "
      "is exist!!! | E Convert tmp_current_key to SIM_SWITCH_CURRENT_PROPERTY");
  EXPECT_EQ(keys_, "K\n/C//nv/");
  EXPECT_EQ(State(kCurrent), "0644 1000:1000 sys.sim.switch.current=C\n");
  Write(kCurrent, "");
  EXPECT_EQ(WithLog(KeyPass()),
            "$flashback=invalid $switch.first=K | I sim_switch_first_file is exist!!! | I "
            "sim_switch_current_file is exist!!!");
}

TEST_F(SimSwitchKeyInfoTest, upgrade_that_fails_half_way_tells_where) {
  for (const std::string name : {"first", "current"}) {
    const std::string file = "$ssv/sim_switch_" + name + "_file";
    const std::string exists = "I sim_switch_" + name + "_file is exist!!! | E ";
    const std::string upgraded = "$flashback=invalid $switch." + name + "=K | " + exists +
                                 "Convert tmp_" + name + "_key to SIM_SWITCH_" +
                                 (name == "first" ? "FIRST" : "CURRENT") +
                                 "_PROPERTY | E Unable to ";
    const auto upgrade = [&](watch::Call call, const std::string& path, int number) {
      Remove(kFirst + " " + kCurrent);
      Write(file, "K");
      const FailingCall failing(call, Long(path), number);
      return WithLog(KeyPass());
    };
    const std::string unread =
        "$flashback=invalid | " + exists + "read sim switch " + name + " file failed :" + file;
    EXPECT_EQ(upgrade(watch::Call::kOpen, file, 2), unread);
    // The end of the file is what cannot be read: what was read by then is no key.
    EXPECT_EQ(upgrade(watch::Call::kRead, "", 6), unread);
    EXPECT_EQ(upgrade(watch::Call::kOpen, file, 3),
              upgraded + "write sim_switch_" + name + "_fileopen() failed: Input/output error");
    EXPECT_EQ(State(file), "0666 1000:1000 K");
    EXPECT_EQ(upgrade(watch::Call::kLchown, file, 1), upgraded + "chown file " + file);
  }
}

TEST_F(SimSwitchKeyInfoTest, later_files_win_and_unreadable_ones_are_logged) {
  // In the order of reading, each with what is logged where it cannot be read.
  const std::string copies = "/data/system/customize/sim_switch/sim_switch_";
  const std::string flashback = "/mnt/vendor/vemrareserve/system/flag/flashback.cfg";
  const std::string files[][3] = {
      {kConvert, " a=1", "E sim switch convert property load failed:"},
      {kSimAction, " a=2 b=2", "E read ssv failed :"},
      {kFirst, " b=3 c=3 $switch.first=A", "E sim switch key property failed:"},
      {kCurrent, " c=4 d=4 $switch.current=A", "E sim switch key property failed:"},
      {copies + "current_file", " d=5 e=5 $switch.current=C", "E sim switch key property failed:"},
      {"$ssv/sim_switch_common_prop_file", " e=6 f=6", "E reboot count key property failed:"},
      {copies + "first_file", " f=7 g=7 $switch.first=B", "E sim switch key property failed:"},
      {"$common", " g=8 h=8 persist.sys.channel.info=ch", "E sim switch key property failed:"},
      {"$ssv/force_connect_internet_prop_file", " h=9 i=9",
       "E force connect internet property failed:"},
      {flashback, " i=10", "E flash back property failed:"}};
  for (const auto& [path, map, text] : files) WriteFiles(path + map);
  EXPECT_EQ(KeyPass(),
            "a=2 b=3 c=4 d=5 e=6 f=7 g=8 h=9 i=10 persist.sys.channel.info=ch $switch.current=C "
            "$switch.first=B");
  EXPECT_EQ(keys_, "B/C/ch/nv/");
  for (const auto& [path, map, text] : files) Remove(path);
  for (const auto& [path, map, text] : files) MakeDirectories(path);
  EXPECT_EQ(KeyPass(), "");
  EXPECT_FALSE(LogHas("E read sim switch first file failed :" + kFirst)) << "it is tried again";
  for (const auto& [path, map, text] : files) EXPECT_TRUE(LogHas(text + path)) << path;
  Remove(flashback);
  EXPECT_EQ(KeyPass("$flashback=kept"), "$flashback=kept");
  Set("$flashback=kept");
  EXPECT_EQ(KeyPass(), "");
}
