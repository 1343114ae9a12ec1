#include "tests/device_test.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "utils/cota_directory.h"

class CotaOverlayTest : public DeviceTest {
 protected:
  // Returns what a command hands over and logs. It is to consume the info files.
  std::string Command(const std::string& command, const std::string& files) {
    WriteFiles(files);
    service_.loadCotaServiceOverrideProperties(command, Apply);
    EXPECT_FALSE(Exists("$mount_info $module_info"));
    return WithLog(TakeHandOvers());
  }
  std::string BindImage(const std::string& info = "") {
    return Command("mount_must_load", "$mount_info " + kImageInfo + info);
  }
  std::string BindModule(const std::string& info) {
    return Command("module_bind_single", "$module_info " + info);
  }
  // Returns the result that is recorded, and the log.
  std::string BindMedia(const char* path) {
    service_.bindCustomizeMediaPath(path);
    return WithLog(device::PropertyValue("sys.mount.mediapath.success"));
  }

  const std::string kImageInfo = "$root=/data/cota/img $verify=1";
};

TEST_F(CotaOverlayTest, override_loader_gives_a_verified_image_the_carriers_identity) {
  const auto load = [&](auto cb) { service_.loadCotaOverrideProperties(cb); };
  const std::string image =
      "/img/build.prop keyed=0 $image.bigball.date.utc=d $image.bigball.version_name=v";
  WriteFiles(image + " | /img/etc/build.S.prop keyed=1");
  service_.ssvKey = "S";
  for (const std::string unverified : {"$verify=", "$verify=0", "$verify=11"}) {
    EXPECT_EQ(Run(load, unverified + " $root=/img $carrier=V-9"), "") << unverified;
  }
  EXPECT_EQ(Run(load, "$verify=1 $root="), "");
  EXPECT_EQ(Run(load, "$root=0"), "");
  EXPECT_EQ(
      Run(load, "$root=/img ro.build.cota.version_name=X_U_COTA_7"),
      "0 keyed=1 $image.bigball.date.utc=d $image.carrier.date.utc=d $carrier=v | 0 $display=v");
  WriteFiles(image + " $image.carrier.date.utc=own $carrier=V-9");
  EXPECT_EQ(Run(load),
            "0 keyed=1 $image.bigball.date.utc=d $image.carrier.date.utc=own $carrier=V-9");
  EXPECT_EQ(Run(load, "$root=/none $display="), "0 $display=9");
}

TEST_F(CotaOverlayTest, media_path_is_bound_recursively_onto_image_partitions_only) {
  WriteFiles("/media/sub/x | /my_carrier/media/x | /data/media/x");
  ASSERT_EQ(mount("/my_carrier", "/media/sub", nullptr, MS_BIND, nullptr), 0);
  Set("ro.sys.custommedia.sourcepath=/media");
  EXPECT_EQ(BindMedia("/data/media") + BindMedia(nullptr), "");
  EXPECT_EQ(BindMedia("/my_carrier/media"), "0 | I Mount ringtones result :0");
  EXPECT_EQ(MountPoints(), "/my_carrier/media/sub /my_carrier/media /media/sub ");
  Set("ro.sys.custommedia.sourcepath=/none");
  EXPECT_EQ(BindMedia("/my_carrier/media"), "-1 | I Mount ringtones result :-1");
}

TEST_F(CotaOverlayTest, new_image_brings_its_media_unless_the_last_bind_failed) {
  const std::string media = "ro.sys.custommedia.sourcepath=/data/cota/img/media";
  WriteFiles("/data/cota/img/build.prop " + media);
  MakeDirectories("/data/cota/img/media /my_carrier");
  const std::string loaded = "0 " + media + " | 0 " + kImageInfo;
  Set("persist.sys.customize.media=/my_carrier/media");
  for (const std::string last_result : {"", "0"}) {
    Set("sys.mount.mediapath.success=" + last_result);
    EXPECT_EQ(BindImage(), loaded + " | I Mount ringtones result :0");
  }
  WriteFiles("/data/cota/img/build.prop a=1");
  EXPECT_EQ(BindImage(), "0 a=1 | 0 " + kImageInfo) << "an image without media";
  WriteFiles("/data/cota/img/build.prop " + media);
  Set("sys.mount.mediapath.success=-1");
  EXPECT_EQ(BindImage(), loaded);
}

TEST_F(CotaOverlayTest, image_is_bound_and_loaded_as_its_info_file_says) {
  WriteFiles("/data/cota/img/build.prop ro.image=1 $image.bigball.version_name=C-B7PM");
  MakeDirectories("/my_carrier /my_company");
  // An unverified or relative image is not read at all.
  for (const std::string info :
       {"$root=/data/cota/img $verify=0", "$root=data/cota/img $verify=1", "$verify=1"}) {
    EXPECT_EQ(Command("mount_must_load", "$mount_info x=1 " + info), "0 " + info);
  }
  // One that cannot or need not be bound is read where it is.
  const std::string as_is = "0 ro.image=1 $image.bigball.version_name=C-B7PM | 0 " + kImageInfo;
  EXPECT_EQ(BindImage(" bind_point=/none"),
            as_is + " | E cota bindAndLoadCotaOverrideProperties bind failed: -1");
  EXPECT_EQ(BindImage(" bind_point=/data/cota/img"), as_is);
  Set("$display=V5PM ro.vendor.vemra.version_suffix=S ro.build.display.id=A_B");
  // Bound elsewhere than on the carrier, it keeps its identity.
  EXPECT_EQ(BindImage(" bind_point=/my_company"), as_is);
  const std::string forwarded =
      "persisit.kept=1 ro.build.cota.version_name=X_U_COTA_7 " + kImageInfo;
  EXPECT_EQ(Command("mount_and_check_load", "$mount_info persist.no=1 other=1 " + forwarded),
            "0 ro.image=1 $carrier=C-B7PM | 0 " + forwarded +
                " | 0 $exported=AS_B | 0 $display=B7CT_U007 | I carrier version C-B7PM | I cota "
                "type CT android version: U cota version: 007 display version: B7CT_U007");
  EXPECT_EQ(MountPoints(), "/my_carrier /my_company ");
}

TEST_F(CotaOverlayTest, info_files_are_consumed_readable_or_not) {
  Set("$display=V5");
  const std::string info = "other=2 persist.a=1 ro.build.cota.version_name=";
  EXPECT_EQ(Command("update_cota_info", "$mount_info " + info), "0 " + info + " | 0 $display=V5");
  EXPECT_EQ(Command("update_cota_info", "/x"), "E not valid cota mount info file: $mount_info");
  EXPECT_EQ(Command("update_cota_info", "$mount_info #"), "");
  MakeDirectories("/data/cota");
  // They exist, and are not followed.
  ASSERT_EQ(symlink("/data", "/data/cota/cota_module_info.prop"), 0);
  for (const char* command : {"mount_must_load", "bind_basic_point"}) {
    ASSERT_EQ(symlink("/data", "/data/cota/cota_mount_info.prop"), 0);
    service_.loadCotaServiceOverrideProperties(command, Apply);
  }
  EXPECT_FALSE(Exists("$mount_info $module_info"));
  EXPECT_TRUE(
      LogHas("E cota info prop load failed:$mount_info | E cota total module info prop load "
             "failed:$mount_info | E cota module info prop load failed:$module_info"));
}

TEST_F(CotaOverlayTest, module_is_bound_and_its_properties_forwarded) {
  WriteFiles("/module/build.prop ro.m=1 $image.bigball.version_name=A-B2");
  MakeDirectories("/my_region");
  for (const std::string incomplete :
       {"bind_point=/my_region mount_point=/module", "bind_point=/my_region module_type=files",
        "mount_point=/module module_type=files"}) {
    EXPECT_EQ(BindModule(incomplete + " sys.x=1"), "") << incomplete;
  }
  EXPECT_EQ(
      BindModule("mount_point=/none bind_point=/my_region module_type=f ro.y=1"),
      "I cota module bind from: /none to: /my_region | E bindCotaModuleMountPoint bind failed: -1");
  const std::string points = "bind_point=/my_region mount_point=/module ";
  const std::string bound = " | I cota module bind from: /module to: /my_region";
  EXPECT_EQ(BindModule(points + "module_type=files ro.y=2 roz=1 sys.x=1 persist.z=3"),
            "0 ro.y=2 sys.x=1" + bound);
  EXPECT_EQ(MountPoints(), "/my_region ");
  // A configure module is loaded as well, before its properties are forwarded.
  Set("$display=V5 ro.vendor.vemra.version_suffix=S ro.build.display.id=A_B");
  EXPECT_EQ(BindModule(points + "module_type=configure sys.x=1"),
            "0 ro.m=1 $carrier=A-B2 | 0 $exported=AS_B | 0 $display=B2 | 0 sys.x=1" + bound +
                " | I carrier version A-B2");
}

TEST_F(CotaOverlayTest, basic_bind_makes_the_module_directories_then_binds_then_hands_over) {
  MakeDirectories("/mnt/cota/old /data/system /my_region");
  EXPECT_EQ(
      Command("bind_basic_point",
              "$mount_info a=/mnt/cota/a b=/data/system/customized c=/mnt/no d=/mnt/cota/old "
              "ro.p=1 sys.q=/mnt/cota/no | $module_info mount_point=/mnt/cota/a "
              "bind_point=/my_region module_type=f ro.m=1"),
      "0 ro.m=1 | 0 ro.p=1 sys.q=/mnt/cota/no | I bind cota module: a mount point: /mnt/cota/a | I "
      "create path: /mnt/cota/a sub dir: /mnt/cota | I bind cota module: b mount point: "
      "/data/system/customized | I create path: /data/system/customized sub dir: /data/system | I "
      "bind cota module: c mount point: /mnt/no | E cota module wrong dir /mnt/no | I bind cota "
      "module: d mount point: /mnt/cota/old | I cota module bind from: /mnt/cota/a to: /my_region");
  EXPECT_EQ(Command("bind_basic_point", "/x"),
            "E not valid cota total module info file: $mount_info");
  // The base comes from a property; failures are logged and passed over.
  Set("sys.cota.module.base.mount.point=/base");
  EXPECT_EQ(Command("bind_basic_point", "$mount_info a=/base b=/mnt/cota/b"),
            "I bind cota module: a mount point: /base | I create path: /base sub dir:  | E create "
            "sub dir failed:  | E cota creat dir /base failed | I bind cota module: b mount point: "
            "/mnt/cota/b | E cota module wrong dir /mnt/cota/b | E not valid cota module info "
            "file: $module_info");
}

TEST_F(CotaOverlayTest, cota_directory_is_made_from_the_top_and_never_recurses_for_ever) {
  using android::init::createCotaDirectory;
  umask(022);
  MakeDirectories("/mnt");
  EXPECT_EQ(createCotaDirectory("/mnt/a/b"), 0);
  EXPECT_EQ(ModeAndOwner("/mnt/a") + ModeAndOwner("/mnt/a/b"), "0755 0:00755 0:0");
  for (const char* path : {"", "/x/y", "/mnt/a"}) EXPECT_EQ(createCotaDirectory(path), -1);
  EXPECT_EQ(TakeLog(),
            "I create path: /mnt/a/b sub dir: /mnt/a | I create path: /mnt/a sub dir: /mnt | I "
            "create path: /mnt/a/b sub dir: /mnt/a | I create path: /x/y sub dir: /x | I create "
            "path: /x sub dir:  | E create sub dir failed:  | E create sub dir failed: /x | I "
            "create path: /mnt/a sub dir: /mnt | E make dir failed: /mnt/a");
  EXPECT_NE(createCotaDirectory(std::string(100000, '/')), 0);
}
