#include "host/extprop/expect/expectations.h"

#include <android-base/file.h>
#include <android-base/strings.h>

#include <algorithm>
#include <cstring>
#include <iterator>
#include <sstream>
#include <tuple>

#include "host/extprop/vocabulary.h"

namespace extprop {

namespace {

using android::base::Trim;

class Reader {
 public:
  Reader(const std::string& path, const std::function<bool(const std::string&)>& is_legal_name,
         Expectations* expectations)
      : path_(path), is_legal_name_(is_legal_name), all_(*expectations) {}

  std::vector<std::string> Read(const std::string& content) {
    std::vector<std::string> errors;
    for (const std::string& raw : android::base::Split(content, "\n")) {
      ++line_;
      const std::string line = Trim(raw);
      if (line_ == 1 && android::base::StartsWith(line, "\xef\xbb\xbf")) {
        errors.push_back(Here() + ": error: the line begins with a byte order mark");
        continue;
      }
      if (line.empty() || line[0] == '#') continue;
      Result<void> taken = line[0] == '[' ? TakeSection(line) : TakeExpectation(line);
      if (!taken.ok()) errors.push_back(Here() + ": error: " + taken.error().message());
    }
    return errors;
  }

 private:
  std::string Here() const { return path_ + ":" + std::to_string(line_); }

  Result<void> TakeSection(const std::string& line) {
    ExpectationSection section = {path_, line_, "", {}, {}};
    Result<void> parsed = ParseDevice(line, &section);
    // What follows a wrong one belongs to no other.
    if (!parsed.ok()) section.title = Here();
    auto& sections = all_.sections;
    auto same =
        std::find_if(sections.begin(), sections.end(),
                     [&](const ExpectationSection& other) { return other.title == section.title; });
    if (same == sections.end()) same = sections.insert(same, std::move(section));
    current_ = &same->expectations;
    return parsed;
  }

  Result<void> ParseDevice(const std::string& line, ExpectationSection* section) const {
    if (line.back() != ']') return Error() << "a section is one line that ends with ]";
    std::istringstream inside(line.substr(1, line.size() - 2));
    const std::vector<std::string> words{std::istream_iterator<std::string>(inside), {}};
    if (words.empty()) return Error() << "[] names no device; [default] is the one as it is";
    if (words.size() == 1 && words[0] == "default") {
      section->title = "default";
      return {};
    }
    auto& choices = section->choices;
    for (const std::string& word : words) {
      Result<CarrierChoice> choice = ParseChoice(word);
      if (!choice.ok()) return choice.error();
      choices.push_back(std::move(*choice));
    }
    std::sort(choices.begin(), choices.end(), [](const CarrierChoice& a, const CarrierChoice& b) {
      return std::tuple(a.IsProperty(), a.kind) < std::tuple(b.IsProperty(), b.kind);
    });
    for (const CarrierChoice& choice : choices) {
      section->title += (section->title.empty() ? "" : " ") + choice.Text();
    }
    BootPlan any_device;
    return PutInForce(choices, &any_device);
  }

  Result<CarrierChoice> ParseChoice(const std::string& word) const {
    const size_t equals = word.find('=');
    const std::string name = word.substr(0, equals);
    if (name.find('.') == std::string::npos) {
      Result<CarrierChoice> choice = ParseCarrierChoice(word);
      if (!choice.ok()) return Error() << word << ": " << choice.error();
      return choice;
    }
    if (!is_legal_name_(name)) return Error() << "[" << name << "] is no name of a property";
    if (equals == std::string::npos) return Error() << "not NAME=VALUE";
    return CarrierChoice{name, word.substr(equals + 1)};
  }

  Result<void> TakeExpectation(const std::string& line) {
    const size_t equals = line.find('=');
    const bool unset = line[0] == '!';
    if (!unset && equals == std::string::npos) {
      return Error() << "neither NAME=VALUE, NAME=* (any value), !NAME (unset) nor [SECTION]";
    }
    const std::string name = Trim(unset ? line.substr(1) : line.substr(0, equals));
    const std::string value = unset ? "" : Trim(line.substr(equals + 1));
    if (!unset && value.empty()) {
      return Error() << "a property without a value is unset: !" << name;
    }
    if (!is_legal_name_(name)) return Error() << "[" << name << "] is no name of a property";
    const auto [known, is_new] = current_->try_emplace(name, Expectation{path_, line_, value});
    if (is_new) ++all_.count;
    all_.names.insert(name);
    const Expectation& other = known->second;
    if (other.value == value) return {};
    return Error() << "[" << name << "] is expected otherwise at " << other.path << ":"
                   << other.line;
  }

  const std::string& path_;
  const std::function<bool(const std::string&)>& is_legal_name_;
  Expectations& all_;
  ExpectationMap* current_ = &all_.everywhere;  // of the section that the line is in
  unsigned line_ = 0;
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
  const bool lost = value != Trim(value) || value.find('\n') != std::string::npos;
  return name + "=" + (lost ? kAnyValue : value);
}

std::string SectionLine(const CarrierChoice& choice) {
  const bool is_word = choice.key.find_first_of(" \t\n\v\f\r") == std::string::npos;
  return is_word ? "[" + choice.Text() + "]" : "";
}

}  // namespace extprop
