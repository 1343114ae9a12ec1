#include "host/extprop/render/pages.h"

#include <android-base/strings.h>

#include <map>
#include <vector>

#include "host/extprop/explain/history.h"
#include "host/extprop/render/embedded.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

using android::base::StringReplace;

// Packs values so that each text and each list of members is there only once; page/head.html
// unpacks them. A text becomes its place in `texts`, a number a text, an object the place of its
// members' names in `shapes` and then their values, and an array -1 and then its items.
class PagePacker {
 public:
  json Pack(const json& value) {
    if (value.is_string()) return TextIndex(value.get<std::string>());
    if (value.is_number()) return value.dump();
    if (!value.is_structured()) return value;
    json packed = json::array({-1});
    std::vector<size_t> names;
    for (const auto& [name, member] : value.items()) {
      packed.push_back(Pack(member));
      if (value.is_object()) names.push_back(TextIndex(name));
    }
    if (value.is_object()) packed[0] = shapes_.try_emplace(names, shapes_.size()).first->second;
    return packed;
  }

  // With all that was packed by then.
  json Result(const json& packed) const {
    json texts = json::array(), shapes = json::array();
    for (const auto& [text, index] : texts_) texts[index] = text;
    for (const auto& [names, index] : shapes_) shapes[index] = names;
    return {{"texts", texts}, {"shapes", shapes}, {"packed", packed}};
  }

 private:
  size_t TextIndex(const std::string& text) {
    return texts_.try_emplace(text, texts_.size()).first->second;
  }

  std::map<std::string, size_t> texts_;
  std::map<std::vector<size_t>, size_t> shapes_;
};

std::string FillPage(const std::string& command, const std::string& file, json shown) {
  shown["command"] = command;
  shown["version"] = EXTPROP_VERSION;
  PagePacker packer;
  const json packed = packer.Pack(shown);
  const std::string data =
      packer.Result(packed).dump(-1, ' ', false, json::error_handler_t::replace);
  const std::string page =
      StringReplace(EmbeddedText(file), "@HEAD@", EmbeddedText("head.html"), false);
  // It stands in a script element: nothing in it may end or begin an element or comment.
  return StringReplace(page, "@DATA@", StringReplace(data, "<", "\\u003c", true), false);
}

// Without the lines, which are in the histories.
json Brief(const BootRecord& record) {
  json brief = ToJson(record);
  brief.erase("property_files");
  for (json& step : brief["steps"]) {
    json events = json::array();
    for (json& event : step["events"]) {
      if (event["event"] != "line") events.push_back(std::move(event));
    }
    step["events"] = std::move(events);
  }
  return brief;
}

// Without what the rest tells.
json Brief(const History& history) {
  json brief = history;
  for (json& setting : brief) {
    setting.erase("name");
    if (setting["file"] != "") setting.erase("place");
  }
  return brief;
}

// A cell of the page's table takes three items, which is shorter than an object.
void AddCell(const std::string& name, const Ending& ending, json* cells) {
  for (const std::string& text : {name, ending.value, ending.place}) cells->push_back(text);
}

std::string CsvCell(const std::string& text) {
  if (text.find_first_of(",\"\r\n") == std::string::npos) return text;
  return '"' + StringReplace(text, "\"", "\"\"", true) + '"';
}

}  // namespace

std::string RenderHtml(const std::string& command, const std::string& tree,
                       const BootRecord& record) {
  json histories = json::object();
  for (const auto& [name, history] : Histories(record)) {
    histories[name] = Brief(history);
  }
  return FillPage(command, "boot.html",
                  {{"tree", tree}, {"record", Brief(record)}, {"histories", histories}});
}

std::string RenderCarriersHtml(const std::string& command, const std::string& tree,
                               const CarrierTable& table) {
  const std::set<std::string> varying = VaryingNames(table);
  Endings by_default = table.by_default;
  for (const std::string& name : varying) by_default.try_emplace(name);
  json rows = json::array(), keys = json::array();
  for (const auto& [name, ending] : by_default) {
    if (!ending.value.empty() || varying.count(name) != 0) AddCell(name, ending, &rows);
  }
  for (const CarrierColumn& column : table.columns) {
    json& cells = keys.emplace_back(ToJson(column.key))["cells"] = json::array();
    for (const auto& [name, ending] : column.differences) AddCell(name, ending, &cells);
  }
  return FillPage(command, "carriers.html", {{"tree", tree}, {"byDefault", rows}, {"keys", keys}});
}

void PrintCarriersCsv(const CarrierTable& table, std::ostream& out) {
  out << "property,default";
  for (const CarrierColumn& column : table.columns) {
    out << ',' << CsvCell(column.key.kind + "=" + column.key.name);
  }
  out << "\r\n";
  for (const std::string& name : VaryingNames(table)) {
    const std::string by_default = CsvCell(ValueIn(table.by_default, name).value);
    out << CsvCell(name) << ',' << by_default;
    for (const CarrierColumn& column : table.columns) {
      const auto found = column.differences.find(name);
      out << ',' << (found == column.differences.end() ? by_default : CsvCell(found->second.value));
    }
    out << "\r\n";
  }
}

}  // namespace extprop
