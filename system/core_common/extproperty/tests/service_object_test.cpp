#include <cstring>
#include <thread>

#include "VemraExtensionProperty/extension_partition_roots.h"
#include "tests/device_test.h"

using android::init::IInitExtensionProperty;
using android::init::InitExtensionPropertyImpl;
using android::init::PropertyApplyCallback;

namespace {

// Returns the index of a virtual function in the virtual table: the C++ ABI keeps its byte offset
// in the pointer to member, with a mark in the lowest bit on some processors.
template <typename Member>
size_t SlotOf(Member member) {
  size_t offset;
  static_assert(sizeof(member) >= sizeof(offset));
  memcpy(&offset, &member, sizeof(offset));
  return (offset & ~size_t{1}) / sizeof(void*);
}

}  // namespace

TEST(ServiceObject, virtual_slots_are_in_the_hosts_order) {
  using I = IInitExtensionProperty;
  using Cb = PropertyApplyCallback;
  EXPECT_EQ(SlotOf(&I::setLibName), 2u);
  EXPECT_EQ(SlotOf(&I::bindCustomizeMediaPath), 3u);
  EXPECT_EQ(SlotOf<void (I::*)(PropertyMap*)>(&I::loadExtensionPartitionProperties), 4u);
  EXPECT_EQ(SlotOf<void (I::*)(std::string, PropertyMap*)>(&I::loadExtensionPartitionProperties),
            5u);
  EXPECT_EQ(SlotOf(&I::loadPersistOverrideProperties), 6u);
  EXPECT_EQ(SlotOf(&I::loadCotaOverrideProperties), 7u);
  EXPECT_EQ(SlotOf(&I::loadQuasarOverrideProperties), 8u);
  EXPECT_EQ(SlotOf<void (I::*)(Cb)>(&I::loadSimSwitchOverrideProperties), 9u);
  EXPECT_EQ(SlotOf<void (I::*)(std::string, Cb)>(&I::loadSimSwitchOverrideProperties), 10u);
  EXPECT_EQ(SlotOf(&I::loadOverrideProperty), 11u);
  EXPECT_EQ(SlotOf(&I::loadCotaServiceOverrideProperties), 12u);
}

TEST(ServiceObject, factory_returns_one_object_to_all_threads_and_keeps_the_last_name) {
  IInitExtensionProperty* from_threads[4];
  std::thread threads[4];
  for (int i = 0; i < 4; ++i) {
    threads[i] =
        std::thread([&, i] { from_threads[i] = InitExtensionPropertyImpl::getInstance(); });
  }
  for (std::thread& thread : threads) thread.join();
  IInitExtensionProperty* first = KSSI_FETCH_IInitExtensionProperty("first.so");
  for (IInitExtensionProperty* other : from_threads) EXPECT_EQ(other, first);
  EXPECT_EQ(KSSI_FETCH_IInitExtensionProperty("second.so"), first);
  EXPECT_EQ(static_cast<Service*>(first)->libName, "second.so");
  first->setLibName(nullptr);
  EXPECT_EQ(static_cast<Service*>(first)->libName, "");
}

TEST_F(DeviceTest, new_service_knows_no_key_and_slot_11_does_nothing) {
  for (const std::string* field :
       {&service_.libName, &service_.simSwitchFirstKey, &service_.simSwitchCurrentKey,
        &service_.channelInfo, &service_.spareString, &service_.oldNvKey, &service_.nvTargetKey,
        &service_.ssvKey}) {
    EXPECT_EQ(*field, "");
  }
  EXPECT_FALSE(service_.loadOverrideProperty("a", "b", Apply));
  EXPECT_TRUE(TakeHandOvers().empty());
  EXPECT_TRUE(TakeLog().empty());
}

TEST(ServiceObject, partition_roots_are_in_the_order_of_precedence) {
  const auto& roots = android::init::ExtensionPartitionRoots;
  ASSERT_EQ(std::size(roots), 11u);
  const char* const names[] = {"preload", "tavlen",  "stock",   "product",     "region",
                               "carrier", "bigball", "company", "engineering", "manifest"};
  EXPECT_EQ(roots[0], "/odm");
  for (size_t i = 0; i < std::size(names); ++i) {
    EXPECT_EQ(roots[i + 1], std::string("/mnt/vendor/my_") + names[i]);
  }
}
