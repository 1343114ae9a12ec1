#pragma once

#include <ostream>
#include <string>

#include "host/extprop/carriers/carrier_table.h"

namespace extprop {

// page/carriers.html, in which one mark stands for the table.
extern const char kCarriersPage[];

// Returns a page that shows each property of `tree` for each carrier key, with the place that set
// it. It needs no other file.
std::string RenderCarriersHtml(const std::string& tree, const CarrierTable& table);

// Prints, for spreadsheets, a line of names and then one for each property that differs from the
// default for some key: its name, its value by default and with each key. Lines and quotes are
// those of RFC 4180; an empty cell is an unset property. Values are printed as they are.
void PrintCarriersCsv(const CarrierTable& table, std::ostream& out);

}  // namespace extprop
