#include "utils/property_file_parser.h"

#include <unistd.h>

#include <algorithm>
#include <fstream>

#include <android-base/strings.h>

#include "fuzz/fuzz_support.h"

namespace {

using android::base::Trim;

// A plain reader of property files, with the bounds on imports.
struct Model {
  android::init::PropertyMap map;
  std::vector<std::string> chain;  // the files whose imports are followed
  int entered = 0;

  void Import(const std::string& path, const std::string& filter) {
    if (access(path.c_str(), F_OK) != 0 || entered == 4096 || chain.size() == 128) return;
    const bool circle = filter.empty() && std::count(chain.begin(), chain.end(), path) != 0;
    if (!circle) Load(path, filter);
  }

  void Load(const std::string& path, const std::string& filter) {
    ++entered;
    std::ifstream lines(path, std::ios::binary);  // of a directory, it has no line
    chain.push_back(path);
    for (std::string line; std::getline(lines, line);) Line(Trim(line.c_str()), filter);
    chain.pop_back();
  }

  void Line(const std::string& line, const std::string& filter) {
    const size_t equals = line.find('=');
    if (filter.empty() && line.substr(0, 7) == "import ") {
      const std::string argument = Trim(line.substr(7));
      const size_t space = std::min(argument.find(' '), argument.size());
      const auto path = fuzz::ModelExpand(argument.substr(0, space));
      if (path) Import(*path, Trim(argument.substr(space)));
    } else if (equals != std::string::npos && line[0] != '#') {
      const std::string name = Trim(line.substr(0, equals));
      const bool by_prefix = !filter.empty() && filter.back() == '*' &&
                             name.rfind(filter.substr(0, filter.size() - 1), 0) == 0;
      if (filter.empty() || by_prefix || name == filter) map[name] = Trim(line.substr(equals + 1));
    }
  }
};

}  // namespace

// Input: a filter and the files /a, /b, /c and /d, which may import each other.
void fuzz::Test(const std::vector<std::string>& pieces) {
  for (size_t i = 1; i <= 4; ++i) std::ofstream(std::string("/") + "_abcd"[i]) << pieces[i];
  device::ApplyProperty("b", "/b");
  device::ApplyProperty("ro.c", "c");
  const char* filter = pieces[0].c_str();
  Model model;
  model.Load("/a", filter);
  android::init::PropertyMap map;
  const bool loaded = android::init::load_properties_from_file_without_se("/a", filter, &map);
  Expect(loaded && map == model.map, "the properties are the model's");
}
