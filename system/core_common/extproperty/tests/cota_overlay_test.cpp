#include "tests/device_test.h"

#include <sys/mount.h>
#include <sys/stat.h>
#include <unistd.h>

#include "utils/cota_directory.h"

namespace {

const std::string kMountInfo = "/data/cota/cota_mount_info.prop";
const std::string kModuleInfo = "/data/cota/cota_module_info.prop";
const char kDisplay[] = "ro.vemra.customize.display.version_name";
const char kBigballDate[] = "ro.vemra.image.my_bigball.date.utc";
const char kBigballVersion[] = "ro.vemra.image.my_bigball.version_name";
const char kCarrierDate[] = "ro.vemra.image.my_carrier.date.utc";
const char kCarrierVersion[] = "ro.vemra.image.my_carrier.version_name";
const char kMediaResult[] = "sys.mount.mediapath.success";

using Paths = std::vector<std::string>;
using HandOvers = std::vector<HandOver>;

}  // namespace

class CotaOverlayTest : public DeviceTest {
 protected:
  // An image with a build property file of this content, and the carrier mount point.
  static void MakeImage(const std::string& content) {
    Write("/data/cota/img/build.prop", content);
    MakeDirectories("/my_carrier");
  }
  HandOvers BindAndLoad(const std::string& info) {
    Write(kMountInfo, info);
    service_.bindAndLoadCotaOverrideProperties(Apply);
    EXPECT_FALSE(Exists(kMountInfo));
    return TakeHandOvers();
  }
  HandOvers BindModule(const std::string& info) {
    Write(kModuleInfo, info);
    service_.bindCotaModuleMountPoint(Apply);
    EXPECT_FALSE(Exists(kModuleInfo));
    return TakeHandOvers();
  }
};

TEST_F(CotaOverlayTest, override_loader_needs_a_verified_image) {
  Write("/img/build.prop", "a=1\n");
  SetProperty(kCarrierVersion, "V-9");
  const auto load = [&](const char* verify, const char* root) {
    SetProperty("sys.cotaimg.verify", verify);
    SetProperty("sys.cota.load.properties", root);
    service_.loadCotaOverrideProperties(Apply);
    return TakeHandOvers();
  };
  for (const char* verify : {"", "0", "11"}) EXPECT_TRUE(load(verify, "/img").empty());
  for (const char* root : {"", "0"}) EXPECT_TRUE(load("1", root).empty());
  EXPECT_EQ(load("1", "/img"), (HandOvers{{0, {{"a", "1"}}}, {0, {{kDisplay, "9"}}}}));
  SetProperty(kDisplay, "");
  EXPECT_EQ(load("1", "/none"), (HandOvers{{0, {{kDisplay, "9"}}}}));
}

TEST_F(CotaOverlayTest, override_loader_gives_the_image_the_carriers_identity) {
  service_.ssvKey = "S";
  SetProperty("sys.cotaimg.verify", "1");
  SetProperty("sys.cota.load.properties", "/img");
  SetProperty(kDisplay, "set");
  const auto load = [&](const std::string& content) {
    Write("/img/build.prop", content);
    service_.loadCotaOverrideProperties(Apply);
    return TakeHandOvers().at(0).map;
  };
  const std::string bigball = std::string(kBigballDate) + "=d\n" + kBigballVersion + "=v\n";
  Write("/img/etc/build.S.prop", "keyed=1\n");
  EXPECT_EQ(load(bigball),
            (PropertyMap{
                {kBigballDate, "d"}, {kCarrierDate, "d"}, {kCarrierVersion, "v"}, {"keyed", "1"}}));
  EXPECT_EQ(
      load(bigball + kCarrierVersion + "=own\n" + kCarrierDate + "=own\n"),
      (PropertyMap{
          {kBigballDate, "d"}, {kCarrierDate, "own"}, {kCarrierVersion, "own"}, {"keyed", "1"}}));
}

TEST_F(CotaOverlayTest, media_path_is_bound_recursively_onto_image_partitions_only) {
  MakeDirectories("/my_carrier/media");
  MakeDirectories("/data/media");
  service_.bindCustomizeMediaPath("/my_carrier/media");
  EXPECT_EQ(device::PropertyValue(kMediaResult), "");

  Write("/data/cota/media/ring.ogg", "tone");
  SetProperty("ro.sys.custommedia.sourcepath", "/data/cota/media");
  service_.bindCustomizeMediaPath("/data/media");
  service_.bindCustomizeMediaPath(nullptr);
  EXPECT_EQ(device::PropertyValue(kMediaResult), "");
  EXPECT_TRUE(TakeLog().empty());

  service_.bindCustomizeMediaPath("/my_carrier/media");
  EXPECT_EQ(device::PropertyValue(kMediaResult), "0");
  EXPECT_EQ(Read("/my_carrier/media/ring.ogg"), "tone");
  EXPECT_EQ(TakeLog(), std::vector<std::string>{"I Mount ringtones result :0"});
  Write("/my_carrier/media/new", "");  // The bind is writable.
  EXPECT_TRUE(Exists("/data/cota/media/new"));

  SetProperty("ro.sys.custommedia.sourcepath", "/none");
  service_.bindCustomizeMediaPath("/my_carrier/media");
  EXPECT_EQ(device::PropertyValue(kMediaResult), "-1");
  EXPECT_EQ(TakeLog(), std::vector<std::string>{"I Mount ringtones result :-1"});
}

TEST_F(CotaOverlayTest, image_is_bound_on_the_carrier_loaded_and_handed_over) {
  MakeImage(std::string("ro.image=1\n") + kBigballVersion + "=C-B7PM\n");
  SetProperty(kDisplay, "V5PM");
  EXPECT_EQ(BindAndLoad("sys.cotaimg.verify=1\n"
                        "sys.cota.load.properties=/data/cota/img\n"
                        "ro.build.cota.version_name=X_U_COTA_7\n"
                        "persisit.kept=1\npersist.dropped=1\nother=1\n"),
            (HandOvers{{0, {{"ro.image", "1"}, {kCarrierVersion, "C-B7PM"}}},
                       {0,
                        {{"sys.cotaimg.verify", "1"},
                         {"sys.cota.load.properties", "/data/cota/img"},
                         {"ro.build.cota.version_name", "X_U_COTA_7"},
                         {"persisit.kept", "1"}}},
                       {0, {{kDisplay, "B7CT_U007"}}}}));
  EXPECT_EQ(MountPoints(), Paths{"/my_carrier"});
  EXPECT_EQ(Read("/my_carrier/build.prop"), Read("/data/cota/img/build.prop"));
}

TEST_F(CotaOverlayTest, image_bound_elsewhere_keeps_its_identity) {
  MakeImage(std::string(kBigballVersion) + "=v\n");
  MakeDirectories("/my_company");
  SetProperty(kDisplay, "V5");
  EXPECT_EQ(BindAndLoad("sys.cotaimg.verify=1\nsys.cota.load.properties=/data/cota/img\n"
                        "bind_point=/my_company\n")
                .at(0),
            (HandOver{0, {{kBigballVersion, "v"}}}));
  EXPECT_EQ(MountPoints(), Paths{"/my_company"});
}

TEST_F(CotaOverlayTest, image_that_cannot_or_need_not_be_bound_is_read_where_it_is) {
  MakeImage("ro.image=1\n");
  rmdir("/my_carrier");
  const std::string info = "sys.cotaimg.verify=1\nsys.cota.load.properties=/data/cota/img\n";
  const PropertyMap forwarded = {{"sys.cotaimg.verify", "1"},
                                 {"sys.cota.load.properties", "/data/cota/img"}};
  EXPECT_EQ(BindAndLoad(info), (HandOvers{{0, {{"ro.image", "1"}}}, {0, forwarded}}));
  EXPECT_EQ(TakeLog(), Paths{"E cota bindAndLoadCotaOverrideProperties bind failed: -1"});
  EXPECT_EQ(BindAndLoad(info + "bind_point=/data/cota/img\n"),
            (HandOvers{{0, {{"ro.image", "1"}}}, {0, forwarded}}));
  EXPECT_TRUE(TakeLog().empty());
  EXPECT_TRUE(MountPoints().empty());
}

TEST_F(CotaOverlayTest, unverified_or_relative_image_only_forwards_its_info) {
  MakeImage("ro.image=1\n");
  EXPECT_EQ(
      BindAndLoad("sys.cotaimg.verify=0\nsys.cota.load.properties=/data/cota/img\nx=1\n"),
      (HandOvers{
          {0, {{"sys.cotaimg.verify", "0"}, {"sys.cota.load.properties", "/data/cota/img"}}}}));
  EXPECT_EQ(BindAndLoad("sys.cotaimg.verify=1\nsys.cota.load.properties=data/cota/img\n").size(),
            1u);
  EXPECT_TRUE(BindAndLoad("x=1\n").empty());
  EXPECT_TRUE(MountPoints().empty());
}

TEST_F(CotaOverlayTest, new_image_brings_its_media_unless_the_last_bind_failed) {
  MakeImage("ro.sys.custommedia.sourcepath=/data/cota/img/media\n");
  MakeDirectories("/data/cota/img/media");
  SetProperty("persist.sys.customize.media", "/my_carrier/media");
  const std::string info = "sys.cotaimg.verify=1\nsys.cota.load.properties=/data/cota/img\n";
  SetProperty(kMediaResult, "-1");
  BindAndLoad(info);
  EXPECT_EQ(MountPoints(), Paths{"/my_carrier"});
  SetProperty(kMediaResult, "0");
  BindAndLoad(info);
  EXPECT_EQ(MountPoints(), (Paths{"/my_carrier/media", "/my_carrier", "/my_carrier"}));
  EXPECT_EQ(device::PropertyValue(kMediaResult), "0");
}

TEST_F(CotaOverlayTest, info_update_forwards_everything_once) {
  SetProperty(kDisplay, "V5");
  Write(kMountInfo, "persist.a=1\nother=2\nro.build.cota.version_name=X_U_COTA_7\n");
  service_.updateCotaInfoProperties(Apply);
  EXPECT_EQ(
      TakeHandOvers(),
      (HandOvers{
          {0, {{"persist.a", "1"}, {"other", "2"}, {"ro.build.cota.version_name", "X_U_COTA_7"}}},
          {0, {{kDisplay, "V5_U007"}}}}));
  service_.updateCotaInfoProperties(Apply);
  EXPECT_EQ(TakeLog().back(), "E not valid cota mount info file: " + kMountInfo);
  Write(kMountInfo, "# empty\n");
  service_.updateCotaInfoProperties(Apply);
  EXPECT_TRUE(TakeHandOvers().empty());
}

TEST_F(CotaOverlayTest, module_is_bound_and_its_properties_forwarded) {
  Write("/mnt/cota/m/build.prop", "ro.m=1\n");
  MakeDirectories("/my_region");
  const std::string points = "mount_point=/mnt/cota/m\nbind_point=/my_region\n";
  EXPECT_TRUE(BindModule(points + "sys.x=1\n").empty()) << "a module without a type";
  EXPECT_TRUE(BindModule("module_type=files\nbind_point=/my_region\nsys.x=1\n").empty());
  EXPECT_TRUE(TakeLog().empty());
  EXPECT_TRUE(MountPoints().empty());

  EXPECT_EQ(BindModule(points + "module_type=files\nsys.x=1\nro.y=2\npersist.z=3\n"),
            (HandOvers{{0, {{"sys.x", "1"}, {"ro.y", "2"}}}}));
  EXPECT_EQ(MountPoints(), Paths{"/my_region"});
  EXPECT_EQ(Read("/my_region/build.prop"), "ro.m=1\n");
  EXPECT_EQ(TakeLog(), Paths{"I cota module bind from: /mnt/cota/m to: /my_region"});

  EXPECT_TRUE(
      BindModule("mount_point=/none\nbind_point=/my_region\nmodule_type=f\nro.y=1\n").empty());
  EXPECT_EQ(TakeLog().back(), "E bindCotaModuleMountPoint bind failed: -1");
}

TEST_F(CotaOverlayTest, configure_module_is_loaded_from_its_bind_point) {
  Write("/mnt/cota/m/build.prop", std::string(kBigballVersion) + "=A-B2\nro.m=1\n");
  MakeDirectories("/my_region");
  SetProperty(kDisplay, "V5");
  EXPECT_EQ(BindModule("mount_point=/mnt/cota/m\nbind_point=/my_region\nmodule_type=configure\n"
                       "sys.x=1\n"),
            (HandOvers{{0, {{kCarrierVersion, "A-B2"}, {"ro.m", "1"}}},
                       {0, {{kDisplay, "B2"}}},
                       {0, {{"sys.x", "1"}}}}));
}

TEST_F(CotaOverlayTest, basic_bind_makes_the_module_directories_then_binds_then_hands_over) {
  MakeDirectories("/mnt");
  MakeDirectories("/data/system/customize");
  MakeDirectories("/my_region");
  Write(kModuleInfo, "mount_point=/mnt/cota/a\nbind_point=/my_region\nmodule_type=f\nsys.m=1\n");
  Write(kMountInfo,
        "a=/mnt/cota/a/\nb=/mnt/cota/b/c\nc=/data/system/customized\nd=/data/else\n"
        "ro.p=1\nsys.q=/mnt/cota/no\n");
  service_.bindCotaBasicMountPoint(Apply);
  EXPECT_EQ(TakeHandOvers(),
            (HandOvers{{0, {{"sys.m", "1"}}}, {0, {{"ro.p", "1"}, {"sys.q", "/mnt/cota/no"}}}}));
  EXPECT_EQ(MountPoints(), Paths{"/my_region"});
  for (const char* path : {"/mnt/cota/a", "/mnt/cota/b/c", "/data/system/customized"}) {
    EXPECT_EQ(ModeAndOwner(path), "0755 0:0") << path;
  }
  EXPECT_FALSE(Exists("/data/else") || Exists("/mnt/cota/no"));
  const auto log = TakeLog();
  EXPECT_TRUE(LogHas(log, "I bind cota module: d mount point: /data/else"));
  EXPECT_TRUE(LogHas(log, "E cota module wrong dir /data/else"));
  EXPECT_FALSE(Exists(kMountInfo));

  service_.bindCotaBasicMountPoint(Apply);
  EXPECT_EQ(TakeLog(), Paths{"E not valid cota total module info file: " + kMountInfo});
  EXPECT_TRUE(TakeHandOvers().empty());
}

TEST_F(CotaOverlayTest, basic_bind_takes_its_base_from_the_property_and_goes_on_after_failures) {
  SetProperty("sys.cota.module.base.mount.point", "/base");
  Write(kMountInfo, "a=/base/x\nb=/mnt/cota/b\n");
  service_.bindCotaBasicMountPoint(Apply);
  EXPECT_EQ(TakeLog(), (Paths{"I bind cota module: a mount point: /base/x",
                              "I create path: /base/x sub dir: /base",
                              "I create path: /base sub dir: ", "E create sub dir failed: ",
                              "E create sub dir failed: /base", "E cota creat dir /base/x failed",
                              "I bind cota module: b mount point: /mnt/cota/b",
                              "E cota module wrong dir /mnt/cota/b",
                              "E not valid cota module info file: " + kModuleInfo}));
}

TEST_F(CotaOverlayTest, unreadable_info_files_are_reported_and_cannot_be_left_behind) {
  ASSERT_EQ(mkdir("/data", 0755) + mkdir("/data/cota", 0755), 0);
  const auto link_to = [](const std::string& path) {
    return symlink("/data/cota", path.c_str());  // Exists, and is not followed.
  };
  ASSERT_EQ(link_to(kMountInfo) + link_to(kModuleInfo), 0);
  service_.bindCotaBasicMountPoint(Apply);
  const auto log = TakeLog();
  EXPECT_TRUE(LogHas(log, "E cota total module info prop load failed:" + kMountInfo));
  EXPECT_TRUE(LogHas(log, "E cota module info prop load failed:" + kModuleInfo));
  EXPECT_FALSE(Exists(kMountInfo) || Exists(kModuleInfo));
  ASSERT_EQ(link_to(kMountInfo), 0);
  service_.bindAndLoadCotaOverrideProperties(Apply);
  EXPECT_EQ(TakeLog().back(), "E cota info prop load failed:" + kMountInfo);
  EXPECT_FALSE(Exists(kMountInfo));
}

TEST_F(CotaOverlayTest, cota_directory_is_made_from_the_top_and_never_recurses_for_ever) {
  using android::init::createCotaDirectory;
  umask(022);
  MakeDirectories("/mnt");
  EXPECT_EQ(createCotaDirectory("/mnt/a/b/c"), 0);
  EXPECT_EQ(TakeLog(),
            (Paths{"I create path: /mnt/a/b/c sub dir: /mnt/a/b",
                   "I create path: /mnt/a/b sub dir: /mnt/a", "I create path: /mnt/a sub dir: /mnt",
                   "I create path: /mnt/a/b sub dir: /mnt/a",
                   "I create path: /mnt/a/b/c sub dir: /mnt/a/b"}));
  EXPECT_EQ(createCotaDirectory(""), -1);
  EXPECT_TRUE(TakeLog().empty());
  for (const char* path : {"relative", "/top"}) {
    EXPECT_EQ(createCotaDirectory(path), -1);
    EXPECT_EQ(TakeLog().back(), "E create sub dir failed: ");
  }
  EXPECT_EQ(createCotaDirectory("/mnt/a"), -1);
  EXPECT_EQ(TakeLog().back(), "E make dir failed: /mnt/a");
  std::string endless = "/mnt";
  for (int i = 0; i < 100000; ++i) endless += "/d";
  EXPECT_NE(createCotaDirectory(endless), 0);
  EXPECT_NE(createCotaDirectory(std::string(100000, '/')), 0);
}
