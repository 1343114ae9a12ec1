#include "host/extprop/explain/directory_order.h"

#include <map>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>

#include "host/extprop/explain/carrier_key_origin.h"

namespace extprop {

std::vector<std::vector<ReadLine>> FindOrderDependent(const BootRecord& record,
                                                      const ReadMap& map) {
  // By directory and name, the last line of each file.
  std::map<std::pair<std::string, std::string_view>, std::map<size_t, ReadLine>> groups;
  for (const ReadLine& read : map.lines) {
    const size_t file = OutermostIndex(record, read.line->file);
    const std::string& path = record.property_files[file].path;
    const std::string kind = ParseKeyedPath(path).kind;
    if (kind.empty() || kind == "file" || read.line->outcome == LineOutcome::kFiltered) continue;
    groups[{DirectoryOf(path), read.line->name}][file] = read;
  }
  std::vector<std::vector<ReadLine>> dependent;
  for (const auto& [key, lines] : groups) {
    std::vector<ReadLine> last_lines;
    bool differ = false;
    for (const auto& [file, read] : lines) {
      last_lines.push_back(read);
      differ = differ || read.line->value != last_lines.front().line->value;
    }
    if (differ) dependent.push_back(std::move(last_lines));
  }
  return dependent;
}

}  // namespace extprop
