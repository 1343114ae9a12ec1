#pragma once

#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "host/extprop/carriers/carrier_choice.h"

namespace extprop {

constexpr const char* kAnyValue = "*";

// What is to be true of one property at the end of a boot.
struct Expectation {
  std::string path;   // of the file that says so
  unsigned line = 0;  // from 1
  std::string value;  // kAnyValue for any; empty for unset
};

using ExpectationMap = std::map<std::string, Expectation>;  // by property

// One device that is to be booted, and what holds for it alone.
struct ExpectationSection {
  std::string path;
  unsigned line = 0;
  std::string title;                   // what stands between the brackets, in one order
  std::vector<CarrierChoice> choices;  // carriers, then properties to boot with
  ExpectationMap expectations;
};

struct Expectations {
  ExpectationMap everywhere;  // what holds for the default device and each section's
  // Sections that mean the same device are one. The first is always that of the default device.
  std::vector<ExpectationSection> sections = {{"", 0, "default", {}, {}}};
  std::set<std::string> names;  // of all properties that are expected to be something
  size_t count = 0;
};

// Adds those of a file, whose lines are
//
//   NAME=VALUE       the property has the value
//   NAME=*           it has any value
//   !NAME            it is unset
//   [KIND=KEY ...]   what follows holds for a device of that carrier, or of all these carriers
//   [NAME=VALUE]     ... for a device that boots with the property; both kinds may stand together
//   [default]        ... for the device as it is
//
// or blank, or comments that begin with "#". What stands before any section holds for every device.
// Returns what is wrong with the file, as FILE:LINE: error: MESSAGE each; empty where nothing is.
std::vector<std::string> ReadExpectations(
    const std::string& path, const std::function<bool(const std::string&)>& is_legal_name,
    Expectations* expectations);

// Returns the line that expects what a boot ended with, `value` being empty for unset. A value that
// no line can give, as white space at its ends would be lost, becomes any value.
std::string ExpectationLine(const std::string& name, const std::string& value);

// Returns the line that begins the section of the choice, empty where no line can name its key.
std::string SectionLine(const CarrierChoice& choice);

}  // namespace extprop
