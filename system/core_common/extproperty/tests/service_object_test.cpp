#include <cstring>

#include "tests/device_test.h"

using android::init::IInitExtensionProperty;

// Returns the index of a virtual function in the virtual table: the C++ ABI keeps its byte offset
// in the pointer to member, with a mark in the lowest bit on some processors.
template <typename Member>
static size_t SlotOf(Member member) {
  size_t offset;
  static_assert(sizeof(member) >= sizeof(offset));
  memcpy(&offset, &member, sizeof(offset));
  return (offset & ~size_t{1}) / sizeof(void*);
}

TEST(ServiceObject, virtual_slots_are_in_the_hosts_order) {
  using I = IInitExtensionProperty;
  using Cb = android::init::PropertyApplyCallback;
  const size_t slots[] = {
      SlotOf(&I::setLibName),
      SlotOf(&I::bindCustomizeMediaPath),
      SlotOf<void (I::*)(PropertyMap*)>(&I::loadExtensionPartitionProperties),
      SlotOf<void (I::*)(std::string, PropertyMap*)>(&I::loadExtensionPartitionProperties),
      SlotOf(&I::loadPersistOverrideProperties),
      SlotOf(&I::loadCotaOverrideProperties),
      SlotOf(&I::loadQuasarOverrideProperties),
      SlotOf<void (I::*)(Cb)>(&I::loadSimSwitchOverrideProperties),
      SlotOf<void (I::*)(std::string, Cb)>(&I::loadSimSwitchOverrideProperties),
      SlotOf(&I::loadOverrideProperty),
      SlotOf(&I::loadCotaServiceOverrideProperties)};
  // The destructors are the first two.
  for (size_t i = 0; i < std::size(slots); ++i) EXPECT_EQ(slots[i], i + 2);
}

TEST_F(DeviceTest, factory_returns_one_object_that_knows_no_key_but_the_last_name) {
  IInitExtensionProperty* object = KSSI_FETCH_IInitExtensionProperty("first.so");
  EXPECT_EQ(KSSI_FETCH_IInitExtensionProperty("second.so"), object);
  const Service& s = *static_cast<Service*>(object);
  EXPECT_EQ(s.libName + s.simSwitchFirstKey + s.simSwitchCurrentKey + s.channelInfo +
                s.spareString + s.oldNvKey + s.nvTargetKey + s.ssvKey,
            "second.so");
  object->setLibName(nullptr);
  EXPECT_EQ(s.libName, "");
  EXPECT_FALSE(object->loadOverrideProperty("a", "b", Apply));
}
