#include <dlfcn.h>

#include <benchmark/benchmark.h>

#include "extproperty/init_extension_property.h"

// What init waits for until the library is there. The platform's libraries are loaded already.
namespace {

void LoadLibraryAndFetchService(benchmark::State& state) {
  for (auto _ : state) {
    void* library = dlopen(EXTPROPERTY_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    void* factory =
        library == nullptr ? nullptr : dlsym(library, "KSSI_FETCH_IInitExtensionProperty");
    if (factory == nullptr) {
      state.SkipWithError(dlerror());
      break;
    }
    reinterpret_cast<decltype(&KSSI_FETCH_IInitExtensionProperty)>(factory)("libextproperty.so");
    state.PauseTiming();
    dlclose(library);
    if (dlopen(EXTPROPERTY_LIBRARY, RTLD_NOW | RTLD_NOLOAD) != nullptr) {
      state.SkipWithError("the library stays loaded");
      break;
    }
    state.ResumeTiming();
  }
}

BENCHMARK(LoadLibraryAndFetchService)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
