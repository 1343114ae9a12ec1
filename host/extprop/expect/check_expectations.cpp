#include "host/extprop/expect/check_expectations.h"

#include <android-base/strings.h>

#include <algorithm>
#include <set>
#include <tuple>

#include "host/extprop/boot/pack.h"
#include "host/extprop/carriers/carrier_keys.h"
#include "host/extprop/carriers/job_pool.h"

namespace extprop {

namespace {

using android::base::Error;
using android::base::Result;
using Choices = std::vector<CarrierChoice>;

bool IsMet(const Expectation& expectation, const std::string& value) {
  return expectation.value == kAnyValue ? !value.empty() : value == expectation.value;
}

// The sections whose carriers the device knows; the others become findings.
Result<std::vector<const ExpectationSection*>> KnownSections(const BootPlan& plan,
                                                             const Choices& base,
                                                             const Expectations& expectations,
                                                             ExpectationResult* result) {
  Result<std::vector<CarrierKey>> keys = FindCarrierKeys(plan);
  if (!keys.ok()) return keys.error();
  const std::vector<std::string> wrong = Doubts(base, *keys);
  if (!wrong.empty()) return Error() << "--carrier " << android::base::Join(wrong, "; ");
  std::vector<const ExpectationSection*> known;
  for (const ExpectationSection& section : expectations.sections) {
    const std::vector<std::string> doubts = Doubts(section.choices, *keys);
    if (doubts.empty()) {
      known.push_back(&section);
      continue;
    }
    Unmet unmet = {section.path, section.line, "unknown-carrier"};
    unmet.note = android::base::Join(doubts, "; ");
    unmet.sections = {section.title};
    result->unmet.push_back(std::move(unmet));
  }
  return known;
}

CarrierOutcome BootSection(CarrierBoots boots, const ExpectationSection& section) {
  if (section.choices.empty() && section.properties.empty()) return {"", boots.by_default};
  for (const auto& [name, value] : section.properties) boots.plan.properties[name] = value;
  return BootWith(boots, section.choices);
}

class Checker {
 public:
  Checker(const Expectations& expectations, size_t sections, ExpectationResult* result)
      : everywhere_(expectations.everywhere), sections_(sections), result_(*result) {}

  void Check(const ExpectationSection& section, const Endings& endings) {
    for (const Expectation& expectation : everywhere_) Check(expectation, section, endings, true);
    for (const Expectation& expectation : section.expectations) {
      Check(expectation, section, endings, false);
    }
  }

 private:
  void Check(const Expectation& expectation, const ExpectationSection& section,
             const Endings& endings, bool everywhere) {
    const auto found = endings.find(expectation.name);
    const Ending ending = found == endings.end() ? Ending() : found->second;
    if (IsMet(expectation, ending.value)) return;
    // Where many devices fail in the same way, it is told once.
    auto& unmet = result_.unmet;
    auto same = std::find_if(unmet.begin(), unmet.end(), [&](const Unmet& other) {
      return std::tie(other.line, other.value, other.place, other.note, other.path) ==
             std::tie(expectation.line, ending.value, ending.place, ending.note, expectation.path);
    });
    if (same == unmet.end()) {
      const auto& [path, line, name, expected] = expectation;
      same = unmet.insert(unmet.end(), {path, line, "unmet", name, expected, ending.value,
                                        ending.place, ending.note});
    }
    same->sections.push_back(section.title);
    same->in_all = !everywhere || same->sections.size() == sections_;
  }

  const std::vector<Expectation>& everywhere_;
  const size_t sections_;
  ExpectationResult& result_;
};

std::set<std::string> NamesOf(const Expectations& expectations) {
  std::set<std::string> names;
  for (const Expectation& expectation : expectations.everywhere) names.insert(expectation.name);
  for (const ExpectationSection& section : expectations.sections) {
    for (const Expectation& expectation : section.expectations) names.insert(expectation.name);
  }
  return names;
}

}  // namespace

Result<ExpectationResult> CheckExpectations(const BootPlan& plan,
                                            const std::vector<CarrierChoice>& base,
                                            const Expectations& expectations, unsigned jobs) {
  ExpectationResult result;
  result.expectations = expectations.everywhere.size();
  for (const auto& section : expectations.sections) {
    result.expectations += section.expectations.size();
  }
  Result<std::vector<const ExpectationSection*>> sections =
      KnownSections(plan, base, expectations, &result);
  if (!sections.ok()) return sections.error();
  Result<CarrierBoots> boots = BootByDefault(plan, base, NamesOf(expectations));
  if (!boots.ok()) return boots.error();

  Checker checker(expectations, sections->size(), &result);
  Result<void> run = RunJobs(
      sections->size(), jobs,
      [&](size_t index) { return Pack(BootSection(*boots, *(*sections)[index])); },
      [&](size_t index, const std::string& packed) {
        const CarrierOutcome outcome = Unpack<CarrierOutcome>(packed);
        const ExpectationSection& section = *(*sections)[index];
        ++result.boots;
        if (outcome.error.empty()) return checker.Check(section, outcome.endings);
        result.errors.push_back("[" + section.title + "]: " + outcome.error);
      });
  if (!run.ok()) return run.error();
  std::stable_sort(result.unmet.begin(), result.unmet.end(), [](const Unmet& a, const Unmet& b) {
    return std::tie(a.path, a.line) < std::tie(b.path, b.line);
  });
  return result;
}

}  // namespace extprop
