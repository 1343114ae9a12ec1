#include "host/extprop/render/render_carriers.h"

#include <android-base/strings.h>

#include <map>
#include <nlohmann/json.hpp>

#include "host/extprop/render/render_html.h"

namespace extprop {

namespace {

using nlohmann::json;

constexpr const char* kTableMark = "@EXTPROP_TABLE@";

// Texts that many cells share, each once.
class TextList {
 public:
  size_t IndexOf(const std::string& text) {
    const auto [found, is_new] = indices_.try_emplace(text, indices_.size());
    if (is_new) texts_.push_back(text);
    return found->second;
  }
  json Take() { return std::move(texts_); }

 private:
  std::map<std::string, size_t> indices_;
  json texts_ = json::array();
};

const std::string& ValueOf(const Endings& endings, const std::string& name) {
  static const std::string unset;
  const auto found = endings.find(name);
  return found == endings.end() ? unset : found->second.value;
}

std::string Title(const CarrierKey& key) {
  return key.kind + "=" + key.name;
}

void PrintCell(const std::string& text, std::ostream& out) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) {
    out << text;
  } else {
    out << '"' << android::base::StringReplace(text, "\"", "\"\"", true) << '"';
  }
}

}  // namespace

std::string RenderCarriersHtml(const std::string& tree, const CarrierTable& table) {
  TextList texts;
  std::map<std::string, size_t> rows;
  for (const auto& [name, ending] : table.by_default) {
    if (!ending.value.empty()) rows.emplace(name, 0);
  }
  for (const std::string& name : VaryingNames(table)) rows.emplace(name, 0);
  json names = json::array(), by_default = json::array(), keys = json::array();
  for (auto& [name, row] : rows) {
    row = names.size();
    names.push_back(name);
    const auto found = table.by_default.find(name);
    const Ending ending = found == table.by_default.end() ? Ending() : found->second;
    by_default.push_back(texts.IndexOf(ending.value));
    by_default.push_back(texts.IndexOf(ending.place));
  }
  for (const CarrierColumn& column : table.columns) {
    json cells = json::array();
    for (const auto& [name, ending] : column.differences) {
      cells.push_back(rows.at(name));
      cells.push_back(texts.IndexOf(ending.value));
      cells.push_back(texts.IndexOf(ending.place));
    }
    keys.push_back({{"kind", column.key.kind},
                    {"name", column.key.name},
                    {"target", column.key.target},
                    {"first", column.key.first},
                    {"sources", column.key.sources},
                    {"cells", std::move(cells)}});
  }
  const json all = {{"tree", tree},
                    {"names", names},
                    {"byDefault", by_default},
                    {"keys", keys},
                    {"texts", texts.Take()}};
  return android::base::StringReplace(kCarriersPage, kTableMark, ScriptText(all), false);
}

void PrintCarriersCsv(const CarrierTable& table, std::ostream& out) {
  out << "property,default";
  for (const CarrierColumn& column : table.columns) PrintCell(Title(column.key), out << ',');
  out << "\r\n";
  for (const std::string& name : VaryingNames(table)) {
    const std::string& by_default = ValueOf(table.by_default, name);
    PrintCell(name, out);
    PrintCell(by_default, out << ',');
    for (const CarrierColumn& column : table.columns) {
      const auto found = column.differences.find(name);
      PrintCell(found == column.differences.end() ? by_default : found->second.value, out << ',');
    }
    out << "\r\n";
  }
}

}  // namespace extprop
