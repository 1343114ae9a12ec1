#include "host/extprop/render/render_html.h"

#include <android-base/strings.h>

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <vector>

#include "host/extprop/explain/history.h"

namespace extprop {

namespace {

using nlohmann::json;

constexpr const char* kRecordMark = "@EXTPROP_RECORD@";

// Packs values so that each text and each list of members is there only once; the page unpacks
// them. A text becomes its place in `texts`, a number a text, an object the place of its members'
// names in `shapes` and then their values, and an array -1 and then its items.
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

// The lines are in the histories.
BootRecord WithoutLines(BootRecord record) {
  for (Step& step : record.steps) {
    auto& events = step.events;
    events.erase(std::remove_if(events.begin(), events.end(),
                                [](const Event& event) {
                                  return std::holds_alternative<PropertyLine>(event.what);
                                }),
                 events.end());
  }
  record.property_files.clear();
  return record;
}

void AddInputs(const std::vector<Origin>& inputs, json* list) {
  for (const Origin& input : inputs) {
    list->push_back({{"name", input.name}, {"value", input.value}, {"place", input.place}});
    AddInputs(input.inputs, list);
  }
}

json Brief(const Setting& setting) {
  json brief = {{"loader", setting.loader}, {"mode", setting.mode}, {"value", setting.value}};
  if (setting.file.empty()) {
    brief["rule"] = setting.place;
  } else {
    brief["file"] = setting.file;
    brief["line"] = setting.line;
  }
  if (setting.won) brief["won"] = true;
  for (const auto& [name, text] :
       {std::pair("why", setting.why), std::pair("refused", setting.refused),
        std::pair("carrier", setting.carrier), std::pair("order", DependsOnOrder(setting))}) {
    if (!text.empty()) brief[name] = text;
  }
  if (!setting.inputs.empty()) AddInputs(setting.inputs, &brief["inputs"]);
  return brief;
}

}  // namespace

std::string ScriptText(const json& value) {
  const std::string text = value.dump(-1, ' ', false, json::error_handler_t::replace);
  return android::base::StringReplace(text, "<", "\\u003c", true);
}

std::string RenderHtml(const std::string& command, const std::string& tree,
                       const BootRecord& record) {
  json histories = json::object();
  for (const auto& [name, history] : Histories(record)) {
    json& settings = histories[name] = json::array();
    for (const Setting& setting : history) settings.push_back(Brief(setting));
  }
  PagePacker packer;
  const json packed = packer.Pack({{"command", command},
                                   {"version", EXTPROP_VERSION},
                                   {"tree", tree},
                                   {"record", ToJson(WithoutLines(record))},
                                   {"histories", histories}});
  return android::base::StringReplace(kPage, kRecordMark, ScriptText(packer.Result(packed)), false);
}

}  // namespace extprop
