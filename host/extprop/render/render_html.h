#pragma once

#include <string>

#include <nlohmann/json_fwd.hpp>

#include "host/extprop/boot/boot_record.h"

namespace extprop {

// page/template.html, in which one mark stands for the record.
extern const char kPage[];

// Returns JSON that may stand in a script element: nothing in it ends or begins an element or
// comment.
std::string ScriptText(const nlohmann::json& json);

// Returns a page that shows the boot of `tree`: by which command it was made, its timeline, the
// resulting properties with the place that decided each, and every property's history. It needs no
// other file. The record must come from a plan that asks for lines.
std::string RenderHtml(const std::string& command, const std::string& tree,
                       const BootRecord& record);

}  // namespace extprop
