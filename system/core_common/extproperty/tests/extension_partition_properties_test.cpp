#include "tests/device_test.h"

#include <sys/stat.h>
#include <unistd.h>

#include "VemraExtensionProperty/extension_partition_roots.h"

using ExtensionPartitionTest = DeviceTest;

TEST_F(ExtensionPartitionTest, later_partitions_override_the_callers_map_and_earlier_ones) {
  Write("/odm/build.prop", "a=odm\nb=odm\nc=odm\n");
  Write("/mnt/vendor/my_carrier/build.prop", "b=carrier\n");
  Write("/mnt/vendor/my_manifest/build.prop", "a=manifest\n");
  PropertyMap map = {{"c", "caller"}, {"d", "caller"}};
  service_.loadExtensionPartitionProperties(&map);
  EXPECT_EQ(map, (PropertyMap{{"a", "manifest"}, {"b", "carrier"}, {"c", "odm"}, {"d", "caller"}}));
}

TEST_F(ExtensionPartitionTest, missing_partitions_are_errors_and_add_nothing) {
  PropertyMap map = {{"a", "1"}};
  service_.loadExtensionPartitionProperties(&map);
  EXPECT_EQ(map, (PropertyMap{{"a", "1"}}));
  std::vector<std::string> expected;
  for (const std::string& root : android::init::ExtensionPartitionRoots) {
    expected.push_back("W Couldn't load property file '" + root +
                       "/build.prop': open() failed: No such file or directory");
    expected.push_back("E partition property load failed:" + root + "/build.prop");
  }
  EXPECT_EQ(TakeLog(), expected);
}

TEST_F(ExtensionPartitionTest, all_partitions_go_through_the_virtual_slot_of_one) {
  struct Overriding : Service {
    using Service::loadExtensionPartitionProperties;
    void loadExtensionPartitionProperties(std::string partition, PropertyMap* out) override {
      (*out)["seen"] += partition + ";";
    }
  } service;
  PropertyMap map;
  service.InitExtensionPropertyImpl::loadExtensionPartitionProperties(&map);
  EXPECT_EQ(map["seen"].substr(0, 29), "/odm;/mnt/vendor/my_preload;/");
}

TEST_F(ExtensionPartitionTest, customisation_version_follows_the_carrier_images_type) {
  const std::string type = "ro.vemra.image.my_carrier.type", version = "ro.vemra.cust.ver";
  const std::pair<PropertyMap, PropertyMap> cases[] = {
      {{}, {}},
      {{{type, "empty"}}, {{type, "empty"}}},
      {{{type, ""}}, {{type, ""}, {version, "1"}}},
      {{{type, "Empty"}}, {{type, "Empty"}, {version, "1"}}},
      {{{type, "x"}, {version, ""}}, {{type, "x"}, {version, ""}}},
  };
  for (auto [map, expected] : cases) {
    service_.modifyComponentPriorityIfNeed(&map);
    EXPECT_EQ(map, expected);
  }
}

TEST_F(ExtensionPartitionTest, directory_load_takes_every_readable_prop_entry_but_directories) {
  Write("/dir/a.prop", "a=1\n");
  Write("/dir/b.txt", "b=1\n");
  Write("/dir/.prop", "hidden=1\n");
  MakeDirectories("/dir/c.prop");
  ASSERT_EQ(symlink("/dir/a.prop", "/dir/link.prop"), 0);
  PropertyMap map;
  service_.loadPropertiesFromDir("/dir", &map);
  EXPECT_EQ(map, (PropertyMap{{"a", "1"}, {"hidden", "1"}}));
  const auto log = TakeLog();
  EXPECT_EQ(log.size(), 2u);
  EXPECT_TRUE(LogHas(log, "E property load failed:/dir/link.prop"));

  service_.loadPropertiesFromDir("/none", &map);
  service_.loadPropertiesFromDir("/dir/a.prop", &map);
  EXPECT_TRUE(TakeLog().empty());
}
