#include "tests/device_test.h"

#include <dlfcn.h>

TEST_F(DeviceTest, factory_returns_one_object_with_its_slots_in_the_hosts_order) {
  auto* object = static_cast<InitExtensionPropertyImpl*>(KSSI_FETCH_IInitExtensionProperty("a.so"));
  EXPECT_EQ(KSSI_FETCH_IInitExtensionProperty("b.so"), object);
  EXPECT_EQ(object->libName, "b.so");
  object->setLibName(nullptr);
  EXPECT_EQ(object->libName, "");
  // The two destructors come first. Overloads are told apart by what their
  // parameters are in the symbol's name; slot 11, which does nothing, has none.
  const char* const slots[] = {"setLibName",
                               "bindCustomizeMediaPath",
                               "loadExtensionPartitionPropertiesEP",
                               "loadExtensionPartitionPropertiesEN",
                               "loadPersistOverride",
                               "loadCotaOverride",
                               "loadQuasarOverride",
                               "loadSimSwitchOverridePropertiesEP",
                               "loadSimSwitchOverridePropertiesEN",
                               "",
                               "loadCotaService"};
  void* const* const table = *reinterpret_cast<void***>(object);
  for (size_t i = 0; i < std::size(slots); ++i) {
    if (i == 9) continue;
    Dl_info function = {};
    ASSERT_NE(dladdr(table[i + 2], &function), 0) << i;
    EXPECT_THAT(function.dli_sname, HasSubstr(slots[i]));
  }
  EXPECT_FALSE(object->loadOverrideProperty("a", "b", Apply));
}
