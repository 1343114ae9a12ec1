#include <android-base/logging.h>
#include <benchmark/benchmark.h>

#include "VemraExtensionProperty/extension_partition_roots.h"
#include "VemraExtensionProperty/init_extension_property_impl.h"
#include "host/platform/system_properties.h"
#include "host/sandbox/private_root.h"
#include "utils/file_io.h"
#include "utils/property_file_parser.h"

// The host's calls at boot, on the sample device.
namespace {

using android::init::InitExtensionPropertyImpl;
using android::init::PropertyMap;

PropertyMap g_boot_properties;

void Host(int, PropertyMap map) {
  for (const auto& [name, value] : map) device::ApplyProperty(name, value);
}

void ReadAllPartitions(benchmark::State& state) {
  for (auto _ : state) {
    for (const std::string& root : android::init::ExtensionPartitionRoots) {
      benchmark::DoNotOptimize(android::init::ReadFile(root + "/build.prop"));
    }
  }
}

void LoadAllPartitions(benchmark::State& state) {
  for (auto _ : state) {
    PropertyMap map;
    InitExtensionPropertyImpl::getInstance()->loadExtensionPartitionProperties(&map);
  }
}

// Of every boot but the first, which converts the legacy key.
void PersistBoot(benchmark::State& state) {
  const auto boot = [&] {
    InitExtensionPropertyImpl service;
    service.loadPersistOverrideProperties(Host);
  };
  Host(0, g_boot_properties);
  boot();
  for (auto _ : state) {
    state.PauseTiming();
    device::ClearProperties();
    Host(0, g_boot_properties);
    state.ResumeTiming();
    boot();
  }
}

BENCHMARK(ReadAllPartitions)->Unit(benchmark::kMicrosecond);
BENCHMARK(LoadAllPartitions)->Unit(benchmark::kMicrosecond);
BENCHMARK(PersistBoot)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  const std::string device = SAMPLE_DEVICE;
  android::init::load_properties_from_file_without_se((device + "/device.prop").c_str(), nullptr,
                                                      &g_boot_properties);
  const auto entered = sandbox::EnterPrivateRoot({device + "/root"});
  if (!entered.ok()) LOG(FATAL) << entered.error();
  android::base::SetLogger([](auto...) {});
  benchmark::RunSpecifiedBenchmarks();
}
