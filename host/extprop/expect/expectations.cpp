#include "host/extprop/expect/expectations.h"

#include <android-base/file.h>
#include <android-base/strings.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <sstream>

#include "host/extprop/boot/property_input.h"

namespace extprop {

namespace {

using android::base::Error;
using android::base::Result;

constexpr const char* kWhiteSpace = " \t\n\v\f\r";

class Reader {
 public:
  Reader(const std::string& path, const std::function<bool(const std::string&)>& is_legal_name,
         Expectations* expectations)
      : is_legal_name_(is_legal_name), all_(*expectations), path_(path) {}

  std::vector<std::string> Read(const std::string& content) {
    std::vector<std::string> errors;
    for (const std::string& raw : android::base::Split(content, "\n")) {
      ++line_;
      const std::string line = android::base::Trim(raw);
      if (line.empty() || line[0] == '#') continue;
      Result<void> taken = line[0] == '[' ? TakeSection(line) : TakeExpectation(line);
      if (taken.ok()) continue;
      errors.push_back(path_ + ":" + std::to_string(line_) + ": error: " + taken.error().message());
    }
    return errors;
  }

 private:
  Result<void> TakeSection(const std::string& line) {
    ExpectationSection section = {path_, line_, "", {}, {}, {}};
    Result<void> parsed = ParseDevice(line, &section);
    // What follows a wrong one belongs to no other.
    if (!parsed.ok()) section.title = path_ + ":" + std::to_string(line_);
    const auto same =
        std::find_if(all_.sections.begin(), all_.sections.end(),
                     [&](const ExpectationSection& other) { return other.title == section.title; });
    section_ = static_cast<size_t>(same - all_.sections.begin());
    if (same == all_.sections.end()) all_.sections.push_back(std::move(section));
    in_section_ = true;
    return parsed;
  }

  Result<void> ParseDevice(const std::string& line, ExpectationSection* section) const {
    if (line.back() != ']') return Error() << "a section is one line that ends with ]";
    std::istringstream words(line.substr(1, line.size() - 2));
    std::string word;
    if (words >> word && word == "default" && !(words >> word)) {
      section->title = "default";
      return {};
    }
    words.clear();
    words.seekg(0);
    while (words >> word) {
      Result<void> added = AddToDevice(word, section);
      if (!added.ok()) return added.error();
    }
    std::sort(section->choices.begin(), section->choices.end(),
              [](const CarrierChoice& a, const CarrierChoice& b) { return a.kind < b.kind; });
    std::vector<std::string> parts;
    const auto add = [&](std::string name, const std::string& value) {
      parts.push_back(name.append("=").append(value));
    };
    for (const auto& [kind, key] : section->choices) add(kind, key);
    for (const auto& [name, value] : section->properties) add(name, value);
    if (parts.empty()) return Error() << "[] names no device; [default] is the one as it is";
    section->title = android::base::Join(parts, " ");
    BootPlan any_device;
    return PutInForce(section->choices, &any_device);
  }

  Result<void> AddToDevice(const std::string& word, ExpectationSection* section) const {
    const std::string name = word.substr(0, word.find('='));
    const bool is_kind = std::find(std::begin(kCarrierKinds), std::end(kCarrierKinds), name) !=
                         std::end(kCarrierKinds);
    if (is_kind || name.find('.') == std::string::npos) {
      Result<CarrierChoice> choice = ParseCarrierChoice(word);
      if (!choice.ok()) return Error() << word << ": " << choice.error();
      section->choices.push_back(*choice);
      return {};
    }
    if (!is_legal_name_(name)) return Error() << "[" << name << "] is no name of a property";
    if (section->properties.count(name) != 0) return Error() << "[" << name << "] is given twice";
    return ParseAssignment(word, &section->properties);
  }

  Result<void> TakeExpectation(const std::string& line) {
    Expectation expectation = {path_, line_, "", ""};
    if (line[0] == '!') {
      expectation.name = android::base::Trim(line.substr(1));
    } else {
      const size_t equals = line.find('=');
      if (equals == std::string::npos) {
        return Error() << "neither NAME=VALUE, NAME=* (any value), !NAME (unset) nor [SECTION]";
      }
      expectation.name = android::base::Trim(line.substr(0, equals));
      expectation.value = android::base::Trim(line.substr(equals + 1));
      if (expectation.value.empty()) {
        return Error() << "a property without a value is unset: !" << expectation.name;
      }
    }
    if (!is_legal_name_(expectation.name)) {
      return Error() << "[" << expectation.name << "] is no name of a property";
    }
    auto& others = in_section_ ? all_.sections[section_].expectations : all_.everywhere;
    for (const Expectation& other : others) {
      if (other.name != expectation.name) continue;
      if (other.value == expectation.value) return {};
      return Error() << "[" << other.name << "] is expected otherwise at " << other.path << ":"
                     << other.line;
    }
    others.push_back(std::move(expectation));
    return {};
  }

  const std::function<bool(const std::string&)>& is_legal_name_;
  Expectations& all_;
  const std::string path_;
  unsigned line_ = 0;
  bool in_section_ = false;
  size_t section_ = 0;
};

}  // namespace

std::vector<std::string> ReadExpectations(
    const std::string& path, const std::function<bool(const std::string&)>& is_legal_name,
    Expectations* expectations) {
  std::string content;
  if (!android::base::ReadFileToString(path, &content, true)) {
    return {path + ": error: cannot be read: " + strerror(errno)};
  }
  return Reader(path, is_legal_name, expectations).Read(content);
}

std::string ExpectationLine(const std::string& name, const std::string& value) {
  if (value.empty()) return "!" + name;
  const bool lost = value != android::base::Trim(value) || value.find('\n') != std::string::npos;
  return name + "=" + (lost ? kAnyValue : value);
}

std::string SectionLine(const CarrierChoice& choice) {
  if (choice.key.find_first_of(kWhiteSpace) != std::string::npos) return "";
  return "[" + choice.kind + "=" + choice.key + "]";
}

}  // namespace extprop
