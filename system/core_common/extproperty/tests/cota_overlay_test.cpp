#include "tests/device_test.h"

#include <errno.h>
#include <sys/mount.h>

#include "utils/cota_directory.h"

using android::init::createCotaDirectory;

class CotaOverlayTest : public DeviceTest {
 protected:
  // Returns what a command hands over. It is to consume the info files that it reads.
  std::string Command(const std::string& command, const char* file, const std::string& info) {
    Write(file, info);
    const auto run = [&](auto cb) { service_.loadCotaServiceOverrideProperties(command, cb); };
    std::string handed_over = HandedOverBy(run);
    EXPECT_FALSE(fs::exists(kMountInfo) || fs::exists(kModuleInfo));
    return handed_over;
  }
  std::string BindImage(const std::string& info) {
    return Command("mount_must_load", kMountInfo, info);
  }
  std::string BindModule(const std::string& info) {
    return Command("module_bind_single", kModuleInfo, info);
  }
  // Returns the result that is recorded.
  std::string BindMedia(const char* path) {
    service_.bindCustomizeMediaPath(path);
    return device::PropertyValue("sys.mount.mediapath.success");
  }

  const std::string kImageInfo = "sys.cota.load.properties=/data/img\nsys.cotaimg.verify=1\n";
};

TEST_F(CotaOverlayTest, override_loader_gives_a_verified_image_the_carriers_identity) {
  const auto load = [&](const std::string& verify, const std::string& root) {
    Set("sys.cotaimg.verify=" + verify + " sys.cota.load.properties=" + root);
    return HandedOverBy([&](auto cb) { service_.loadCotaOverrideProperties(cb); });
  };
  Write("/img/build.prop",
        "keyed=0\nro.vemra.image.my_bigball.date.utc=d\nro.vemra.image.my_carrier.date.utc=own\n"
        "ro.vemra.image.my_bigball.version_name=v\n");
  Write("/img/etc/build.S.prop", "keyed=1\n");
  service_.ssvKey = "S";
  EXPECT_EQ(load("0", "/img") + load("11", "/img") + load("1", "0"), "");
  EXPECT_EQ(load("1", "/img"),
            "0 keyed=1 ro.vemra.image.my_bigball.date.utc=d "
            "ro.vemra.image.my_carrier.date.utc=own ro.vemra.image.my_carrier.version_name=v | "
            "0 ro.vemra.customize.display.version_name=v");
}

TEST_F(CotaOverlayTest, media_path_is_bound_recursively_onto_image_partitions_only) {
  for (const char* path : {"/media/sub", "/my_carrier/x", "/my"}) fs::create_directories(path);
  ASSERT_EQ(mount("/my_carrier", "/media/sub", nullptr, MS_BIND, nullptr), 0);
  EXPECT_EQ(BindMedia("/my_carrier/x"), "") << "no source is set";
  Set("ro.sys.custommedia.sourcepath=/media");
  EXPECT_EQ(BindMedia("/my") + BindMedia(nullptr), "");
  EXPECT_EQ(BindMedia("/my_carrier/x"), "0");
  EXPECT_EQ(MountPoints(), "/my_carrier/x/sub /my_carrier/x /media/sub");
  // A new image brings its media, unless the last bind failed.
  Write("/data/img/build.prop", "ro.sys.custommedia.sourcepath=/none\n");
  Set("persist.sys.customize.media=/my_carrier/x");
  for (int i = 0; i < 2; ++i) BindImage(kImageInfo + "bind_point=/data/img\n");
  EXPECT_EQ(Logged(), "I Mount ringtones result :0 | I Mount ringtones result :-1");
}

TEST_F(CotaOverlayTest, image_is_bound_and_loaded_as_its_info_file_says) {
  Write("/data/img/build.prop", "ro.vemra.image.my_bigball.version_name=C-B7PM\n");
  fs::create_directories("/my_carrier");
  fs::create_directories("/my_company");
  Set("ro.vemra.customize.display.version_name=V5PM ro.vendor.vemra.version_suffix=S "
      "ro.build.display.id=A_B");
  // Not absolute or not verified: not read.
  EXPECT_EQ(BindImage("sys.cota.load.properties=data/img\nsys.cotaimg.verify=1\nx=1\n"),
            "0 sys.cota.load.properties=data/img sys.cotaimg.verify=1");
  EXPECT_EQ(BindImage("sys.cota.load.properties=/data/img\nsys.cotaimg.verify=1x\n"),
            "0 sys.cota.load.properties=/data/img sys.cotaimg.verify=1x");
  // One that cannot or need not be bound is read where it is; bound elsewhere than on the carrier,
  // it keeps its identity.
  for (const std::string point : {"/none", "/data/img", "/my_company"}) {
    EXPECT_EQ(BindImage(kImageInfo + "bind_point=" + point + "\n"),
              "0 ro.vemra.image.my_bigball.version_name=C-B7PM | "
              "0 sys.cota.load.properties=/data/img sys.cotaimg.verify=1");
  }
  EXPECT_EQ(Logged(), "E cota bindAndLoadCotaOverrideProperties bind failed: -1");
  EXPECT_EQ(Command("mount_and_check_load", kMountInfo,
                    kImageInfo + "persist.no=1\nother=1\npersisit.kept=1\n"
                                 "ro.build.cota.version_name=X_U_COTA_7\n"),
            "0 ro.vemra.image.my_carrier.version_name=C-B7PM | 0 persisit.kept=1 "
            "ro.build.cota.version_name=X_U_COTA_7 sys.cota.load.properties=/data/img "
            "sys.cotaimg.verify=1 | 0 ro.vendor.vemra.exp.version=AS_B | "
            "0 ro.vemra.customize.display.version_name=B7CT_U007");
  EXPECT_EQ(MountPoints(), "/my_carrier /my_company");
}

TEST_F(CotaOverlayTest, info_files_are_consumed_readable_or_not) {
  Set("ro.vemra.customize.display.version_name=V5");
  EXPECT_EQ(Command("update_cota_info", kMountInfo, "other=2\npersist.a=1\n"),
            "0 other=2 persist.a=1 | 0 ro.vemra.customize.display.version_name=V5");
  EXPECT_EQ(Command("update_cota_info", kMountInfo, "#"), "");
  EXPECT_EQ(Command("update_cota_info", "/other", ""), "");
  EXPECT_EQ(Logged(), "E not valid cota mount info file: /data/cota/cota_mount_info.prop");
  fs::create_symlink("/data", kModuleInfo);
  EXPECT_EQ(Command("bind_basic_point", kMountInfo, ""), "") << "a link is not followed";
}

TEST_F(CotaOverlayTest, module_is_bound_and_its_properties_forwarded) {
  Write("/module/build.prop",
        "ro.vemra.image.my_bigball.date.utc=d\nro.vemra.image.my_bigball.version_name=A-B2\n");
  fs::create_directories("/my_region");
  const std::string from = "mount_point=/module\n", to = "bind_point=/my_region\n";
  for (const std::string& incomplete : {from + to, to + "module_type=f\n", from + "module_type=f\n",
                                        to + "mount_point=/none\nmodule_type=f\n"}) {
    EXPECT_EQ(BindModule(incomplete + "sys.x=1\n"), "") << incomplete;
  }
  EXPECT_EQ(Logged(),
            "I cota module bind from: /none to: /my_region | "
            "E bindCotaModuleMountPoint bind failed: -1");
  EXPECT_EQ(BindModule(from + to + "module_type=f\nro.y=2\nroz=1\nsys.x=1\npersist.z=3\n"),
            "0 ro.y=2 sys.x=1");
  EXPECT_EQ(MountPoints(), "/my_region");
  // A configure module is loaded as well, before its properties are forwarded.
  Set("ro.vemra.customize.display.version_name=V5 ro.vendor.vemra.version_suffix=S "
      "ro.build.display.id=A_B");
  EXPECT_EQ(BindModule(from + to + "module_type=configure\nsys.x=1\n"),
            "0 ro.vemra.image.my_bigball.date.utc=d ro.vemra.image.my_carrier.date.utc=d "
            "ro.vemra.image.my_carrier.version_name=A-B2 | 0 ro.vendor.vemra.exp.version=AS_B | "
            "0 ro.vemra.customize.display.version_name=B2 | 0 sys.x=1");
}

TEST_F(CotaOverlayTest, basic_bind_makes_the_module_directories_then_binds_then_hands_over) {
  for (const char* path : {"/mnt/cota", "/data/system", "/my_region"}) fs::create_directories(path);
  Write(kModuleInfo, "mount_point=/mnt/cota/a\nbind_point=/my_region\nmodule_type=f\nro.m=1\n");
  const char* const points =
      "a=/mnt/cota/a\nb=/data/system/customized\nc=/mnt/no\nro.p=1\nsys.q=/mnt/cota/no\n";
  EXPECT_EQ(Command("bind_basic_point", kMountInfo, points),
            "0 ro.m=1 | 0 ro.p=1 sys.q=/mnt/cota/no");
  EXPECT_THAT(Logged(), HasSubstr("E cota module wrong dir /mnt/no"));
  EXPECT_EQ(MountPoints(), "/my_region");
  EXPECT_TRUE(fs::exists("/data/system/customized") && !fs::exists("/mnt/cota/no"));
}

TEST_F(CotaOverlayTest, cota_directory_is_made_from_the_top_and_never_recurses_for_ever) {
  umask(022);
  fs::create_directories("/mnt");
  const FailingCall failing(watch::Call::kLchown, "/mnt/a", EIO);
  EXPECT_EQ(createCotaDirectory("/mnt/a/b"), 0);
  EXPECT_EQ(ModeAndOwner("/mnt/a/b"), "0755 0:0");
  EXPECT_THAT(Logged(), HasSubstr("E Unable to chown file: /mnt/a | I create path: /mnt/a/b sub"));
  EXPECT_NE(createCotaDirectory("/x"), 0) << "it has no parent";
  EXPECT_NE(createCotaDirectory("/mnt/a"), 0) << "it is there";
  EXPECT_NE(createCotaDirectory(std::string(100000, '/')), 0);
}
