#include "host/extprop/render/render_html.h"

#include <android-base/strings.h>

#include <algorithm>
#include <nlohmann/json.hpp>

#include "host/extprop/explain/history.h"

namespace extprop {

namespace {

constexpr const char* kRecordMark = "@EXTPROP_RECORD@";

// As JSON that may stand in a script element: nothing in it ends or begins an element or comment.
std::string ScriptText(const nlohmann::json& json) {
  const std::string text = json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
  return android::base::StringReplace(text, "<", "\\u003c", true);
}

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
  return record;
}

}  // namespace

std::string RenderHtml(const std::string& tree, const BootRecord& record) {
  nlohmann::json histories = nlohmann::json::object();
  for (const auto& [name, history] : Histories(record)) histories[name] = ToJson(history);
  const nlohmann::json all = {
      {"tree", tree}, {"record", ToJson(WithoutLines(record))}, {"histories", histories}};
  return android::base::StringReplace(kPage, kRecordMark, ScriptText(all), false);
}

}  // namespace extprop
