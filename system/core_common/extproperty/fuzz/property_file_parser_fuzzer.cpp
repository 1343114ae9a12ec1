#include "utils/property_file_parser.h"

#include <sys/stat.h>

#include <algorithm>
#include <fstream>

#include <android-base/strings.h>

#include "fuzz/fuzz_support.h"

namespace {

using android::base::Trim;

struct Model {
  android::init::PropertyMap map;
  std::vector<ino_t> chain;
  int entered = 0;

  void Load(const std::string& path, const std::string& filter) {
    struct stat st;
    if (stat(path.c_str(), &st) != 0 || chain.size() >= 32 || entered >= 1024) return;
    if (std::count(chain.begin(), chain.end(), st.st_ino) != 0) return;
    ++entered;
    if (!S_ISREG(st.st_mode)) return;
    chain.push_back(st.st_ino);
    std::ifstream lines(path, std::ios::binary);
    for (std::string line; std::getline(lines, line);) Line(Trim(line.c_str()), filter);
    chain.pop_back();
  }

  void Line(const std::string& line, const std::string& filter) {
    const size_t equals = line.find('=');
    if (filter.empty() && line.substr(0, 7) == "import ") {
      const std::string argument = Trim(line.substr(7));
      const size_t space = std::min(argument.find(' '), argument.size());
      const auto path = fuzz::ModelExpand(argument.substr(0, space));
      if (path) Load(*path, Trim(argument.substr(space)));
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
