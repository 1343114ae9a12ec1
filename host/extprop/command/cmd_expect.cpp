#include <android-base/strings.h>

#include <algorithm>
#include <iostream>
#include <tuple>

#include "host/extprop/carriers/carrier_boots.h"
#include "host/extprop/command/commands.h"
#include "host/extprop/expect/expectations.h"
#include "host/extprop/render/terminal.h"
#include "host/extprop/vocabulary.h"

namespace extprop {

// What a device does not do as expected.
struct Unmet {
  std::string path;  // of the file that expects it
  unsigned line = 0;
  std::string id;         // "unmet", or "unknown-carrier" of a section that was not booted for it
  std::string name = {};  // of the property; empty for an unknown carrier
  std::string expected = {};               // as in an Expectation
  std::string value = {};                  // what it is instead; empty where it is unset
  std::string place = {};                  // what set or cleared it; empty where nothing did
  std::string note = {};                   // what else is to be known, as of an Ending
  std::vector<std::string> sections = {};  // the titles of those that are concerned
  std::string message = {};
};

NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Unmet, path, line, id, name, expected, value, place, note,
                                   sections, message)

namespace {

using Choices = std::vector<CarrierChoice>;

constexpr size_t kSectionsShown = 3;

struct Checked {
  size_t boots = 0;
  std::vector<Unmet> unmet;         // in the order of the files and lines
  std::vector<std::string> errors;  // of boots that could not be made or completed
};

std::string Message(const Unmet& unmet, bool in_all) {
  if (unmet.name.empty()) return unmet.note + "; its section is not checked";
  std::string message = "[" + unmet.name + "] is ";
  message += unmet.value.empty() ? "unset, not " : "[" + unmet.value + "], not ";
  if (unmet.expected.empty()) {
    message += "unset";
  } else {
    message += unmet.expected == kAnyValue ? "set to a value" : "[" + unmet.expected + "]";
  }
  const size_t sections = in_all ? 0 : unmet.sections.size();
  for (size_t i = 0; i < std::min(sections, kSectionsShown); ++i) {
    message += (i == 0 ? " with [" : ", [") + unmet.sections[i] + "]";
  }
  if (sections > kSectionsShown) {
    message += " and " + std::to_string(sections - kSectionsShown) + " more";
  }
  if (!unmet.place.empty()) {
    message += (unmet.value.empty() ? "; cleared by " : "; set by ") + unmet.place;
  }
  return message + (unmet.note.empty() ? "" : "; " + unmet.note);
}

// Returns the sections whose carriers the device knows; the others are findings.
std::vector<ExpectationSection> KnownSections(const BootPlan& plan, const Choices& base,
                                              const Expectations& expectations,
                                              std::vector<Unmet>* unmet) {
  const std::vector<CarrierKey> keys = OrFail(kTrouble, FindCarrierKeys(plan));
  const std::vector<std::string> wrong = Doubts(base, keys);
  if (!wrong.empty()) throw Failure(kTrouble, "--carrier " + android::base::Join(wrong, "; "));
  std::vector<ExpectationSection> known;
  for (const ExpectationSection& section : expectations.sections) {
    const std::string doubts = android::base::Join(Doubts(section.choices, keys), "; ");
    if (doubts.empty()) {
      known.push_back(section);
    } else {
      unmet->push_back({section.path, section.line, "unknown-carrier"});
      unmet->back().note = doubts;
      unmet->back().sections = {section.title};
    }
  }
  return known;
}

// Adds what does not hold after the boot of a section. Where many devices fail in the same way, it
// is told once.
void AddUnmet(const ExpectationMap& expectations, const std::string& section,
              const Endings& by_default, const CarrierOutcome& outcome, std::vector<Unmet>* unmet) {
  for (const auto& [name, expectation] : expectations) {
    const auto& [path, line, expected] = expectation;
    const auto& [value, place, loader, note] = EndingOf(by_default, outcome, name);
    if (expected == kAnyValue ? !value.empty() : value == expected) continue;
    const Unmet found = {path, line, "unmet", name, expected, value, place, note};
    const auto told = std::find_if(unmet->begin(), unmet->end(), [&](const Unmet& other) {
      return std::tie(other.line, other.value, other.place, other.note, other.path) ==
             std::tie(found.line, found.value, found.place, found.note, found.path);
    });
    Unmet& one = told == unmet->end() ? unmet->emplace_back(found) : *told;
    one.sections.push_back(section);
  }
}

// Boots once for each section, with the carriers of `base` beside the section's own.
Checked Check(const BootPlan& plan, const Choices& base, const Expectations& expectations,
              unsigned jobs) {
  Checked checked;
  const std::vector<ExpectationSection> sections =
      KnownSections(plan, base, expectations, &checked.unmet);
  checked.boots = sections.size();
  const CarrierBoots boots = OrFail(kTrouble, BootByDefault(plan, base, expectations.names));
  std::vector<Choices> choices;
  choices.reserve(sections.size());
  for (const ExpectationSection& section : sections) choices.push_back(section.choices);
  std::vector<Unmet> everywhere;
  const auto check = [&](size_t index, const CarrierOutcome& outcome) {
    const auto& [path, line, title, carriers, own] = sections[index];
    if (outcome.error.empty()) {
      AddUnmet(expectations.everywhere, title, boots.by_default, outcome, &everywhere);
      AddUnmet(own, title, boots.by_default, outcome, &checked.unmet);
    } else {
      checked.errors.push_back("[" + title + "]: " + outcome.error);
    }
  };
  BootEach(boots, choices, jobs, check);
  for (Unmet& unmet : checked.unmet) unmet.message = Message(unmet, true);
  for (Unmet& unmet : everywhere) {
    unmet.message = Message(unmet, unmet.sections.size() == checked.boots);
    checked.unmet.push_back(std::move(unmet));
  }
  std::stable_sort(checked.unmet.begin(), checked.unmet.end(), [](const Unmet& a, const Unmet& b) {
    return std::tie(a.path, a.line) < std::tie(b.path, b.line);
  });
  return checked;
}

// What holds on every device, in the default section what holds only where no key is chosen, and in
// the section of each key how it differs from that.
int WriteExpectations(const BootPlan& plan, const Options& options) {
  const CarrierTable table =
      OrFail(kTrouble, FillCarrierTable(plan, options.boot.carriers, options.jobs, false));
  const std::set<std::string> varying = VaryingNames(table);
  // What choosing a carrier sets by itself differs from key to key without anybody's doing.
  Properties chosen;
  for (const CarrierColumn& column : table.columns) chosen.merge(SetBy(column.key.Choice(), plan));
  std::cout << "# What extprop expect --write found. Check with the same options.\n\n"
               "# On every device of this build:\n";
  for (const auto& [name, ending] : table.by_default) {
    const bool varies = varying.count(name) != 0 || chosen.count(name) != 0;
    // What the device only boots with, no loader sets.
    if (varies || ending.value.empty() || ending.loader.empty()) continue;
    // What init refuses or a directory's order decides is no promise.
    const bool sure = ending.note.empty();
    if (!sure) std::cout << "# " << Visible(ending.note) << '\n';
    std::cout << ExpectationLine(name, sure ? ending.value : kAnyValue) << '\n';
  }
  if (!varying.empty()) std::cout << "\n[default]\n";
  for (const std::string& name : varying) {
    std::cout << ExpectationLine(name, ValueIn(table.by_default, name).value) << '\n';
  }
  for (const CarrierColumn& column : table.columns) {
    const std::string title = SectionLine(column.key.Choice());
    if (title.empty()) {
      Fail(kSuccess, "warning: left out: no section can name the key " + column.key.name);
      continue;
    }
    std::cout << '\n' << title << '\n';
    for (const auto& [name, ending] : column.differences) {
      std::cout << ExpectationLine(name, ending.value) << '\n';
    }
  }
  EndOutput(kTrouble);
  return kSuccess;
}

}  // namespace

int Expect(const Options& options) {
  BootOptions device = options.boot;
  device.carriers.clear();
  const BootPlan plan = OrFail(kBadInput, MakePlan(device));
  if (options.write == !options.expectation_files.empty()) {
    return Fail(kBadInput, "name a FILE of expectations, or print one with --write");
  }
  if (options.write) return WriteExpectations(plan, options);

  const Library library = OrFail(kTrouble, LoadLibrary(plan.library));
  Expectations expectations;
  bool good = true;
  for (const std::string& path : options.expectation_files) {
    for (const std::string& error :
         ReadExpectations(path, library.IsLegalPropertyName, &expectations)) {
      std::cerr << Visible(error) << '\n';
      good = false;
    }
  }
  if (!good) return kBadInput;

  const auto [boots, unmet, errors] =
      Check(plan, options.boot.carriers, expectations, options.jobs);
  if (options.json) {
    const json all = {{"boots", boots}, {"expectations", expectations.count}, {"unmet", unmet}};
    std::cout << JsonText(all) << '\n';
  }
  for (const Unmet& one : unmet) {
    if (options.json) continue;
    Print(Visible(one.path) + ":" + std::to_string(one.line) + ": " + Coloured(kBoldRed, "error:") +
          " " + Visible(one.message) + " [" + one.id + "]\n");
  }
  EndOutput(kTrouble);
  for (const std::string& error : errors) Fail(kTrouble, error);
  if (!errors.empty()) return kTrouble;
  if (!options.json) {
    std::cerr << Count(expectations.count, "expectation") << ", " << Count(boots, "boot") << ": "
              << Count(unmet.size(), "error") << '\n';
  }
  return unmet.empty() ? kSame : kDifferent;
}

}  // namespace extprop
