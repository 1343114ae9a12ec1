#include <malloc.h>

#include <fstream>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <android-base/file.h>
#include <benchmark/benchmark.h>

#include "utils/file_io.h"
#include "utils/property_file_parser.h"

// Reading a property file, against the least that any reader has to do and against a plain loop.
namespace {

using android::init::PropertyMap;

// Where a name and its value stand in the file.
struct Place {
  size_t name, name_size, value, value_size;
};

// A file of believable lines, about 45 bytes each, every fifteenth a comment or a blank line.
class PropertyFile {
 public:
  explicit PropertyFile(int64_t properties) {
    std::string content;
    std::mt19937 random(7);
    const auto pick = [&](const auto& words) { return words[random() % std::size(words)]; };
    for (int64_t i = 0; i < properties; ++i) {
      if (i % 15 == 7) content += i % 2 == 0 ? "\n" : "# settings of the next component\n";
      Place place = {content.size(), 0, 0, 0};
      content += std::string(pick(kOwners)) + pick(kParts) + pick(kParts) + std::to_string(i);
      place.name_size = content.size() - place.name;
      content += "=";
      place.value = content.size();
      content += pick(kValues);
      place.value_size = content.size() - place.value;
      content += "\n";
      places_.push_back(place);
    }
    android::base::WriteStringToFd(content, file_.fd);
  }

  const char* path() const { return file_.path; }
  const std::vector<Place>& places() const { return places_; }

 private:
  static constexpr const char* kOwners[] = {"ro.vendor.", "ro.product.",     "persist.sys.",
                                            "ro.build.",  "persist.vendor.", "ro.vemra."};
  static constexpr const char* kParts[] = {"audio.",   "camera.",  "radio.",     "display.",
                                           "feature.", "thermal.", "bluetooth.", "gallery."};
  static constexpr const char* kValues[] = {
      "true", "1",          "com.example.component", "0,30,60,90", "/vendor/etc/settings",
      "",     "EX01_14.0.2"};
  TemporaryFile file_;
  std::vector<Place> places_;
};

// Times `load` into an empty map; the map's end is the caller's affair.
//   cold  every run finds the memory of a new process, not the gaps of the last map
//   warm  every run finds the memory that the last map left
template <typename Load>
void Run(benchmark::State& state, Load load) {
  static std::map<int64_t, PropertyFile> files;
  const PropertyFile& file = files.try_emplace(state.range(0), state.range(0)).first->second;
  const bool warm = state.range(1) != 0;
  if (warm) {
    PropertyMap map;
    load(file, &map);
  }
  for (auto _ : state) {
    PropertyMap map;
    load(file, &map);
    state.PauseTiming();
    if (map.size() != file.places().size()) state.SkipWithError("not all properties were loaded");
    map.clear();
#ifdef __GLIBC__
    if (!warm) malloc_trim(0);
#endif
    state.ResumeTiming();
  }
}

void Parser(benchmark::State& state) {
  Run(state, [](const PropertyFile& file, PropertyMap* map) {
    android::init::load_properties_from_file_without_se(file.path(), nullptr, map);
  });
}

void Floor(benchmark::State& state) {
  Run(state, [](const PropertyFile& file, PropertyMap* map) {
    const auto content = android::init::ReadFile(file.path());
    const std::string_view text = *content;
    for (const Place& place : file.places()) {
      map->emplace(text.substr(place.name, place.name_size),
                   text.substr(place.value, place.value_size));
    }
  });
}

void GetlineLoop(benchmark::State& state) {
  Run(state, [](const PropertyFile& file, PropertyMap* map) {
    std::ifstream lines(file.path());
    for (std::string line; std::getline(lines, line);) {
      if (line.empty() || line[0] == '#') continue;
      const size_t equals = line.find('=');
      if (equals != std::string::npos) (*map)[line.substr(0, equals)] = line.substr(equals + 1);
    }
  });
}

// The number of properties, and 1 for warm.
void Sizes(benchmark::internal::Benchmark* benchmark) {
  benchmark->ArgsProduct({{1000, 2000, 10000, 200000, 1000000}, {0, 1}});
  benchmark->Unit(benchmark::kMicrosecond);
}

BENCHMARK(Parser)->Apply(Sizes);
BENCHMARK(Floor)->Apply(Sizes);
BENCHMARK(GetlineLoop)->Apply(Sizes);

}  // namespace

int main(int argc, char** argv) {
#ifdef __GLIBC__
  // What is freed stays the process's own, whatever its size, until it is given back on purpose.
  mallopt(M_MMAP_THRESHOLD, 32 << 20);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
#endif
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
}
