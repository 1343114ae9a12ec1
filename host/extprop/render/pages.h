#pragma once

#include <ostream>
#include <string>

#include "host/extprop/boot/boot_record.h"
#include "host/extprop/carriers/carrier_boots.h"

namespace extprop {

// Returns a page that shows the boot of `tree`: by which command it was made, its timeline, the
// resulting properties with the place that decided each, and every property's history. It needs no
// other file. The record must come from a plan that asks for lines.
std::string RenderHtml(const std::string& command, const std::string& tree,
                       const BootRecord& record);

// Returns a page that shows each property of `tree` for each carrier key, with the place that set
// it, and by which command it was made. It needs no other file.
std::string RenderCarriersHtml(const std::string& command, const std::string& tree,
                               const CarrierTable& table);

// Prints, for spreadsheets, a line of names and then one for each property that differs from the
// default for some key: its name, its value by default and with each key. Lines and quotes are
// those of RFC 4180; an empty cell is an unset property. Values are printed as they are.
void PrintCarriersCsv(const CarrierTable& table, std::ostream& out);

}  // namespace extprop
